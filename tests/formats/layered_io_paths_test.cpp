// The block-wise, threaded coding of the layered format's pixel runs against
// the plain one pair at a time: the same bytes written, the same documents
// read, the same files refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "base/row_workers.h"
#include "file_bytes.h"
#include "formats/byte_input.h"
#include "formats/layered_format.h"
#include "pixels.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::Bytes;
using testing_support::ReadBytes;
using testing_support::SamePixels;
using testing_support::TempDir;

// Restores the fast coding and the real processor count after each test.
class LayeredIoPaths : public ::testing::Test {
 protected:
  void TearDown() override {
    AllowFastRunCodingForTesting(true);
    RowWorkers::OverrideProcessorCountForTesting(0);
  }
};

using Paint = std::function<void(Surface&, std::mt19937&)>;

std::unique_ptr<Document> Make(int w, int h, std::vector<Paint> layers) {
  auto doc = CreateDocument(w, h, 72, 0xFFFFFFFF, 0);
  doc->layers.clear();
  std::mt19937 rng(7);
  for (const Paint& paint : layers) {
    Layer& l = doc->layers.emplace_back(w, h, u"L");
    paint(l.pixels, rng);
  }
  return doc;
}

void Noise(Surface& s, std::mt19937& rng) {
  for (std::size_t i = 0; i < s.PixelCount(); ++i) s.Data()[i] = rng();
}
// Runs of every length from 1 up, of a few colours, transparent among them.
void ShortRuns(Surface& s, std::mt19937& rng) {
  const uint32_t colours[] = {0, 0, 0xFF102030, 0x80FFFFFF, 1};
  for (std::size_t i = 0; i < s.PixelCount();) {
    const std::size_t run = 1 + rng() % (rng() % 4 == 0 ? 300 : 6);
    const uint32_t c = colours[rng() % 5];
    for (std::size_t k = 0; k < run && i < s.PixelCount(); ++k) s.Data()[i++] = c;
  }
}
void Flat(Surface& s, std::mt19937&) { s.Fill(0xFF336699); }
void Empty(Surface&, std::mt19937&) {}
// Flat blocks on transparency, with a noisy stripe: runs span whole pieces.
void Drawing(Surface& s, std::mt19937& rng) {
  for (int y = s.Height() / 5; y < s.Height() * 3 / 5; ++y)
    for (int x = s.Width() / 7; x < s.Width() * 6 / 7; ++x) s.At(x, y) = 0xFF203040;
  const int stripe = s.Height() * 4 / 5;
  for (int x = 0; x < s.Width(); ++x) s.At(x, stripe) = rng() % 2 ? rng() : 0;
}

struct Case {
  const char* what;
  std::function<std::unique_ptr<Document>()> make;
};

std::vector<Case> Cases() {
  return {
      {"one pixel", [] { return Make(1, 1, {Noise}); }},
      {"tiny widths for the four-wide steps", [] { return Make(5, 3, {Noise, ShortRuns, Flat}); }},
      {"odd size, below the split", [] { return Make(97, 61, {ShortRuns, Noise, Drawing}); }},
      {"noise, split", [] { return Make(400, 330, {Noise, Noise}); }},
      {"flat and empty, split", [] { return Make(512, 300, {Flat, Empty, Flat}); }},
      {"short runs, split", [] { return Make(640, 480, {ShortRuns}); }},
      // Past one band of 1 Mi pixels: runs go on across the band's end.
      {"drawing layers over a band", [] { return Make(1200, 1000, {Drawing, Empty, ShortRuns}); }},
  };
}

Bytes Save(const Document& doc, const std::filesystem::path& path) {
  EXPECT_TRUE(WriteLayeredDocument(doc, path));
  return ReadBytes(path);
}

::testing::AssertionResult SameDocument(const Document* got, const Document& want) {
  if (!got) return ::testing::AssertionFailure() << "not read";
  if (got->LayerCount() != want.LayerCount()) return ::testing::AssertionFailure() << "layer count";
  for (int i = 0; i < want.LayerCount(); ++i) {
    const Surface &a = got->layers[i].pixels, &b = want.layers[i].pixels;
    if (a.PixelCount() == b.PixelCount() &&
        std::equal(a.Data(), a.Data() + a.PixelCount(), b.Data()))
      continue;
    auto same = SamePixels(a, b);  // names the first difference
    if (!same) return same << " in layer " << i;
  }
  return ::testing::AssertionSuccess();
}

TEST_F(LayeredIoPaths, SameBytesAndSamePixelsOnEveryProcessorCount) {
  TempDir dir;
  for (const Case& c : Cases()) {
    const auto doc = c.make();
    AllowFastRunCodingForTesting(false);
    const Bytes plain = Save(*doc, dir / "plain.tvl");
    AllowFastRunCodingForTesting(true);
    for (int processors : {1, 2, 3, 16}) {
      RowWorkers::OverrideProcessorCountForTesting(processors);
      EXPECT_EQ(Save(*doc, dir / "fast.tvl"), plain) << c.what << ", " << processors;
    }
    RowWorkers::OverrideProcessorCountForTesting(0);
    // Every way in reads the plain file back to the same pixels.
    EXPECT_TRUE(SameDocument(ReadLayeredDocument(dir / "plain.tvl").get(), *doc)) << c.what;
    EXPECT_TRUE(SameDocument(ReadLayeredDocumentBytes(plain).get(), *doc)) << c.what;
    MemoryInput stream(plain);
    EXPECT_TRUE(SameDocument(ReadLayeredDocument(stream).get(), *doc)) << c.what;
  }
}

// Cut and corrupted files: the fast reader refuses exactly what the plain
// one refuses, and what both open is the same document.
TEST_F(LayeredIoPaths, BrokenFilesAreJudgedAlike) {
  TempDir dir;
  // Noise layers of over 32 Ki pairs are decoded in pieces side by side.
  const auto doc = Make(190, 180, {Noise, ShortRuns, Noise, Drawing});
  const Bytes valid = Save(*doc, dir / "v.tvl");
  auto both = [&](const Bytes& bytes, const std::string& what) {
    AllowFastRunCodingForTesting(false);
    const auto plain = ReadLayeredDocumentBytes(bytes);
    AllowFastRunCodingForTesting(true);
    const auto fast = ReadLayeredDocumentBytes(bytes);
    MemoryInput stream(bytes);
    const auto streamed = ReadLayeredDocument(stream);
    ASSERT_EQ(fast != nullptr, plain != nullptr) << what;
    ASSERT_EQ(streamed != nullptr, plain != nullptr) << what;
    if (plain) {
      EXPECT_TRUE(SameDocument(fast.get(), *plain)) << what;
      EXPECT_TRUE(SameDocument(streamed.get(), *plain)) << what;
    }
  };
  for (std::size_t n = 0; n < valid.size(); n += n < 400 ? 1 : 7919)
    both(Bytes(valid.begin(), valid.begin() + n), "cut at " + std::to_string(n));
  for (std::size_t n = 0; n < valid.size(); n += 9973) {
    testing_support::WriteBytes(dir / "cut.tvl", Bytes(valid.begin(), valid.begin() + n));
    EXPECT_FALSE(ReadLayeredDocument(dir / "cut.tvl")) << "file cut at " << n;
  }
  std::mt19937 rng(99);
  int opened = 0;
  for (int i = 0; i < 150; ++i) {
    Bytes b = valid;
    // Into the runs mostly: a run of 0, 2 or a huge one among runs of one.
    const std::size_t at = 28 + rng() % (b.size() - 28);
    b[at] = static_cast<uint8_t>(rng() % 3 == 0 ? 0 : rng() % 2 ? 2 : rng());
    both(b, "corrupt at " + std::to_string(at));
    AllowFastRunCodingForTesting(true);
    opened += ReadLayeredDocumentBytes(b) != nullptr;
  }
  EXPECT_GT(opened, 0);
  // Bad runs whose neighbours keep the layer's total right, in the middle
  // of the first noise layer and at its end.
  const std::size_t runs = 28 + 128 + 16 + 3 * 24 + 18 * 4, pairs = 190 * 180;
  for (std::size_t pair : {std::size_t{5}, pairs / 2, pairs - 2}) {
    for (auto [first, second] : {std::pair{0u, 2u}, {2u, 0u}}) {
      Bytes b = valid;
      b[runs + 8 * pair] = static_cast<uint8_t>(first);
      b[runs + 8 * pair + 8] = static_cast<uint8_t>(second);
      both(b, "runs " + std::to_string(first) + ", " + std::to_string(second));
      EXPECT_FALSE(ReadLayeredDocumentBytes(b)) << pair << ": " << first << ", " << second;
    }
  }
  // Trailing bytes stay ignored, read from a file too.
  Bytes longer = valid;
  longer.resize(valid.size() + 5, 0xEE);
  both(longer, "trailing");
  testing_support::WriteBytes(dir / "t.tvl", longer);
  EXPECT_TRUE(SameDocument(ReadLayeredDocument(dir / "t.tvl").get(), *doc));
}

}  // namespace
}  // namespace tavora

#include "formats/clipboard_win32.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include "pixels.h"
#include "platform/gdiplus_codecs_win32.h"

namespace tavora {
namespace {

using testing_support::Px;
using testing_support::SamePixels;

class ClipboardTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(StartGdiplusCodecs()); }
  void SetUp() override {
    // A message-only window owns what the tests put on the clipboard.
    owner_ = CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    ASSERT_NE(owner_, nullptr);
  }
  void TearDown() override {
    ForgetClipboardCopy();
    DestroyWindow(owner_);
  }

  // What another program does: empty the clipboard and offer one block.
  void OfferAsAnotherProgram(UINT format, HANDLE data) {
    ASSERT_TRUE(OpenClipboard(owner_));
    EmptyClipboard();
    EXPECT_NE(SetClipboardData(format, data), nullptr);
    CloseClipboard();
  }

  // A copy of the clipboard's block of `format`, empty when there is none.
  std::vector<uint8_t> BlockOf(UINT format) {
    std::vector<uint8_t> bytes;
    if (!OpenClipboard(owner_)) return bytes;
    if (HANDLE h = GetClipboardData(format)) {
      const auto* p = static_cast<const uint8_t*>(GlobalLock(h));
      if (p) bytes.assign(p, p + GlobalSize(h));
      GlobalUnlock(h);
    }
    CloseClipboard();
    return bytes;
  }

  HWND owner_ = nullptr;
};

HGLOBAL Block(const std::vector<uint8_t>& bytes) {
  HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, bytes.size());
  std::memcpy(GlobalLock(h), bytes.data(), bytes.size());
  GlobalUnlock(h);
  return h;
}

// 8 x 6, every pixel opaque and different; a selection over (0,1)-(4,5),
// off the middle, with a feathered column of 128 and an unselected corner.
std::unique_ptr<Document> FeatheredDocument() {
  auto doc = CreateDocument(8, 6, 96, 0xFFFFFFFF, 0);
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 8; ++x) doc->layers[0].pixels.At(x, y) = Px(255, 30 * x, 40 * y, 99);
  doc->selection.emplace(8, 6);
  for (int32_t y = 1; y < 5; ++y)
    for (int32_t x = 0; x < 4; ++x) doc->selection->At(x, y) = x == 3 ? 128 : 255;
  doc->selection->At(0, 1) = 0;
  doc->selectionBounds = {0, 1, 4, 5};
  return doc;
}

TEST_F(ClipboardTest, CopyOffersTheBitmapAndPasteKeepsExactAlphaAndPlace) {
  auto doc = FeatheredDocument();
  ASSERT_TRUE(CopyToClipboard(owner_, *doc));
  const auto copied = CopySelectedPixels(*doc);  // its alpha is held by the clipboard data tests
  ASSERT_TRUE(copied);

  // The bitmap block other programs read, as the clipboard hands it out:
  // the 4 x 4 copy, built as the clipboard data tests check it.
  const std::vector<uint8_t> dib = BlockOf(CF_DIBV5);
  const std::vector<uint8_t> want = BuildDibV5(copied->pixels, 96);
  ASSERT_EQ(copied->pixels.Width(), 4);
  ASSERT_GE(dib.size(), want.size());
  EXPECT_EQ(std::memcmp(dib.data(), want.data(), want.size()), 0);

  // The bitmap is the one format offered ("PNG" is only read on paste).
  EXPECT_FALSE(IsClipboardFormatAvailable(RegisterClipboardFormatW(L"PNG")));

  // Pasted back: the private copy, at the place it came from (a picture
  // from elsewhere would be centred); the new layer's name and steps are
  // held by the clipboard data tests.
  ASSERT_EQ(PasteFromClipboard(owner_, doc.get(), PasteTarget::ActiveDocument), nullptr);
  ASSERT_EQ(doc->LayerCount(), 2);
  const Surface& pasted = doc->layers[1].pixels;
  EXPECT_EQ(pasted.At(3, 2), Px(128, 90, 80, 99));
  EXPECT_EQ(pasted.At(1, 3), doc->layers[0].pixels.At(1, 3));
  EXPECT_EQ(pasted.At(4, 2), 0u);

  // Paste as New Image: the copied size, exactly.
  const auto fresh = PasteFromClipboard(owner_, doc.get(), PasteTarget::NewImage);
  ASSERT_TRUE(fresh);
  EXPECT_EQ(std::pair(fresh->dpi, fresh->modified), std::pair(72, true));
  EXPECT_TRUE(SamePixels(fresh->layers[0].pixels, copied->pixels));
}

TEST_F(ClipboardTest, WhatAnotherProgramOffersReplacesThePrivateCopy) {
  Surface translucent(3, 2);
  for (int32_t i = 0; i < 6; ++i) translucent.Data()[i] = Px(40 * i + 10, 200, 10 * i, 7);
  Surface noAlpha(3, 2);
  noAlpha.Fill(0x00405060);  // alpha bytes left at 0, as many programs write them
  Surface opaque(3, 2);
  opaque.Fill(0xFF405060);

  std::vector<uint8_t> plainDib(40 + 6 * 4, 0);  // BITMAPINFOHEADER, bottom-up
  const int32_t plainHeader[] = {40, 3, 2};
  std::memcpy(plainDib.data(), plainHeader, sizeof plainHeader);
  plainDib[12] = 1;
  plainDib[14] = 32;
  std::memcpy(&plainDib[40], noAlpha.Data(), 6 * 4);

  const struct {
    const char* name;
    UINT format;
    std::function<HANDLE()> data;
    const Surface* want;
  } table[] = {
      {"PNG keeps alpha", RegisterClipboardFormatW(L"PNG"),
       [&] { return Block(*EncodePngInMemory(translucent, 72)); }, &translucent},
      {"version-5 bitmap with alpha", CF_DIBV5, [&] { return Block(BuildDibV5(translucent, 72)); },
       &translucent},
      {"plain 32-bit bitmap", CF_DIB, [&] { return Block(plainDib); }, &opaque},
      {"device-dependent bitmap", CF_BITMAP, [&] { return CreateBitmap(3, 2, 1, 32, noAlpha.Data()); },
       &opaque},
      {"text only", CF_UNICODETEXT, [] { return Block(std::vector<uint8_t>{'h', 0, 'i', 0, 0, 0}); },
       nullptr},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    auto doc = FeatheredDocument();
    ASSERT_TRUE(CopyToClipboard(owner_, *doc));
    OfferAsAnotherProgram(row.format, row.data());
    const auto picture = ReadClipboardPicture(owner_);
    if (!row.want) {
      EXPECT_FALSE(picture);
      EXPECT_EQ(PasteFromClipboard(owner_, doc.get(), PasteTarget::ActiveDocument), nullptr);
      EXPECT_EQ(doc->LayerCount(), 1);
      continue;
    }
    ASSERT_TRUE(picture);
    EXPECT_FALSE(picture->from);
    EXPECT_TRUE(SamePixels(picture->pixels, *row.want));
  }
}

}  // namespace
}  // namespace tavora

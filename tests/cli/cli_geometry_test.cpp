// tavora-cli apply's geometry and resampling operations.
#include <gtest/gtest.h>

#include "cli/cli.h"
#include "formats/layered_format.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::TempDir;

struct Outcome {
  int status;
  std::string out, err;
};
Outcome Cli(std::vector<std::u16string> args) {
  Outcome r;
  r.status = RunCli(args, r.out, r.err);
  return r;
}
std::u16string U(const std::filesystem::path& p) { return p.u16string(); }

// 4 x 3, each pixel distinct; a transparent layer above it.
std::filesystem::path Picture(const TempDir& dir) {
  auto doc = CreateDocument(4, 3, 72, 0xFFFFFFFF, 0);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 4; ++x) doc->layers[0].pixels.At(x, y) = 0xFF000000u | uint32_t(y * 4 + x);
  doc->layers.emplace_back(4, 3, u"Layer 2");
  doc->layers[1].pixels.At(1, 1) = 0xFFFF0000;
  doc->active = 1;
  EXPECT_TRUE(WriteLayeredDocument(*doc, dir / "in.tvl"));
  return dir / "in.tvl";
}

std::unique_ptr<Document> Apply(const TempDir& dir, std::initializer_list<std::u16string> ops) {
  std::vector<std::u16string> args{u"apply"};
  args.insert(args.end(), ops);
  args.push_back(U(dir / "in.tvl"));
  args.push_back(U(dir / "out.tvl"));
  const Outcome r = Cli(args);
  EXPECT_EQ(r.status, kCliOk) << r.err;
  return ReadLayeredDocument(dir / "out.tvl");
}

TEST(CliGeometry, ImageOperationsChangeSizeAndPixelsAsTheCommandsDo) {
  TempDir dir;
  Picture(dir);
  auto doc = Apply(dir, {u"rotate-right"});
  ASSERT_TRUE(doc);
  EXPECT_EQ(doc->width, 3);
  EXPECT_EQ(doc->layers[0].pixels.At(2, 0), 0xFF000000u);  // (0,0) goes to (H-1-0, 0)
  doc = Apply(dir, {u"flip", u"mirror"});
  EXPECT_EQ(doc->layers[0].pixels.At(0, 0), 0xFF00000Bu);
  doc = Apply(dir, {u"canvas-size=6,5,0,#FF0000"});  // top left anchor, red on the Background
  EXPECT_EQ(doc->width, 6);
  EXPECT_EQ(doc->layers[0].pixels.At(0, 0), 0xFF000000u);
  EXPECT_EQ(doc->layers[0].pixels.At(5, 4), 0xFFFF0000u);
  EXPECT_EQ(doc->layers[1].pixels.At(5, 4), 0u);  // an ordinary layer: transparent
  doc = Apply(dir, {u"crop=1,1,100,100"});       // clipped to the canvas
  EXPECT_EQ(doc->width, 3);
  EXPECT_EQ(doc->height, 2);
  EXPECT_EQ(doc->layers[0].pixels.At(0, 0), 0xFF000005u);
  doc = Apply(dir, {u"free-rotate=90,expand"});
  EXPECT_EQ(doc->width, 3);
  EXPECT_EQ(doc->height, 4);
  for (const char16_t* op : {u"resize=8,6", u"resize=8,6,nearest", u"resize=2,1,lanczos,40", u"resize=16,12,pixel-art",
                             u"resize=8,6,detail-recovery", u"resize=2,2,area-average"}) {
    std::u16string text(op);
    doc = Apply(dir, {text});
    ASSERT_TRUE(doc);
    const std::size_t eq = text.find(u'='), comma = text.find(u',');
    EXPECT_EQ(doc->width, std::stoi(std::string(text.begin() + eq + 1, text.begin() + comma)));
  }
  EXPECT_EQ(Apply(dir, {u"resize=8,6,nearest"})->layers[0].pixels.At(1, 1), 0xFF000000u);
}

TEST(CliGeometry, LayerOperationsAndRefusals) {
  TempDir dir;
  Picture(dir);
  auto doc = Apply(dir, {u"mirror-layer"});
  EXPECT_EQ(doc->layers[1].pixels.At(2, 1), 0xFFFF0000u);
  doc = Apply(dir, {u"resize-layer=3,3,nearest"});
  ASSERT_TRUE(doc);
  // The Background refuses Resize Layer and stays as it was.
  {
    auto bg = CreateDocument(4, 3, 72, 0xFF123456, 0);
    ASSERT_TRUE(WriteLayeredDocument(*bg, dir / "bg-in.tvl"));
    const Outcome r = Cli({u"apply", u"resize-layer=8,8", U(dir / "bg-in.tvl"), U(dir / "bg.tvl")});
    EXPECT_EQ(r.status, kCliOk);
    EXPECT_EQ(ReadLayeredDocument(dir / "bg.tvl")->layers[0].pixels.At(3, 2), 0xFF123456u);
  }
  struct Bad {
    const char16_t* op;
    const char* message;
  } refused[] = {
      {u"resize=30001,10", "Size must be between 1 and 30000 pixels per side (max 250 megapixels)."},
      {u"resize=20000,20000", "Size must be between 1 and 30000 pixels per side (max 250 megapixels)."},
      {u"canvas-size=0,5", "Size must be between 1 and 30000 pixels per side (max 250 megapixels)."},
      {u"resize-layer=40000,1", "Size must be between 1 and 30000 pixels per side."},
      {u"free-rotate=181", "Please enter a value between -180 and 180."},
      {u"free-rotate-layer=nan", "Please enter a value between -180 and 180."},
  };
  for (const Bad& b : refused) {
    const Outcome r = Cli({u"apply", b.op, U(dir / "in.tvl"), U(dir / "x.tvl")});
    EXPECT_EQ(r.status, kCliUsage) << r.err;
    EXPECT_NE(r.err.find(b.message), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("usage:"), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "x.tvl"));
  }
  for (const char16_t* op : {u"resize=8", u"resize=8,6,sharpest", u"crop=1,2,3", u"flip=1", u"free-rotate=5,spin",
                             u"resize=8,6,nearest,50"})
    EXPECT_EQ(Cli({u"apply", op, U(dir / "in.tvl"), U(dir / "x.tvl")}).status, kCliUsage) << std::u16string(op).size();
  const Outcome ops = Cli({u"ops"});
  for (const char* name : {"resize=W,H", "canvas-size=", "crop=", "rotate-left", "free-rotate-layer=", "resize-layer="})
    EXPECT_NE(ops.out.find(name), std::string::npos) << name;
}

}  // namespace
}  // namespace tavora

// tavora-cli apply's geometry and resampling operations.
#include <gtest/gtest.h>

#include "cli_run.h"

namespace tavora {
namespace {

using namespace testing_support;

// 4 x 3, each pixel distinct; a transparent layer above it.
void Picture(const TempDir& dir) {
  auto doc = CreateDocument(4, 3, 72, 0xFFFFFFFF, 0);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 4; ++x) doc->layers[0].pixels.At(x, y) = 0xFF000000u | uint32_t(y * 4 + x);
  doc->layers.emplace_back(4, 3, u"Layer 2");
  doc->layers[1].pixels.At(1, 1) = 0xFFFF0000;
  doc->active = 1;
  Written(*doc, dir, "in.tvl");
}

std::unique_ptr<Document> Apply(const TempDir& dir, std::initializer_list<std::u16string> ops) {
  std::vector<std::u16string> args{u"apply"};
  args.insert(args.end(), ops);
  args.insert(args.end(), {U(dir / "in.tvl"), U(dir / "out.tvl")});
  const CliResult r = Cli(args);
  EXPECT_EQ(r.status, kCliOk) << r.err;
  auto doc = ReadLayeredDocument(dir / "out.tvl");
  EXPECT_TRUE(doc);
  return doc ? std::move(doc) : CreateDocument(1, 1, 72, 0, 0);
}

TEST(CliGeometry, ImageOperationsChangeSizeAndPixelsAsTheCommandsDo) {
  TempDir dir;
  Picture(dir);
  auto doc = Apply(dir, {u"rotate-right"});
  EXPECT_EQ(doc->width, 3);
  EXPECT_EQ(doc->layers[0].pixels.At(2, 0), 0xFF000000u);  // (0,0) goes to (H-1-0, 0)
  EXPECT_EQ(Apply(dir, {u"flip", u"mirror"})->layers[0].pixels.At(0, 0), 0xFF00000Bu);
  doc = Apply(dir, {u"canvas-size=6,5,0,#FF0000"});  // top left anchor, red on the Background
  EXPECT_EQ(doc->width, 6);
  EXPECT_EQ(doc->layers[0].pixels.At(0, 0), 0xFF000000u);
  EXPECT_EQ(doc->layers[0].pixels.At(5, 4), 0xFFFF0000u);
  doc = Apply(dir, {u"crop=1,1,100,100"});       // clipped to the canvas
  EXPECT_EQ(std::tuple(doc->width, doc->height), std::tuple(3, 2));
  EXPECT_EQ(doc->layers[0].pixels.At(0, 0), 0xFF000005u);
  doc = Apply(dir, {u"free-rotate=90,expand"});
  EXPECT_EQ(std::tuple(doc->width, doc->height), std::tuple(3, 4));
  for (const char16_t* op : {u"resize=8,6", u"resize=8,6,nearest", u"resize=2,1,lanczos,40", u"resize=16,12,pixel-art",
                             u"resize=8,6,detail-recovery", u"resize=2,2,area-average"}) {
    const std::string text = Ascii(op);
    EXPECT_EQ(Apply(dir, {op})->width, std::stoi(text.substr(text.find('=') + 1))) << text;
  }
  EXPECT_EQ(Apply(dir, {u"resize=8,6,nearest"})->layers[0].pixels.At(1, 1), 0xFF000000u);
}

TEST(CliGeometry, LayerOperationsAndRefusals) {
  TempDir dir;
  Picture(dir);
  EXPECT_EQ(Apply(dir, {u"mirror-layer"})->layers[1].pixels.At(2, 1), 0xFFFF0000u);
  Apply(dir, {u"resize-layer=3,3,nearest"});
  // The Background refuses Resize Layer and stays as it was.
  const std::u16string bg = Plain(dir, "bg-in.tvl", 4, 3, 0xFF123456);
  EXPECT_EQ(Cli({u"apply", u"resize-layer=8,8", bg, U(dir / "bg.tvl")}).status, kCliOk);
  EXPECT_EQ(Bottom(dir / "bg.tvl").At(3, 2), 0xFF123456u);

  const std::string sizes = "Size must be between 1 and 30000 pixels per side",
                    limits = sizes + " (max 250 megapixels).", angles = "Please enter a value between -180 and 180.";
  const struct {
    const char16_t* op;
    std::string message;
  } refused[] = {
      {u"resize=30001,10", limits},   {u"resize=20000,20000", limits},        {u"canvas-size=0,5", limits},
      {u"resize-layer=40000,1", sizes + "."}, {u"free-rotate=181", angles}, {u"free-rotate-layer=nan", angles},
  };
  for (const auto& b : refused) {
    const CliResult r = Cli({u"apply", b.op, U(dir / "in.tvl"), U(dir / "x.tvl")});
    EXPECT_EQ(r.status, kCliUsage) << r.err;
    EXPECT_NE(r.err.find(b.message), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("usage:"), std::string::npos) << r.err;
  }
  for (const char16_t* op : {u"resize=8", u"resize=8,6,sharpest", u"crop=1,2,3", u"flip=1", u"free-rotate=5,spin",
                             u"resize=8,6,nearest,50"})
    EXPECT_EQ(Cli({u"apply", op, U(dir / "in.tvl"), U(dir / "x.tvl")}).status, kCliUsage) << Ascii(op);
  EXPECT_FALSE(std::filesystem::exists(dir / "x.tvl"));
}

}  // namespace
}  // namespace tavora

#include "auxiliary/print_layout.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "temp_dir.h"

namespace tavora {
namespace {

// A4 at 254 dpi: one millimetre is ten device pixels.
PageMetrics A4At254(Rect printable = {0, 0, 2100, 2970}) { return {2100, 2970, printable, 254, 254}; }

// Every field, to compare settings whole.
auto Fields(const PrintSettings& s) {
  return std::tuple(s.orientation, s.sizing, s.scale, s.centered, s.offsetX, s.offsetY, s.marginLeft, s.marginTop,
                    s.marginRight, s.marginBottom, s.copies, s.toFile);
}

PrintSettings Margins(int32_t mm) {
  PrintSettings s;
  s.marginLeft = s.marginTop = s.marginRight = s.marginBottom = mm;
  return s;
}

TEST(PrintLayout, SettingsAreClampedAndKept) {
  testing_support::TempDir dir;
  SettingsStore settings;
  settings.Open(dir.path());
  EXPECT_EQ(LoadPrintSettings(settings.Snapshot()).marginTop, 10);  // first use
  for (auto [key, value] : {std::pair{u"Orientation", u"7"}, {u"Scale", u"0"}, {u"Copies", u"500"},
                            {u"MarginLeft", u"-3"}, {u"OffsetY", u"99999"}, {u"Sizing", u"-1"}})
    settings.SetString(u"Print", key, value);
  PrintSettings clamped;
  clamped.orientation = PrintOrientation::Landscape;
  clamped.scale = 1;
  clamped.copies = kPrintMaxCopies;
  clamped.marginLeft = 0;
  clamped.offsetY = kPrintMaxOffset;
  EXPECT_EQ(Fields(LoadPrintSettings(settings.Snapshot())), Fields(clamped));

  const PrintSettings s{PrintOrientation::Landscape, PrintSizing::Scale, 250, false, 12, 7, 1, 2, 3, 33, 3, true};
  SavePrintSettings(settings, s);
  EXPECT_EQ(Fields(LoadPrintSettings(settings.Snapshot())), Fields(s));
}

TEST(PrintLayout, OrientationTurnsTheSheetOnce) {
  // Unequal unprintable edges: left 10, top 20, right 30, bottom 40.
  const PageMetrics portrait{1000, 2000, {10, 20, 970, 1960}, 300, 600};
  const PageMetrics landscape = OrientPage(portrait, PrintOrientation::Landscape);
  EXPECT_EQ(std::tuple(landscape.paperWidth, landscape.paperHeight, landscape.dpiX, landscape.dpiY),
            std::tuple(2000, 1000, 600, 300));
  // The left edge went to the bottom, the top edge to the left.
  EXPECT_EQ(landscape.printable, (Rect{20, 30, 1960, 990}));
  // A driver that turned the sheet already is left alone, either way round.
  EXPECT_EQ(OrientPage(landscape, PrintOrientation::Landscape).printable, landscape.printable);
  EXPECT_EQ(OrientPage(portrait, PrintOrientation::Portrait).paperWidth, 1000);
  EXPECT_EQ(OrientPage(landscape, PrintOrientation::Portrait).paperWidth, 1000);
  EXPECT_TRUE(ValidPage(DefaultPageMetrics()));
  EXPECT_FALSE(ValidPage({1000, 2000, {2000, 0, 3000, 10}, 300, 300}));  // printable area off the sheet
  EXPECT_FALSE(ValidPage({1000, 2000, {0, 0, 1000, 2000}, 0, 300}));
}

TEST(PrintLayout, Placement) {
  // Scaled with the default margins of 10 mm, centred or not.
  const PrintSettings scale{.sizing = PrintSizing::Scale}, scale200{.sizing = PrintSizing::Scale, .scale = 200};
  auto offset = [](int32_t x) {
    return PrintSettings{.sizing = PrintSizing::Scale, .centered = false, .offsetX = x, .offsetY = 7};
  };
  const PrintSettings tall{.marginLeft = 0, .marginTop = 150, .marginRight = 0, .marginBottom = 150};
  const PageMetrics landscape = OrientPage(A4At254(), PrintOrientation::Landscape);
  const struct {
    const char* name;
    int32_t w, h, dpi;
    PageMetrics page;
    PrintSettings settings;
    PlacementStatus status;
    Rect image;
  } cases[] = {
      // Inside margins of 100 pixels: an area of 1900 x 2770.
      {"fit, width bound", 400, 200, 72, A4At254(), Margins(10), PlacementStatus::Ok, {100, 1010, 2000, 1960}},
      {"fit, height bound", 100, 500, 72, A4At254(), Margins(10), PlacementStatus::Ok, {773, 100, 1327, 2870}},
      {"fit enlarges", 1, 1, 72, A4At254(), Margins(10), PlacementStatus::Ok, {100, 535, 2000, 2435}},
      {"fit landscape", 400, 200, 72, landscape, Margins(10), PlacementStatus::Ok, {100, 357, 2870, 1742}},
      {"scale at dpi", 300, 150, 150, A4At254(), scale, PlacementStatus::Ok, {796, 1358, 1304, 1612}},
      {"scale 200 %", 300, 150, 150, A4At254(), scale200, PlacementStatus::Ok, {542, 1231, 1558, 1739}},
      {"dpi 0 is 72", 72, 36, 0, A4At254(), scale, PlacementStatus::Ok, {923, 1421, 1177, 1548}},
      {"negative dpi is 72", 72, 36, -5, A4At254(), scale, PlacementStatus::Ok, {923, 1421, 1177, 1548}},
      {"offsets", 300, 150, 150, A4At254(), offset(5), PlacementStatus::Ok, {150, 170, 658, 424}},
      {"larger than the page", 3000, 4000, 254, A4At254(), scale, PlacementStatus::Clipped, {-450, -515, 2550, 3485}},
      {"pushed past the margin", 300, 150, 150, A4At254(), offset(150), PlacementStatus::Clipped,
       {1600, 170, 2108, 424}},
      {"pushed off the page", 300, 150, 150, A4At254(), offset(400), PlacementStatus::OffPage, {}},
      {"margins wider than the sheet", 10, 10, 72, A4At254(), Margins(120), PlacementStatus::NoRoom, {}},
      {"margins taller than the sheet", 10, 10, 72, A4At254(), tall, PlacementStatus::NoRoom, {}},
      {"printer's edge beyond the margin", 100, 100, 72, A4At254({300, 300, 1800, 2670}), Margins(0),
       PlacementStatus::Ok, {300, 735, 1800, 2235}},
      {"empty picture", 0, 10, 72, A4At254(), Margins(10), PlacementStatus::NoPicture, {}},
      {"unusable sheet", 10, 10, 72, PageMetrics{}, Margins(10), PlacementStatus::NoPicture, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const PrintPlacement p = PlacePicture(c.w, c.h, c.dpi, c.page, c.settings);
    EXPECT_EQ(p.status, c.status);
    if (!Printable(p)) continue;
    EXPECT_EQ(p.image, c.image);
    EXPECT_EQ(p.visible, Intersect(p.image, p.area));
    // What is drawn covers what is printed and never starts outside the
    // picture's own place.
    EXPECT_EQ(Intersect(p.target, p.visible), p.visible);
    EXPECT_EQ(Intersect(p.target, p.image), p.target);
    EXPECT_EQ(Intersect(p.source, {0, 0, c.w, c.h}), p.source);
    EXPECT_FALSE(p.source.Empty());
  }
}

TEST(PrintLayout, ClippedPictureSendsOnlyTheVisiblePart) {
  PrintSettings s{.sizing = PrintSizing::Scale};
  // One picture pixel is one device pixel; the picture is centred, 550
  // columns and 615 rows beyond the area on each side.
  const PrintPlacement p = PlacePicture(3000, 4000, 254, A4At254(), s);
  EXPECT_EQ(p.source, (Rect{550, 615, 2450, 3385}));
  EXPECT_EQ(p.target, p.visible);
  // At 50 % one picture pixel is half a device pixel: the source is twice
  // the visible size.
  s.scale = 50;
  const PrintPlacement half = PlacePicture(6000, 8000, 254, A4At254(), s);
  EXPECT_EQ(half.source.Width(), 2 * half.visible.Width());
  EXPECT_DOUBLE_EQ(half.widthMm, 300.0);
  EXPECT_NE(PrintSummary(half, 6000).find(u"Only the part inside the margins is printed."), std::u16string::npos);
}

TEST(PrintLayout, PixelSizeAndBands) {
  EXPECT_EQ(PrintPixelSize({0, 0, 2000, 1000}, 4'000'000), (PixelSize{2000, 1000}));  // the device's own
  EXPECT_EQ(PrintPixelSize({0, 0, 4000, 2000}, 2'000'000), (PixelSize{2000, 1000}));
  const PixelSize thin = PrintPixelSize({0, 0, 1'000'000, 1}, 1000);
  EXPECT_LE(int64_t{thin.width} * thin.height, 1000);
  EXPECT_GE(thin.height, 1);
  EXPECT_EQ(PrintPixelSize({}, 1000), (PixelSize{}));

  struct Case { int32_t rows; Rect target; int32_t maxRows; size_t bands; };
  for (const Case& c : {Case{1000, {0, 100, 10, 3100}, 256, 4}, Case{7, {0, -5, 1, 2}, 3, 3},
                        Case{10, {0, 0, 5, 4}, 100, 1}, Case{5, {0, 0, 5, 500}, 0, 5}}) {
    const std::vector<PrintBand> bands = PrintBands(c.rows, c.target, c.maxRows);
    ASSERT_EQ(bands.size(), c.bands);
    // In order and without a gap, from the first row and the target's top to the last and its bottom.
    int32_t row = 0, top = c.target.y0;
    for (const PrintBand& b : bands) {
      EXPECT_EQ(std::pair(b.rowStart, b.sheetTop), std::pair(row, top));
      EXPECT_GT(b.rowEnd, b.rowStart);
      EXPECT_LE(b.rowEnd - b.rowStart, std::max(c.maxRows, 1));
      row = b.rowEnd;
      top = b.sheetBottom;
    }
    EXPECT_EQ(std::pair(row, top), std::pair(c.rows, c.target.y1));
  }
  EXPECT_TRUE(PrintBands(0, {0, 0, 5, 5}, 10).empty());
}

TEST(PrintLayout, PreviewShowsSheetMarginsAndPicture) {
  const PageMetrics page{1000, 1500, {0, 0, 1000, 1500}, 254, 254};
  PrintSettings s{.sizing = PrintSizing::Scale};  // margins of 10 mm: 100 pixels of the sheet, 20 of the view
  Surface picture(2, 2);
  picture.Fill(0xFFC03020);
  // 2 pixels at 1 dpi are 508 device pixels: the sheet is 200 x 300 in the
  // view, the picture about 102 x 102 in its middle.
  const PrintPlacement p = PlacePicture(2, 2, 1, page, s);
  ASSERT_EQ(p.status, PlacementStatus::Ok);
  Surface view(228, 328);
  RenderPrintPreview(view, page, p, picture, 0x202020);
  EXPECT_EQ(view.At(2, 2), 0xFF202020u);      // background
  EXPECT_EQ(view.At(114, 164), 0xFFC03020u);  // picture
  EXPECT_EQ(view.At(20, 20), 0xFFFFFFFFu);    // sheet, outside the margins
  EXPECT_EQ(view.At(14 + 200 + 2, 14 + 300 + 2), 0xFF101010u);  // shadow
  int dots = 0;
  for (int32_t x = 14; x < 214; ++x) dots += view.At(x, 14 + 20) == 0xFF8CA0C8u;
  EXPECT_GT(dots, 60);  // the top margin, dotted
  // A picture off the page draws nothing of it.
  s.centered = false;
  s.offsetX = 500;
  RenderPrintPreview(view, page, PlacePicture(2, 2, 1, page, s), picture, 0x202020);
  EXPECT_EQ(std::count(view.Data(), view.Data() + view.PixelCount(), 0xFFC03020u), 0);
}

}  // namespace
}  // namespace tavora

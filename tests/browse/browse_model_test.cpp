#include "browse/browse_model.h"

#include <gtest/gtest.h>

#include <fstream>

#include "pixels.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::SamePixels;

TEST(BrowseModel, NaturalOrderFoldsCaseAndReadsNumbers) {
  const struct { std::u16string_view a, b; bool less; } cases[] = {
      {u"img2.jpg", u"img10.jpg", true},   {u"img10.jpg", u"img2.jpg", false},
      {u"Apple.png", u"banana.png", true}, {u"apple.png", u"Banana.png", true},
      {u"a.png", u"A.png", false},          {u"A.png", u"a.png", true},  // total order by code units
      {u"x007.png", u"x7.png", true},       {u"x7.png", u"x007.png", false},
      {u"x99", u"x100", true},              {u"photo", u"photo1", true},
      {u"\u00E9a", u"\u00E9b", true}, {u"same", u"same", false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(NaturalLess(c.a, c.b), c.less) << std::string(c.a.begin(), c.a.end()) << " vs "
                                             << std::string(c.b.begin(), c.b.end());
}

bool OpensImages(const std::filesystem::path& p) {
  const auto e = p.extension();
  return e == ".jpg" || e == ".png" || e == ".PNG";
}

BrowseEntry E(std::u16string name, uint64_t size, int64_t time, bool folder = false, bool hidden = false) {
  return {std::filesystem::path(name), name, size, time, folder, hidden};
}

std::vector<std::u16string> Names(const std::vector<BrowseEntry>& v) {
  std::vector<std::u16string> out;
  for (const auto& e : v) out.push_back(e.name);
  return out;
}

TEST(BrowseModel, GridListsFoldersThenAcceptedFilesInTheChosenOrder) {
  const std::vector<BrowseEntry> all = {
      E(u"b10.jpg", 300, 5), E(u"b2.jpg", 100, 9),   E(u"notes.txt", 900, 1), E(u"Zoo", 0, 1, true),
      E(u"a.PNG", 300, 5),   E(u".hid.png", 50, 3, false, true),              E(u"alpha", 0, 2, true),
      E(u".git", 0, 7, true, true),
  };
  const struct { BrowseSort sort; ShowHidden hidden; std::vector<std::u16string> names; } cases[] = {
      {BrowseSort::Name, ShowHidden::No, {u"alpha", u"Zoo", u"a.PNG", u"b2.jpg", u"b10.jpg"}},
      {BrowseSort::Name, ShowHidden::Yes, {u".git", u"alpha", u"Zoo", u".hid.png", u"a.PNG", u"b2.jpg", u"b10.jpg"}},
      // Newest first; a.PNG and b10.jpg tie on time and keep name order.
      {BrowseSort::Date, ShowHidden::No, {u"alpha", u"Zoo", u"b2.jpg", u"a.PNG", u"b10.jpg"}},
      // Largest first; the same tie.
      {BrowseSort::Size, ShowHidden::Yes, {u".git", u"alpha", u"Zoo", u"a.PNG", u"b10.jpg", u"b2.jpg", u".hid.png"}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Names(GridEntries(all, c.sort, c.hidden, &OpensImages)), c.names) << int(c.sort);
  EXPECT_EQ(BrowseSortFromInt(2), BrowseSort::Size);
  EXPECT_EQ(BrowseSortFromInt(7), BrowseSort::Name);
  EXPECT_EQ(BrowseSortFromInt(-1), BrowseSort::Name);
}

TEST(BrowseModel, ListFolderSeesFilesFoldersSizesAndDotFiles) {
  testing_support::TempDir dir;
  std::filesystem::create_directory(dir / "sub");
  std::ofstream(dir / "a.png") << "12345";
  std::ofstream(dir / ".h.png") << "1";
  auto listed = ListFolder(dir.path());
  ASSERT_TRUE(listed);
  auto v = GridEntries(*listed, BrowseSort::Name, ShowHidden::Yes, &OpensImages);
  ASSERT_EQ(Names(v), (std::vector<std::u16string>{u"sub", u".h.png", u"a.png"}));
  EXPECT_TRUE(v[0].folder && v[1].hidden && !v[2].hidden);
  EXPECT_EQ(v[2].size, 5u);
  EXPECT_FALSE(ListFolder(dir / "missing"));
}

TEST(BrowseModel, HistoryGoesBackAndForwardAndANewVisitDropsTheForwardPart) {
  FolderHistory h;
  EXPECT_FALSE(h.Back());
  EXPECT_FALSE(h.Current());
  h.Visit("/a");
  h.Visit("/b");
  h.Visit("/b");  // the same folder again is not a step
  h.Visit("/c");
  EXPECT_EQ(h.Back(), std::filesystem::path("/b"));
  EXPECT_EQ(h.Back(), std::filesystem::path("/a"));
  EXPECT_FALSE(h.Back());
  EXPECT_EQ(h.Forward(), std::filesystem::path("/b"));
  h.Visit("/d");  // drops /c
  EXPECT_FALSE(h.CanGoForward());
  EXPECT_EQ(h.Back(), std::filesystem::path("/b"));
  EXPECT_EQ(h.Forward(), std::filesystem::path("/d"));
  EXPECT_FALSE(h.Forward());
  FolderHistory longOne;
  for (int i = 0; i < 150; ++i) longOne.Visit(std::to_string(i));
  int steps = 0;
  while (longOne.Back()) ++steps;
  EXPECT_EQ(steps, static_cast<int>(FolderHistory::kLimit) - 1);
  EXPECT_EQ(longOne.Current(), std::filesystem::path("50"));
}

// 3 columns of 100 x 120 with 10 around: width 10 + 3 * 110 = 340.
GridLayout Grid(int32_t count) { return {100, 120, 10, 345, 270, count}; }

TEST(BrowseModel, GridPlacesAndHitsCells) {
  const GridLayout g = Grid(8);
  EXPECT_EQ(std::tuple(g.Columns(), g.Rows(), g.ContentHeight(), g.MaxScroll()),
            std::tuple(3, 3, 10 + 3 * 130, 400 - 270));
  EXPECT_EQ(g.Cell(4), (GridBox{120, 140, 100, 120}));
  const struct {
    int32_t x, y, index;
  } hits[] = {{10, 10, 0},  {109, 129, 0}, {110, 50, -1}, {5, 50, -1},   {125, 145, 4},
              {235, 275, -1}, {15, 275, 6},  {125, 275, 7}, {340, 20, -1}, {15, 400, -1}};
  for (const auto& h : hits) EXPECT_EQ(g.HitTest(h.x, h.y), h.index) << h.x << "," << h.y;
  EXPECT_EQ(Grid(0).Columns(), 3);
  EXPECT_EQ((GridLayout{100, 120, 10, 20, 270, 5}.Columns()), 1);
}

TEST(BrowseModel, GridVisibleRangeFollowsTheScroll) {
  const GridLayout g = Grid(20);  // 7 rows
  // Row r covers [10 + 130 r, 130 + 130 r): at scroll 0 the view [0, 270)
  // holds rows 0 and 1 wholly and row 2 (from 270) not at all.
  const struct { int32_t scroll, first, last; } cases[] = {{0, 0, 6},    {1, 0, 9},    {130, 3, 9},
                                                          {131, 3, 12}, {250, 3, 12}, {259, 3, 12},
                                                          {260, 6, 12}, {g.MaxScroll(), 15, 20}};
  for (const auto& c : cases) EXPECT_EQ(g.Visible(c.scroll), std::pair(c.first, c.last)) << c.scroll;
  EXPECT_EQ(Grid(0).Visible(0), std::pair(0, 0));
}

TEST(BrowseModel, GridKeysMoveTheSelection) {
  const GridLayout g = Grid(8);  // page: 2 rows = 6 cells
  const struct { int32_t from; GridKey key; int32_t to; } cases[] = {
      {-1, GridKey::Right, 0}, {-1, GridKey::End, 7}, {0, GridKey::Left, 0},    {2, GridKey::Right, 3},
      {7, GridKey::Right, 7},  {4, GridKey::Up, 1},   {1, GridKey::Up, 1},      {1, GridKey::Down, 4},
      {4, GridKey::Down, 7},   {5, GridKey::Down, 7}, {6, GridKey::Down, 6},    {7, GridKey::Down, 7},
      {3, GridKey::Home, 0},   {3, GridKey::End, 7},  {0, GridKey::PageDown, 6}, {4, GridKey::PageDown, 7},
      {7, GridKey::PageUp, 1}, {2, GridKey::PageUp, 2},
  };
  for (const auto& c : cases) EXPECT_EQ(g.Move(c.from, c.key), c.to) << c.from << " key " << int(c.key);
  EXPECT_EQ(Grid(0).Move(-1, GridKey::Down), -1);
}

TEST(BrowseModel, GridScrollsJustEnoughToShowACell) {
  const GridLayout g = Grid(20);
  // Cell 4 is already in view; row 2 ends at 390, plus the gap.
  for (auto [cell, from, to] : {std::tuple{0, 100, 0}, {4, 0, 0}, {7, 0, 130}, {19, 0, g.MaxScroll()}, {3, 500, 130}})
    EXPECT_EQ(g.ScrollToShow(cell, from), to) << cell << " from " << from;
  EXPECT_EQ(g.ClampScroll(-5), 0);
}

TEST(BrowseModel, FitWithinKeepsAspectAndNeverEnlarges) {
  const struct { int32_t w, h, bw, bh; PixelSize out; } cases[] = {
      {4000, 3000, 160, 160, {160, 120}}, {3000, 4000, 160, 160, {120, 160}}, {100, 50, 160, 160, {100, 50}},
      {160, 160, 160, 160, {160, 160}},   {10000, 1, 100, 100, {100, 1}},     {1, 10000, 100, 100, {1, 100}},
      {0, 10, 100, 100, {0, 0}},          {10, 10, 0, 100, {0, 0}},           {1000, 999, 100, 100, {100, 100}},
      {300, 200, 200, 100, {150, 100}},
  };
  for (const auto& c : cases) EXPECT_EQ(FitWithin(c.w, c.h, c.bw, c.bh), c.out) << c.w << "x" << c.h;
}

TEST(BrowseModel, ShrinkToFitAveragesTheCoveredPixels) {
  // Left half opaque red, right half fully transparent: the averaged colour
  // stays red (transparent pixels add no colour) at half coverage.
  Surface s(8, 4);
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 0; x < 8; ++x) s.At(x, y) = x < 4 ? 0xFFFF0000u : 0x0000FF00u;
  Surface two(2, 1), one(1, 1);
  two.At(0, 0) = 0xFFFF0000u;
  one.Fill(0x80FF0000u);
  EXPECT_TRUE(SamePixels(ShrinkToFit(s, 2, 2), two));
  EXPECT_TRUE(SamePixels(ShrinkToFit(s, 1, 1), one));
  EXPECT_TRUE(SamePixels(ShrinkToFit(s, 100, 100), s));  // never enlarged
  EXPECT_TRUE(ShrinkToFit(Surface(), 10, 10).Empty());
  // A grey ramp shrinks to the mean of each span.
  Surface ramp(6, 1), means(3, 1);
  for (int32_t x = 0; x < 6; ++x) ramp.At(x, 0) = 0xFF000000u | uint32_t(x * 30);
  for (int32_t x = 0; x < 3; ++x) means.At(x, 0) = 0xFF000000u | uint32_t(15 + x * 60);
  EXPECT_TRUE(SamePixels(ShrinkToFit(ramp, 3, 3), means));
}

TEST(BrowseModel, ThumbnailsLoadVisibleFirstThenBelowThenAbove) {
  using T = ThumbState;
  const struct { std::vector<ThumbState> states; int32_t first, last, next; } cases[] = {
      {{T::Waiting, T::Waiting, T::Waiting, T::Waiting}, 2, 3, 2},
      {{T::Waiting, T::Waiting, T::Done, T::Waiting}, 2, 3, 3},
      {{T::Waiting, T::Waiting, T::Loading, T::Done}, 2, 4, 1},
      {{T::Done, T::Loading, T::Done}, 0, 3, -1},
      {{T::Waiting}, 5, 9, 0},
      {{}, 0, 0, -1},
  };
  for (const auto& c : cases) EXPECT_EQ(NextThumbnail(c.states, c.first, c.last), c.next);
}

TEST(BrowseModel, CaptionsNameSizeTypeAndBytes) {
  for (auto [bytes, text] : {std::pair<uint64_t, std::u16string_view>{0, u"0 bytes"}, {1023, u"1,023 bytes"},
                             {1024, u"1.0 KB"}, {3355443, u"3.2 MB"}, {1048575, u"1.0 MB"}})
    EXPECT_EQ(FileSizeText(bytes), text) << bytes;
  for (auto [name, text] : {std::pair<const char*, std::u16string_view>{"a/B.JPG", u"JPEG image"},
                            {"x.tvl", u"Tavora layered image"}, {"x.raw", u"RAW file"}, {"noext", u"File"}})
    EXPECT_EQ(FileTypeText(name), text) << name;
  EXPECT_EQ(PreviewCaption(4000, 3000, "p.jpg", 2048), u"4000 \u00D7 3000 px   JPEG image   2.0 KB");
}

TEST(BrowseModel, StartFolderPrefersTheDefaultThenTheLastOne) {
  testing_support::TempDir dir;
  std::filesystem::create_directory(dir / "d");
  std::filesystem::create_directory(dir / "l");
  const auto d = (dir / "d").u16string(), l = (dir / "l").u16string(), gone = (dir / "gone").u16string();
  EXPECT_EQ(StartFolder(d, l, "/fb"), dir / "d");
  EXPECT_EQ(StartFolder(u"", l, "/fb"), dir / "l");
  EXPECT_EQ(StartFolder(gone, l, "/fb"), dir / "l");
  EXPECT_EQ(StartFolder(gone, gone, "/fb"), std::filesystem::path("/fb"));
}

}  // namespace
}  // namespace tavora

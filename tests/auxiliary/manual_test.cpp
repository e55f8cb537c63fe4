#include "auxiliary/manual.h"

#include <gtest/gtest.h>

#include "app/commands.h"
#include "base/unicode.h"
#include "file_bytes.h"
#include "processing/effect_dialogs.h"
#include "tools/tool_table.h"

namespace tavora {
namespace {

Manual RealManual(std::vector<ManualProblem>* problems = nullptr) {
  const auto text = testing_support::ReadBytes(std::filesystem::path(TAVORA_SOURCE_DIR) / "docs/manual/manual.txt");
  return ParseManual({reinterpret_cast<const char*>(text.data()), text.size()}, problems);
}

std::string Narrow(std::u16string_view s) { return Utf16ToUtf8(s); }

TEST(ManualFile, ParsesCleanlyAndEveryLinkReachesAPage) {
  std::vector<ManualProblem> problems;
  const Manual manual = RealManual(&problems);
  ASSERT_GT(manual.pages.size(), 30u);
  for (const ManualProblem& p : problems) ADD_FAILURE() << "manual.txt:" << p.line << ": " << p.message;
  for (const std::string& link : BrokenLinks(manual)) ADD_FAILURE() << "broken link " << link;
  EXPECT_EQ(manual.pages.front().id, "welcome");
  for (const ManualPage& page : manual.pages)
    EXPECT_FALSE(page.blocks.empty()) << page.id << " has no text";
}

// F1 finds a page for every tool and every dialog the program shows.
TEST(ManualFile, EveryToolAndDialogHasAPage) {
  const Manual manual = RealManual();
  for (int32_t id = 0; id < kToolCount; ++id)
    EXPECT_GE(manual.PageForTopic(u"tool:" + Utf8ToUtf16(std::to_string(id))), 0) << "tool " << id;
  std::vector<std::u16string> dialogs;
  for (const EffectDef& def : EffectDefs()) dialogs.emplace_back(def.title);
  for (std::u16string_view title :
       {u"Lens Flare", u"New Image", u"Open HDR Image", u"WebP Options", u"JPEG Quality", u"WebP Quality",
        u"Settings", u"Resize Image", u"Canvas Size", u"Free Rotate", u"Resize Layer", u"Color Depth",
        u"Free Rotate Layer (clockwise)", u"Feather Selection", u"Grow Selection", u"Shrink Selection",
        u"Fill Selection from Surroundings", u"Properties and Effects", u"Rename Layer", u"Text",
        u"Batch Conversion", u"Upscayl", u"Print"})
    dialogs.emplace_back(title);
  for (const std::u16string& title : dialogs)
    EXPECT_GE(manual.PageForTopic(u"dialog:" + title), 0) << Narrow(title);
  EXPECT_GE(manual.PageForTopic(u"window:main"), 0);
}

// The menus as the program builds them: every item and its shortcut is
// written somewhere in the manual.
TEST(ManualFile, EveryMenuItemAndShortcutIsDescribed) {
  const Manual manual = RealManual();
  std::u16string all;
  for (const ManualPage& p : manual.pages) all += PageText(p) + u"\n";
  auto check = [&](auto& self, std::span<const MenuNode> nodes) -> void {
    for (const MenuNode& n : nodes) {
      if (n.kind == MenuNode::Kind::Separator) continue;
      std::u16string label(n.text.substr(0, n.text.find(u'\t')));
      std::erase(label, u'&');
      if (label.ends_with(u"\u2026")) label.pop_back();
      EXPECT_NE(all.find(label), std::u16string::npos) << Narrow(label);
      if (const std::size_t tab = n.text.find(u'\t'); tab != n.text.npos) {
        EXPECT_NE(all.find(n.text.substr(tab + 1)), std::u16string::npos) << Narrow(n.text);
      }
      if (n.kind == MenuNode::Kind::Submenu) self(self, n.children);
    }
  };
  check(check, MenuBar());
}

constexpr std::string_view kSmall = R"(# a comment
= intro | Introduction
First line of a paragraph
that goes on. See [[keys]] and [[keys|the keys]].

* A bullet with **Ctrl+N**
  in it.
## A heading
: F1 | Opens the manual.
After the list.
== keys | Keys
@topic tool:7
Brush keys and brush sizes. Brush.
= later | Later Page
Mentions keys once.
)";

TEST(ManualParser, PagesBlocksLinksAndTopics) {
  std::vector<ManualProblem> problems;
  const Manual m = ParseManual(kSmall, &problems);
  EXPECT_TRUE(problems.empty());
  ASSERT_EQ(m.pages.size(), 3u);
  EXPECT_EQ(m.pages[1].id, "keys");
  EXPECT_EQ(std::pair(m.pages[1].level, m.pages[2].level), std::pair(1, 0));
  EXPECT_EQ(std::pair(m.PageForTopic(u"tool:7"), m.PageForTopic(u"tool:8")), std::pair(1, -1));
  const ManualPage& intro = m.pages[0];
  ASSERT_EQ(intro.blocks.size(), 5u);
  const auto& para = intro.blocks[0].spans;
  ASSERT_EQ(para.size(), 5u);  // lines joined into one paragraph
  EXPECT_EQ(para[0].text, u"First line of a paragraph that goes on. See ");
  EXPECT_EQ(para[1], (ManualSpan{u"Keys", "keys", false})) << "a link without words shows the title";
  EXPECT_EQ(para[3], (ManualSpan{u"the keys", "keys", false}));
  const ManualBlockKind kinds[] = {ManualBlockKind::Paragraph, ManualBlockKind::Bullet, ManualBlockKind::Heading,
                                   ManualBlockKind::Term, ManualBlockKind::Paragraph};
  // The last: a line not indented ends the list.
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(intro.blocks[i].kind, kinds[i]) << i;
  EXPECT_EQ(intro.blocks[1].spans[1], (ManualSpan{u"Ctrl+N", "", true}));
  EXPECT_EQ(intro.blocks[3].term[0].text, u"F1");
  EXPECT_EQ(intro.blocks[3].spans[0].text, u"Opens the manual.");
  EXPECT_EQ(intro.blocks[1].spans[2].text, u" in it.") << "an indented line continues the bullet";
  EXPECT_TRUE(BrokenLinks(m).empty());
}

TEST(ManualParser, ReportsMalformedLinesAndBrokenLinks) {
  const struct { std::string_view text; int32_t line; } cases[] = {
      {"text before any page\n= a | A\nx", 1}, {"= a | A\nx\n= a | Again", 3}, {"= a | A\nsee [[b\n", 2},
      {"= a | A\n**strong without end\n", 2},  {"= no title\n", 1},           {"= Bad Id | T\n", 1},
      {"= a | A\n: term without text\n", 2}};
  for (const auto& c : cases) {
    std::vector<ManualProblem> problems;
    (void)ParseManual(c.text, &problems);
    ASSERT_EQ(problems.size(), 1u) << c.text;
    EXPECT_EQ(problems[0].line, c.line) << c.text;
  }
  const Manual m = ParseManual("= a | A\nsee [[nowhere]] and [[a|here]]\n");
  EXPECT_EQ(BrokenLinks(m), std::vector<std::string>{"a -> nowhere"});
}

TEST(ManualSearch, FindsEveryWordCaseInsensitivelyTitlesFirst) {
  const Manual m = ParseManual(kSmall);
  const auto hits = SearchManual(m, u"KEYS");
  ASSERT_EQ(hits.size(), 3u);
  EXPECT_EQ(hits[0].page, 1) << "the title match comes first";
  const auto both = SearchManual(m, u"brush  keys");
  ASSERT_EQ(both.size(), 1u) << "every word must occur";
  EXPECT_EQ(both[0].page, 1);
  EXPECT_NE(both[0].snippet.find(u"Brush keys"), std::u16string::npos);
  // Quotes and stops around a word are dropped.
  for (auto [query, count] : {std::pair{u"zebra", 0u}, {u"   ", 0u}, {u"ctrl+n", 1u}, {u"\"manual.\"", 1u}})
    EXPECT_EQ(SearchManual(m, query).size(), count) << Narrow(query);
}

TEST(ManualSearch, FindsRealTopicsInTheShippedManual) {
  const Manual m = RealManual();
  const struct {
    std::u16string_view query;
    std::string_view page;
  } cases[] = {{u"gaussian", "effects"},      {u"Magic wand", "magic-wand"}, {u"clone", "clone-heal"},
               {u"blend modes", "blend-modes"}, {u"association", "file-types"}, {u"F11", "full-screen"}};
  for (const auto& c : cases) {
    const auto hits = SearchManual(m, c.query);
    ASSERT_FALSE(hits.empty()) << Narrow(c.query);
    bool near = false;  // among the first three
    for (std::size_t i = 0; i < std::min<std::size_t>(3, hits.size()); ++i)
      near |= m.pages[static_cast<std::size_t>(hits[i].page)].id == c.page;
    EXPECT_TRUE(near) << Narrow(c.query) << " first gave " << m.pages[static_cast<std::size_t>(hits[0].page)].id;
  }
}

// Every character 10 pixels wide makes the wrapping easy to follow.
ManualMetrics Fixed() {
  // Lines of 20, 26 and 30; margin 10, gap 5, indent 20.
  return {[](std::u16string_view s, ManualStyle) { return static_cast<int32_t>(s.size()) * 10; }, 20, 26, 30,
          10, 5, 20};
}

TEST(ManualLayout, WrapsAtWordsCutsLongWordsKeepsRunsInsideAndFindsLinks) {
  const Manual m = ParseManual("= a | Title\naaa bbb ccc [[a|link here]] dd\n: F1 | eee fff\n");
  const ManualMetrics metrics = Fixed();
  // 10 margin + 100 pixels of text + 10 margin: ten characters a line.
  const ManualLayout layout = LayoutManualPage(m.pages[0], 120, metrics);
  std::vector<std::u16string> lines;
  int32_t lastY = -1;
  for (const ManualRun& r : layout.runs) {
    EXPECT_GE(r.x, 10);
    EXPECT_LE(r.x + r.width, 110) << Narrow(r.text);
    EXPECT_EQ(r.width, static_cast<int32_t>(r.text.size()) * 10);
    if (r.y != lastY) {
      lines.emplace_back();
    } else {
      lines.back() += u'|';
    }
    lines.back() += r.text;
    lastY = r.y;
  }
  const std::vector<std::u16string> expected = {u"Title",   u"aaa bbb",   u"ccc|link",
                                                u"here|dd", u"F1|eee", u"fff"};
  EXPECT_EQ(lines, expected);
  const ManualRun& link = layout.runs[3];
  ASSERT_EQ(link.link, "a");
  EXPECT_EQ(LinkAt(layout, link.x + 1, link.y + 1), &link);
  EXPECT_EQ(LinkAt(layout, 12, layout.runs[1].y + 1), nullptr) << "plain text is no link";
  EXPECT_GE(layout.height, layout.runs.back().y + 20 + 10);

  // A word longer than the line is cut.
  const Manual cut = ParseManual("= a | T\nabcdefghijklmnopqrstuvwxy end\n");
  const ManualLayout pieces = LayoutManualPage(cut.pages[0], 120, metrics);
  ASSERT_GE(pieces.runs.size(), 4u);
  EXPECT_EQ(std::tuple(pieces.runs[1].text, pieces.runs[2].text, pieces.runs[3].text),
            std::tuple(u"abcdefghij", u"klmnopqrst", u"uvwxy end"));
}

TEST(ManualHistory, BackReturnsThroughVisitedPages) {
  ManualHistory h;
  EXPECT_FALSE(h.Back());
  for (int32_t page : {0, 4, 4, 2}) h.Visit(page);
  EXPECT_EQ(h.Back(), 4);
  EXPECT_EQ(h.Back(), 0);
  EXPECT_FALSE(h.CanGoBack());
  EXPECT_FALSE(h.Back());
  EXPECT_EQ(h.Current(), 0);
}

}  // namespace
}  // namespace tavora

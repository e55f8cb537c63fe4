#pragma once
// The user manual: a small text markup of pages, parsed into blocks of
// styled text with links between pages, searched by words, and laid out
// into lines for the viewer. Portable, so that every link, the search and
// the layout are tested without a window.
//
// The markup, one construct a line:
//   = page-id | Title        a page; "==" nests it under the page before
//   @topic name              F1 on this topic opens the page ("tool:7",
//                            "dialog:Gaussian Blur", "window:main")
//   ## Heading               a heading inside the page
//   * text                   a bullet
//   : term | text            a term (a key, a field) and what it does
//   text                     a paragraph; lines that follow join it, a
//                            blank line ends it
// Indented lines continue a bullet or a term; a line that is not indented
// starts a paragraph after them.
//   # text                   a comment, ignored
// Inside text: [[page-id]] or [[page-id|words]] link to a page, and
// **words** are shown strong (keys, menu items).
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavora {

enum class ManualStyle : uint8_t { Body, Strong, Link, Heading, Title };

struct ManualSpan {
  std::u16string text;
  std::string link;  // target page id, empty for plain text
  bool strong = false;
  bool operator==(const ManualSpan&) const = default;
};

enum class ManualBlockKind : uint8_t { Paragraph, Heading, Bullet, Term };

struct ManualBlock {
  ManualBlockKind kind = ManualBlockKind::Paragraph;
  std::vector<ManualSpan> term;  // Term blocks only
  std::vector<ManualSpan> spans;
};

struct ManualPage {
  std::string id;
  std::u16string title;
  int32_t level = 0;  // 0 top, 1 nested under the last top page
  std::vector<std::u16string> topics;
  std::vector<ManualBlock> blocks;
};

struct ManualProblem {
  int32_t line;  // 1-based
  std::string message;
};

class Manual {
 public:
  std::vector<ManualPage> pages;  // in the order of the contents

  // -1 when no page has that id.
  [[nodiscard]] int32_t IndexOf(std::string_view id) const;
  [[nodiscard]] const ManualPage* Find(std::string_view id) const;
  // The page that names the topic, -1 for none.
  [[nodiscard]] int32_t PageForTopic(std::u16string_view topic) const;
};

// Parses the markup (UTF-8). Malformed lines are reported and skipped, so
// a damaged manual still shows what it can.
[[nodiscard]] Manual ParseManual(std::string_view utf8, std::vector<ManualProblem>* problems = nullptr);

// "page-id -> target" for every link whose target page does not exist.
[[nodiscard]] std::vector<std::string> BrokenLinks(const Manual& manual);

// The words of a page as plain text: title, then every block.
[[nodiscard]] std::u16string PageText(const ManualPage& page);

struct ManualHit {
  int32_t page;
  int32_t score;
  std::u16string snippet;  // the text around the first match
};
// Pages holding every word of the query (case-insensitive, in the title or
// the text), best first: words in the title count most, then how often and
// whether at the start of a word they occur; ties keep the contents order.
[[nodiscard]] std::vector<ManualHit> SearchManual(const Manual& manual, std::u16string_view query);

// Laid-out text: one run is a piece of one line in one style.
struct ManualRun {
  int32_t x, y, width, height;
  ManualStyle style;
  std::u16string text;
  std::string link;
};
struct ManualLayout {
  std::vector<ManualRun> runs;
  int32_t height = 0;  // of the whole page, margins included
};
struct ManualMetrics {
  // Width of a text in a style, in pixels.
  std::function<int32_t(std::u16string_view, ManualStyle)> measure;
  int32_t bodyLine = 20, headingLine = 26, titleLine = 34;
  int32_t margin = 16, gap = 8, indent = 18;
};
// Wraps the page at words into `width` pixels.
[[nodiscard]] ManualLayout LayoutManualPage(const ManualPage& page, int32_t width, const ManualMetrics& metrics);
// The link under a point of the layout, if any.
[[nodiscard]] const ManualRun* LinkAt(const ManualLayout& layout, int32_t x, int32_t y);

// Pages visited, for Back.
class ManualHistory {
 public:
  void Visit(int32_t page);
  [[nodiscard]] bool CanGoBack() const { return pages_.size() > 1; }
  // The page to show after going back, or nothing.
  std::optional<int32_t> Back();
  [[nodiscard]] std::optional<int32_t> Current() const;

 private:
  std::vector<int32_t> pages_;
};

}  // namespace tavora

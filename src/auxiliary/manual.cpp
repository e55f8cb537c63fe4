#include "auxiliary/manual.h"

#include <algorithm>

#include "base/unicode.h"

namespace tavora {
namespace {

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
  return s;
}

bool ValidId(std::string_view id) {
  if (id.empty()) return false;
  return std::all_of(id.begin(), id.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
  });
}

void AddText(std::vector<ManualSpan>& spans, std::string_view text, bool strong, std::string_view link) {
  if (text.empty()) return;
  std::u16string wide = Utf8ToUtf16(text);
  if (!spans.empty() && spans.back().strong == strong && spans.back().link == link) {
    spans.back().text += wide;
    return;
  }
  spans.push_back({std::move(wide), std::string(link), strong});
}

struct Inline {
  std::vector<ManualSpan> spans;
  std::string problem;
};

// Links and strong text of one stretch of text.
Inline ParseInline(std::string_view s) {
  Inline out;
  bool strong = false;
  std::string plain;
  auto flush = [&] {
    AddText(out.spans, plain, strong, {});
    plain.clear();
  };
  for (std::size_t i = 0; i < s.size();) {
    if (s.compare(i, 2, "**") == 0) {
      flush();
      strong = !strong;
      i += 2;
      continue;
    }
    if (s.compare(i, 2, "[[") == 0) {
      const std::size_t end = s.find("]]", i + 2);
      if (end == s.npos) {
        out.problem = "a link is not closed with ]]";
        plain += s.substr(i);
        break;
      }
      flush();
      const std::string_view inside = s.substr(i + 2, end - i - 2);
      const std::size_t bar = inside.find('|');
      const std::string_view id = Trim(inside.substr(0, bar));
      std::string_view words = bar == inside.npos ? std::string_view{} : Trim(inside.substr(bar + 1));
      if (!ValidId(id)) out.problem = "a link names no page id";
      if (words.empty()) {
        // A link without words shows the title; the page may come later
        // in the file, so the title is filled in once all pages are read.
        out.spans.push_back({{}, std::string(id), strong});
      } else {
        out.spans.push_back({Utf8ToUtf16(words), std::string(id), strong});
      }
      i = end + 2;
      continue;
    }
    plain.push_back(s[i]);
    ++i;
  }
  flush();
  if (strong && out.problem.empty()) out.problem = "** is not closed";
  return out;
}

char16_t Fold(char16_t c) {
  if (c >= u'A' && c <= u'Z') return static_cast<char16_t>(c + 32);
  // Latin-1 capitals, but not the multiplication sign.
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return static_cast<char16_t>(c + 32);
  return c;
}

std::u16string Folded(std::u16string_view s) {
  std::u16string out(s);
  for (char16_t& c : out) c = Fold(c);
  return out;
}

bool IsWordChar(char16_t c) {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c >= 0xC0;
}

void AppendSpans(std::u16string& out, const std::vector<ManualSpan>& spans) {
  for (const ManualSpan& s : spans) out += s.text;
}

}  // namespace

int32_t Manual::IndexOf(std::string_view id) const {
  for (std::size_t i = 0; i < pages.size(); ++i)
    if (pages[i].id == id) return static_cast<int32_t>(i);
  return -1;
}

const ManualPage* Manual::Find(std::string_view id) const {
  const int32_t i = IndexOf(id);
  return i < 0 ? nullptr : &pages[static_cast<std::size_t>(i)];
}

int32_t Manual::PageForTopic(std::u16string_view topic) const {
  for (std::size_t i = 0; i < pages.size(); ++i)
    for (const std::u16string& t : pages[i].topics)
      if (t == topic) return static_cast<int32_t>(i);
  return -1;
}

Manual ParseManual(std::string_view utf8, std::vector<ManualProblem>* problems) {
  Manual manual;
  auto report = [&](int32_t line, std::string message) {
    if (problems) problems->push_back({line, std::move(message)});
  };
  if (utf8.substr(0, 3) == "\xEF\xBB\xBF") utf8.remove_prefix(3);
  ManualPage* page = nullptr;
  // The block being read: its lines are joined before the text is parsed,
  // so that strong text and links may run over a line break.
  struct Pending {
    ManualBlockKind kind;
    std::string term, text;
    int32_t line;
  };
  std::optional<Pending> pending;
  auto finish = [&] {
    if (!pending || !page) {
      pending.reset();
      return;
    }
    ManualBlock block;
    block.kind = pending->kind;
    Inline text = ParseInline(pending->text);
    if (!text.problem.empty()) report(pending->line, text.problem);
    block.spans = std::move(text.spans);
    if (block.kind == ManualBlockKind::Term) {
      Inline term = ParseInline(pending->term);
      if (!term.problem.empty()) report(pending->line, term.problem);
      block.term = std::move(term.spans);
    }
    page->blocks.push_back(std::move(block));
    pending.reset();
  };
  int32_t number = 0;
  while (!utf8.empty()) {
    const std::size_t newline = utf8.find('\n');
    const std::string_view raw = utf8.substr(0, newline);
    utf8 = newline == utf8.npos ? std::string_view{} : utf8.substr(newline + 1);
    ++number;
    const std::string_view line = Trim(raw);
    if (line.empty()) {
      finish();
      continue;
    }
    if (line.starts_with("# ") || line == "#") continue;
    if (line.front() == '=') {
      finish();
      const int32_t level = line.starts_with("==") ? 1 : 0;
      const std::string_view rest = Trim(line.substr(static_cast<std::size_t>(level) + 1));
      const std::size_t bar = rest.find('|');
      const std::string_view id = Trim(rest.substr(0, bar));
      const std::string_view title = bar == rest.npos ? std::string_view{} : Trim(rest.substr(bar + 1));
      page = nullptr;
      if (!ValidId(id) || title.empty()) {
        report(number, "a page needs \"= id | Title\" with an id of a-z, 0-9 and -");
        continue;
      }
      if (manual.IndexOf(id) >= 0) {
        report(number, "page id \"" + std::string(id) + "\" is used twice");
        continue;
      }
      if (level == 1 && manual.pages.empty()) report(number, "a nested page comes before any page");
      manual.pages.push_back({std::string(id), Utf8ToUtf16(title), level, {}, {}});
      page = &manual.pages.back();
      continue;
    }
    if (!page) {
      report(number, "text outside a page");
      continue;
    }
    if (line.starts_with("@topic ")) {
      finish();
      const std::string_view topic = Trim(line.substr(7));
      if (topic.empty()) report(number, "@topic names nothing");
      else page->topics.push_back(Utf8ToUtf16(topic));
      continue;
    }
    if (line.starts_with("## ")) {
      finish();
      pending = Pending{ManualBlockKind::Heading, {}, std::string(Trim(line.substr(3))), number};
      finish();  // a heading is one line
    } else if (line.starts_with("* ")) {
      finish();
      pending = Pending{ManualBlockKind::Bullet, {}, std::string(Trim(line.substr(2))), number};
    } else if (line.starts_with(": ")) {
      finish();
      const std::string_view rest = line.substr(2);
      const std::size_t bar = rest.find(" | ");
      if (bar == rest.npos) {
        report(number, "a term needs \": term | text\"");
        continue;
      }
      pending = Pending{ManualBlockKind::Term, std::string(Trim(rest.substr(0, bar))),
                        std::string(Trim(rest.substr(bar + 3))), number};
    } else if (pending && (pending->kind == ManualBlockKind::Paragraph || raw.front() == ' ' || raw.front() == '\t')) {
      // A paragraph goes on over the lines that follow; a bullet or a term
      // over the indented ones, so that a paragraph may follow a list.
      pending->text += ' ';
      pending->text += line;
    } else {
      finish();
      pending = Pending{ManualBlockKind::Paragraph, {}, std::string(line), number};
    }
  }
  finish();
  // Links without words show their target's title.
  for (ManualPage& p : manual.pages) {
    for (ManualBlock& b : p.blocks) {
      for (auto* spans : {&b.spans, &b.term}) {
        for (ManualSpan& s : *spans) {
          if (s.link.empty() || !s.text.empty()) continue;
          const ManualPage* target = manual.Find(s.link);
          s.text = target ? target->title : Utf8ToUtf16(s.link);
        }
      }
    }
  }
  return manual;
}

std::vector<std::string> BrokenLinks(const Manual& manual) {
  std::vector<std::string> broken;
  for (const ManualPage& p : manual.pages)
    for (const ManualBlock& b : p.blocks)
      for (const auto* spans : {&b.term, &b.spans})
        for (const ManualSpan& s : *spans)
          if (!s.link.empty() && manual.IndexOf(s.link) < 0) broken.push_back(p.id + " -> " + s.link);
  return broken;
}

std::u16string PageText(const ManualPage& page) {
  std::u16string text = page.title;
  for (const ManualBlock& b : page.blocks) {
    text += u'\n';
    if (!b.term.empty()) {
      AppendSpans(text, b.term);
      text += u' ';
    }
    AppendSpans(text, b.spans);
  }
  return text;
}

std::vector<ManualHit> SearchManual(const Manual& manual, std::u16string_view query) {
  // Words of the query, without the punctuation around them.
  std::vector<std::u16string> words;
  std::u16string word;
  auto endWord = [&] {
    while (!word.empty() && !IsWordChar(word.back()) && word.back() != u'+') word.pop_back();
    std::size_t start = 0;
    while (start < word.size() && !IsWordChar(word[start])) ++start;
    if (start < word.size()) words.push_back(Folded(word.substr(start)));
    word.clear();
  };
  for (char16_t c : query) {
    if (c == u' ' || c == u'\t' || c == u'\n' || c == u'\r') endWord();
    else word.push_back(c);
  }
  endWord();
  std::vector<ManualHit> hits;
  if (words.empty()) return hits;
  for (std::size_t i = 0; i < manual.pages.size(); ++i) {
    const ManualPage& page = manual.pages[i];
    const std::u16string text = PageText(page);
    const std::u16string folded = Folded(text);
    const std::u16string title = Folded(page.title);
    int32_t score = 0;
    std::size_t first = std::u16string::npos;
    bool all = true;
    for (const std::u16string& w : words) {
      int32_t found = 0, starts = 0;
      for (std::size_t at = folded.find(w); at != folded.npos; at = folded.find(w, at + 1)) {
        if (first == std::u16string::npos) first = at;
        ++found;
        if (at == 0 || !IsWordChar(folded[at - 1])) ++starts;
      }
      if (found == 0) {
        all = false;
        break;
      }
      const std::size_t inTitle = title.find(w);
      if (inTitle != title.npos) score += (inTitle == 0 || !IsWordChar(title[inTitle - 1])) ? 120 : 80;
      score += std::min(found, 20) * 2 + std::min(starts, 20) * 3;
    }
    if (!all) continue;
    // About a line of text around the first match, cut at spaces.
    std::size_t from = first > 40 ? text.rfind(u' ', first - 40) : 0;
    if (from == text.npos || first <= 40) from = 0;
    std::size_t to = std::min(text.size(), first + 80);
    if (to < text.size()) {
      const std::size_t space = text.find(u' ', to);
      to = space == text.npos ? text.size() : space;
    }
    std::u16string snippet = text.substr(from, to - from);
    std::replace(snippet.begin(), snippet.end(), u'\n', u' ');
    while (!snippet.empty() && snippet.front() == u' ') snippet.erase(snippet.begin());
    if (from > 0) snippet = u"\u2026" + snippet;
    if (to < text.size()) snippet += u"\u2026";
    hits.push_back({static_cast<int32_t>(i), score, std::move(snippet)});
  }
  std::stable_sort(hits.begin(), hits.end(), [](const ManualHit& a, const ManualHit& b) { return a.score > b.score; });
  return hits;
}

// ---------------------------------------------------------------- layout

namespace {

struct Piece {
  std::u16string text;
  ManualStyle style;
  std::string link;
  bool space;  // a blank between words
};

// A block's spans cut into words and the blanks between them.
std::vector<Piece> Pieces(const std::vector<ManualSpan>& spans, ManualStyle base) {
  std::vector<Piece> pieces;
  for (const ManualSpan& s : spans) {
    const ManualStyle style = !s.link.empty() ? ManualStyle::Link : s.strong ? ManualStyle::Strong : base;
    std::size_t i = 0;
    while (i < s.text.size()) {
      const bool space = s.text[i] == u' ';
      std::size_t j = i;
      while (j < s.text.size() && (s.text[j] == u' ') == space) ++j;
      pieces.push_back({space ? u" " : s.text.substr(i, j - i), style, s.link, space});
      i = j;
    }
  }
  return pieces;
}

class Flow {
 public:
  Flow(ManualLayout& layout, const ManualMetrics& m) : layout_(layout), m_(m) {}

  // Places the pieces from x = left, wrapping at right; returns the y
  // below the last line.
  int32_t Place(const std::vector<Piece>& pieces, int32_t left, int32_t right, int32_t y, int32_t lineHeight) {
    const int32_t top = y;
    int32_t x = left;
    bool lineEmpty = true;
    int32_t space = 0;  // the blank owed before the next word
    for (const Piece& p : pieces) {
      if (p.space) {
        if (!lineEmpty) space = m_.measure(u" ", p.style);
        continue;
      }
      std::u16string_view word = p.text;
      while (!word.empty()) {
        const int32_t width = m_.measure(word, p.style);
        const int32_t at = lineEmpty ? left : x + space;
        if (at + width <= right) {
          Add(x, at, y, word, p, lineHeight, lineEmpty);
          x = at + width;
        } else if (!lineEmpty) {
          y += lineHeight;  // the word starts the next line
          x = left;
          lineEmpty = true;
          space = 0;
          continue;
        } else {
          // Longer than a whole line: as many characters as fit, at least one.
          std::size_t fit = 1;
          while (fit < word.size() && m_.measure(word.substr(0, fit + 1), p.style) <= right - left) ++fit;
          Add(x, at, y, word.substr(0, fit), p, lineHeight, true);
          word.remove_prefix(fit);
          if (word.empty()) {
            x = at + m_.measure(p.text.substr(p.text.size() - fit), p.style);
            lineEmpty = false;
          } else {
            y += lineHeight;
            x = left;
          }
          space = 0;
          continue;
        }
        lineEmpty = false;
        space = 0;
        word = {};
      }
    }
    return lineEmpty && y > top ? y : y + lineHeight;
  }

 private:
  void Add(int32_t x, int32_t at, int32_t y, std::u16string_view text, const Piece& p, int32_t lineHeight,
           bool lineEmpty) {
    // Joins the run before it on the same line in the same style, blank included.
    if (!lineEmpty && !layout_.runs.empty()) {
      ManualRun& last = layout_.runs.back();
      if (last.y == y && last.style == p.style && last.link == p.link && last.x + last.width == x) {
        if (at > x) last.text += u' ';
        last.text += text;
        last.width = at + m_.measure(text, p.style) - last.x;
        return;
      }
    }
    layout_.runs.push_back({at, y, m_.measure(text, p.style), lineHeight, p.style, std::u16string(text), p.link});
  }

  ManualLayout& layout_;
  const ManualMetrics& m_;
};

}  // namespace

ManualLayout LayoutManualPage(const ManualPage& page, int32_t width, const ManualMetrics& m) {
  ManualLayout layout;
  Flow flow(layout, m);
  const int32_t left = m.margin;
  const int32_t right = std::max(left + 1, width - m.margin);
  int32_t y = m.margin;
  y = flow.Place(Pieces({{page.title, {}, false}}, ManualStyle::Title), left, right, y, m.titleLine) + m.gap;
  // Terms line up in one column: as wide as the widest term, within reason.
  int32_t termColumn = 0;
  for (const ManualBlock& b : page.blocks) {
    if (b.kind != ManualBlockKind::Term) continue;
    int32_t w = 0;
    for (const Piece& p : Pieces(b.term, ManualStyle::Strong)) w += m.measure(p.text, p.style);
    termColumn = std::max(termColumn, w);
  }
  termColumn = std::clamp(termColumn + m.indent, m.indent, std::max(m.indent, (right - left) * 2 / 5));
  ManualBlockKind previous = ManualBlockKind::Paragraph;
  for (std::size_t i = 0; i < page.blocks.size(); ++i) {
    const ManualBlock& b = page.blocks[i];
    // Lists stay together; everything else is set apart.
    const bool list = (b.kind == ManualBlockKind::Bullet || b.kind == ManualBlockKind::Term) && i > 0 &&
                      previous == b.kind;
    if (i > 0 && !list) y += m.gap;
    switch (b.kind) {
      case ManualBlockKind::Heading:
        y += m.gap;
        y = flow.Place(Pieces(b.spans, ManualStyle::Heading), left, right, y, m.headingLine);
        break;
      case ManualBlockKind::Paragraph:
        y = flow.Place(Pieces(b.spans, ManualStyle::Body), left, right, y, m.bodyLine);
        break;
      case ManualBlockKind::Bullet:
        layout.runs.push_back({left + m.indent / 4, y, m.measure(u"\u2022", ManualStyle::Body), m.bodyLine,
                               ManualStyle::Body, u"\u2022", {}});
        y = flow.Place(Pieces(b.spans, ManualStyle::Body), left + m.indent, right, y, m.bodyLine);
        break;
      case ManualBlockKind::Term: {
        const int32_t termBottom =
            flow.Place(Pieces(b.term, ManualStyle::Strong), left, left + termColumn - m.indent / 2, y, m.bodyLine);
        const int32_t textBottom = flow.Place(Pieces(b.spans, ManualStyle::Body), left + termColumn, right, y, m.bodyLine);
        y = std::max(termBottom, textBottom);
        break;
      }
    }
    previous = b.kind;
  }
  layout.height = y + m.margin;
  return layout;
}

const ManualRun* LinkAt(const ManualLayout& layout, int32_t x, int32_t y) {
  for (const ManualRun& r : layout.runs)
    if (!r.link.empty() && x >= r.x && x < r.x + r.width && y >= r.y && y < r.y + r.height) return &r;
  return nullptr;
}

void ManualHistory::Visit(int32_t page) {
  if (!pages_.empty() && pages_.back() == page) return;
  pages_.push_back(page);
  // A long session keeps only the recent past.
  if (pages_.size() > 200) pages_.erase(pages_.begin());
}

std::optional<int32_t> ManualHistory::Back() {
  if (pages_.size() < 2) return std::nullopt;
  pages_.pop_back();
  return pages_.back();
}

std::optional<int32_t> ManualHistory::Current() const {
  if (pages_.empty()) return std::nullopt;
  return pages_.back();
}

}  // namespace tavora

#include "base/ini_file.h"

#include "base/unicode.h"

namespace tavora {
namespace {

char16_t Fold(char16_t c) { return c >= u'A' && c <= u'Z' ? char16_t(c - u'A' + u'a') : c; }

bool IsSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == 0xFEFF; }

std::u16string_view Trim(std::u16string_view s) {
  while (!s.empty() && IsSpace(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsSpace(s.back())) s.remove_suffix(1);
  return s;
}

}  // namespace

bool SameName(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (Fold(a[i]) != Fold(b[i])) return false;
  return true;
}

IniFile IniFile::FromBytes(std::string_view bytes) {
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
      static_cast<unsigned char>(bytes[1]) == 0xFE) {
    std::u16string text;
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2)
      text.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                           static_cast<unsigned char>(bytes[i + 1]) << 8));
    return Parse(text);
  }
  if (bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
  return Parse(Utf8ToUtf16(bytes));
}

IniFile IniFile::Parse(std::u16string_view text) {
  // Byte-order marks are no part of the text, however the file was encoded
  // (and a file written twice over by careless tools may hold several).
  while (!text.empty() && text.front() == 0xFEFF) text.remove_prefix(1);
  IniFile ini;
  ini.sections_.push_back({});
  while (!text.empty()) {
    const std::size_t end = text.find(u'\n');
    std::u16string_view raw = text.substr(0, end);
    text = end == std::u16string_view::npos ? std::u16string_view{} : text.substr(end + 1);
    if (!raw.empty() && raw.back() == u'\r') raw.remove_suffix(1);
    const std::u16string_view line = Trim(raw);
    if (line.size() >= 2 && line.front() == u'[') {
      const std::size_t close = line.find(u']');
      if (close != std::u16string_view::npos) {
        ini.sections_.push_back({std::u16string(Trim(line.substr(1, close - 1))), {}});
        continue;
      }
    }
    const std::size_t eq = line.find(u'=');
    if (eq != std::u16string_view::npos && eq > 0 && line.front() != u';') {
      std::u16string_view value = Trim(line.substr(eq + 1));
      // A value written in quotes is read without them.
      if (value.size() >= 2 && value.front() == u'"' && value.back() == u'"')
        value = value.substr(1, value.size() - 2);
      ini.sections_.back().lines.push_back(
          {std::u16string(Trim(line.substr(0, eq))), std::u16string(value)});
    } else {
      ini.sections_.back().lines.push_back({{}, std::u16string(raw)});
    }
  }
  return ini;
}

std::string IniFile::ToBytes() const {
  std::u16string text;
  for (const Section& s : sections_) {
    if (&s != &sections_.front()) text += u"[" + s.name + u"]\r\n";
    for (const Line& l : s.lines) {
      // Quotes keep what reading would otherwise trim or take for quotes.
      const std::u16string_view v = l.value;
      const bool quote = !l.key.empty() && !v.empty() &&
                         (IsSpace(v.front()) || IsSpace(v.back()) || (v.size() >= 2 && v.front() == u'"' && v.back() == u'"'));
      text += (l.key.empty() ? l.value : l.key + u"=" + (quote ? u"\"" + l.value + u"\"" : l.value)) + u"\r\n";
    }
  }
  return Utf16ToUtf8(text);
}

IniFile::Section* IniFile::Find(std::u16string_view section) {
  for (std::size_t i = 1; i < sections_.size(); ++i)
    if (SameName(sections_[i].name, section)) return &sections_[i];
  return nullptr;
}

const IniFile::Section* IniFile::Find(std::u16string_view section) const {
  return const_cast<IniFile*>(this)->Find(section);
}

std::optional<std::u16string> IniFile::Get(std::u16string_view section,
                                           std::u16string_view key) const {
  if (const Section* s = Find(section))
    for (const Line& l : s->lines)
      if (!l.key.empty() && SameName(l.key, key)) return l.value;
  return std::nullopt;
}

void IniFile::Set(std::u16string_view section, std::u16string_view key,
                  std::u16string_view value) {
  if (sections_.empty()) sections_.push_back({});
  Section* s = Find(section);
  if (!s) {
    sections_.push_back({std::u16string(section), {}});
    s = &sections_.back();
  }
  for (Line& l : s->lines) {
    if (!l.key.empty() && SameName(l.key, key)) {
      l.value = value;
      return;
    }
  }
  // After the section's last value, before any trailing blank lines.
  std::size_t at = s->lines.size();
  while (at > 0 && s->lines[at - 1].key.empty() && Trim(s->lines[at - 1].value).empty()) --at;
  s->lines.insert(s->lines.begin() + static_cast<std::ptrdiff_t>(at),
                  {std::u16string(key), std::u16string(value)});
}

void IniFile::RemoveSection(std::u16string_view section) {
  for (std::size_t i = 1; i < sections_.size();) {
    if (SameName(sections_[i].name, section))
      sections_.erase(sections_.begin() + static_cast<std::ptrdiff_t>(i));
    else
      ++i;
  }
}

std::vector<std::u16string> IniFile::SectionNames() const {
  std::vector<std::u16string> names;
  for (std::size_t i = 1; i < sections_.size(); ++i) names.push_back(sections_[i].name);
  return names;
}

}  // namespace tavora

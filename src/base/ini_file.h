#pragma once
// The text of a settings file: [Section] headers and key=value lines, names
// compared without regard to ASCII case. Lines it does not understand
// (comments, blank lines) are kept where they stand when the file is
// written back.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavora {

class IniFile {
 public:
  // Accepts UTF-8 (with or without a byte-order mark) and UTF-16LE with its
  // mark, as older Windows-written files are.
  static IniFile FromBytes(std::string_view bytes);
  static IniFile Parse(std::u16string_view text);
  // UTF-8 without a mark, lines ending in CR LF.
  std::string ToBytes() const;

  std::optional<std::u16string> Get(std::u16string_view section, std::u16string_view key) const;
  void Set(std::u16string_view section, std::u16string_view key, std::u16string_view value);
  void RemoveSection(std::u16string_view section);
  std::vector<std::u16string> SectionNames() const;

 private:
  struct Line {
    std::u16string key;    // empty for a line kept as it stands
    std::u16string value;  // or the raw text of a kept line
  };
  struct Section {
    std::u16string name;  // empty for lines before the first header
    std::vector<Line> lines;
  };
  Section* Find(std::u16string_view section);
  const Section* Find(std::u16string_view section) const;

  std::vector<Section> sections_;
};

// ASCII letters folded; enough for the program's own section and key names.
bool SameName(std::u16string_view a, std::u16string_view b);

}  // namespace tavora

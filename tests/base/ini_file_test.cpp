#include "base/ini_file.h"

#include <gtest/gtest.h>

namespace tavora {
namespace {

TEST(IniText, ReadsSectionsAndKeysWithoutRegardToCase) {
  const IniFile ini = IniFile::FromBytes(
      "; kept comment\r\n[View]\r\nTheme = 1\r\nGrid=0\r\n\r\n[Tool Brush]\nsize=\"42\"\n"
      "hardness=  7 \n[view]\nRuler=1\n");
  EXPECT_EQ(ini.Get(u"VIEW", u"theme"), u"1");
  EXPECT_EQ(ini.Get(u"view", u"GRID"), u"0");
  EXPECT_EQ(ini.Get(u"Tool brush", u"Size"), u"42");  // quotes dropped
  EXPECT_EQ(ini.Get(u"Tool Brush", u"hardness"), u"7");
  // A repeated section name is one section: the first one answers.
  EXPECT_EQ(ini.Get(u"View", u"Ruler"), std::nullopt);
  EXPECT_EQ(ini.Get(u"Nope", u"Theme"), std::nullopt);
  EXPECT_EQ(ini.Get(u"View", u"Smooth"), std::nullopt);
  EXPECT_EQ(ini.SectionNames(), (std::vector<std::u16string>{u"View", u"Tool Brush", u"view"}));
}

TEST(IniText, SetReplacesInPlaceAndKeepsEverythingElse) {
  IniFile ini = IniFile::Parse(u"; top\r\n[View]\r\nTheme=1\r\n\r\n[Paths]\r\nLastDir=C:\\x\r\n");
  ini.Set(u"view", u"THEME", u"2");
  ini.Set(u"View", u"Grid", u"1");
  ini.Set(u"Recent", u"r0", u"C:\\a \u00E9.png");
  EXPECT_EQ(ini.ToBytes(),
            "; top\r\n[View]\r\nTheme=2\r\nGrid=1\r\n\r\n[Paths]\r\nLastDir=C:\\x\r\n"
            "[Recent]\r\nr0=C:\\a \xC3\xA9.png\r\n");
  // What is written reads back the same.
  const IniFile again = IniFile::FromBytes(ini.ToBytes());
  EXPECT_EQ(again.Get(u"recent", u"R0"), u"C:\\a \u00E9.png");
  EXPECT_EQ(again.ToBytes(), ini.ToBytes());
}

TEST(IniText, RemovingSectionsDropsEveryCopyOfTheName) {
  IniFile ini = IniFile::Parse(u"[A]\nk=1\n[b]\nk=2\n[a]\nk=3\n");
  ini.RemoveSection(u"a");
  EXPECT_EQ(ini.SectionNames(), (std::vector<std::u16string>{u"b"}));
  EXPECT_EQ(ini.Get(u"B", u"k"), u"2");
  IniFile empty = IniFile::Parse(u"");
  empty.RemoveSection(u"x");
  empty.Set(u"New", u"k", u"v");
  EXPECT_EQ(empty.ToBytes(), "[New]\r\nk=v\r\n");
}

TEST(IniText, Utf16FilesFromOlderVersionsAreRead) {
  std::string bytes = "\xFF\xFE";
  for (char16_t c : std::u16string(u"[View]\r\nTheme=0\r\nName=\u4E2D\r\n")) {
    bytes.push_back(static_cast<char>(c & 0xFF));
    bytes.push_back(static_cast<char>(c >> 8));
  }
  const IniFile ini = IniFile::FromBytes(bytes);
  EXPECT_EQ(ini.Get(u"View", u"Theme"), u"0");
  EXPECT_EQ(ini.Get(u"View", u"Name"), u"\u4E2D");
  EXPECT_EQ(IniFile::FromBytes("\xEF\xBB\xBF[S]\nk=v\n").Get(u"S", u"k"), u"v");
}

}  // namespace
}  // namespace tavora

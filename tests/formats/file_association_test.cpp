#include "formats/file_association.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace tavora {
namespace {

std::u16string Lower(std::u16string_view s) {
  std::u16string out(s);
  for (char16_t& c : out)
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
  return out;
}

// Keys and value names compare without regard to case, as in the registry.
class MemoryRegistry final : public RegistryAccess {
 public:
  bool SetString(std::u16string_view key, std::u16string_view name, std::u16string_view data) override {
    if (!failUnder.empty() && Lower(key).starts_with(Lower(failUnder))) return false;
    for (std::size_t at = key.find(u'\\'); at != key.npos; at = key.find(u'\\', at + 1))
      keys.insert(Lower(key.substr(0, at)));
    keys.insert(Lower(key));
    values[Lower(key)][Lower(name)] = std::u16string(data);
    return true;
  }
  std::optional<std::u16string> GetString(std::u16string_view key, std::u16string_view name) override {
    const auto k = values.find(Lower(key));
    if (k == values.end()) return std::nullopt;
    const auto v = k->second.find(Lower(name));
    if (v == k->second.end()) return std::nullopt;
    return v->second;
  }
  bool DeleteValue(std::u16string_view key, std::u16string_view name) override {
    const auto k = values.find(Lower(key));
    if (k != values.end()) k->second.erase(Lower(name));
    return true;
  }
  bool DeleteTree(std::u16string_view key) override {
    const std::u16string k = Lower(key), prefix = k + u"\\";
    std::erase_if(keys, [&](const std::u16string& x) { return x == k || x.starts_with(prefix); });
    std::erase_if(values, [&](const auto& x) { return x.first == k || x.first.starts_with(prefix); });
    return true;
  }
  bool DeleteKeyIfEmpty(std::u16string_view key) override {
    const std::u16string k = Lower(key), prefix = k + u"\\";
    const auto v = values.find(k);
    if (v != values.end() && !v->second.empty()) return true;
    for (const auto& x : keys)
      if (x.starts_with(prefix)) return true;
    keys.erase(k);
    values.erase(k);
    return true;
  }

  std::set<std::u16string> keys;
  std::map<std::u16string, std::map<std::u16string, std::u16string>> values;
  std::u16string failUnder;  // writes below this key fail
};

constexpr std::u16string_view kExe = u"C:\\Program Files\\Tavora\\tavora.exe";

TEST(FileAssociation, WritesTheProgIdsTheLayeredTypesAndOnlyOpenWithEntriesAndRemovesThemAll) {
  MemoryRegistry r;
  EXPECT_EQ(QueryAssociation(r, kExe), AssociationState::None);
  ASSERT_TRUE(RegisterAssociation(r, kExe));
  EXPECT_EQ(r.GetString(u"Tavora.Layered\\shell\\open\\command", u""),
            u"\"C:\\Program Files\\Tavora\\tavora.exe\" \"%1\"");
  EXPECT_EQ(r.GetString(u"Tavora.Layered\\DefaultIcon", u""), u"C:\\Program Files\\Tavora\\tavora.exe,0");
  EXPECT_EQ(r.GetString(u"Tavora.Image\\shell\\open\\command", u""), OpenCommand(kExe));
  for (std::u16string_view ext : {u".tvl", u".kzl"}) {
    EXPECT_EQ(r.GetString(ext, u""), u"Tavora.Layered");
    EXPECT_TRUE(r.GetString(std::u16string(ext) + u"\\OpenWithProgids", u"Tavora.Layered"));
  }
  ASSERT_EQ(OpenWithExtensions().size(), 11u);
  for (std::u16string_view ext : OpenWithExtensions()) {
    EXPECT_TRUE(r.GetString(std::u16string(ext) + u"\\OpenWithProgids", u"Tavora.Image"));
    EXPECT_FALSE(r.GetString(ext, u"")) << "the default program of an image type is never taken";
  }
  EXPECT_EQ(QueryAssociation(r, kExe), AssociationState::ThisProgram);
  EXPECT_EQ(QueryAssociation(r, u"c:\\program files\\TAVORA\\Tavora.exe"), AssociationState::ThisProgram);
  EXPECT_EQ(QueryAssociation(r, u"D:\\Tools\\tavora.exe"), AssociationState::OtherPath);
  // Removing leaves the registry as it was.
  ASSERT_TRUE(RemoveAssociation(r));
  EXPECT_TRUE(r.keys.empty());
  for (const auto& [key, values] : r.values) EXPECT_TRUE(values.empty()) << std::string(key.begin(), key.end());
  EXPECT_EQ(QueryAssociation(r, kExe), AssociationState::None);
  EXPECT_TRUE(RemoveAssociation(r)) << "removing twice is harmless";
}

TEST(FileAssociation, RemovingKeepsWhatOtherProgramsWrote) {
  MemoryRegistry r;
  ASSERT_TRUE(r.SetString(u".png", u"", u"pngfile"));
  ASSERT_TRUE(r.SetString(u".png\\OpenWithProgids", u"Viewer.Png", u""));
  ASSERT_TRUE(r.SetString(u".jpg\\ShellNew", u"NullFile", u""));
  ASSERT_TRUE(RegisterAssociation(r, kExe));
  // Another program takes ".kzl" over meanwhile.
  ASSERT_TRUE(r.SetString(u".kzl", u"", u"Other.Kzl"));
  ASSERT_TRUE(RemoveAssociation(r));
  EXPECT_EQ(r.GetString(u".png", u""), u"pngfile");
  EXPECT_TRUE(r.GetString(u".png\\OpenWithProgids", u"Viewer.Png"));
  EXPECT_FALSE(r.GetString(u".png\\OpenWithProgids", u"Tavora.Image"));
  EXPECT_TRUE(r.keys.contains(u".jpg\\shellnew"));
  EXPECT_FALSE(r.keys.contains(u".jpg\\openwithprogids"));
  EXPECT_EQ(r.GetString(u".kzl", u""), u"Other.Kzl");
  EXPECT_FALSE(r.keys.contains(u".tvl"));
  EXPECT_FALSE(r.keys.contains(u"tavora.layered"));
  EXPECT_FALSE(r.keys.contains(u"tavora.image\\shell"));
}

TEST(FileAssociation, AFailedWriteIsReported) {
  MemoryRegistry r;
  r.failUnder = u".webp";
  EXPECT_FALSE(RegisterAssociation(r, kExe));
  EXPECT_EQ(QueryAssociation(r, kExe), AssociationState::ThisProgram) << "the rest is written";
}

}  // namespace
}  // namespace tavora

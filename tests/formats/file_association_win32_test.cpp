#include <gtest/gtest.h>

#include "formats/file_association_win32.h"

namespace tavora {
namespace {

// A scratch key of the user's registry stands in for the user's classes.
class ScratchKey {
 public:
  ScratchKey() : path_(L"Software\\TavoraTest" + std::to_wstring(GetCurrentProcessId())) {
    RegDeleteTreeW(HKEY_CURRENT_USER, path_.c_str());
  }
  ~ScratchKey() {
    RegDeleteTreeW(HKEY_CURRENT_USER, path_.c_str());
    RegDeleteKeyW(HKEY_CURRENT_USER, path_.c_str());
  }
  std::wstring Classes() const { return path_ + L"\\Classes"; }

 private:
  std::wstring path_;
};

std::wstring Read(const std::wstring& key, const wchar_t* name) {
  wchar_t value[512] = {};
  DWORD bytes = sizeof value;
  if (RegGetValueW(HKEY_CURRENT_USER, key.c_str(), name, RRF_RT_REG_SZ, nullptr, value, &bytes) != ERROR_SUCCESS)
    return L"<missing>";
  return value;
}

bool KeyExists(const std::wstring& key) {
  HKEY h = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, KEY_READ, &h) != ERROR_SUCCESS) return false;
  RegCloseKey(h);
  return true;
}

TEST(FileAssociationRegistry, RegistersReadsBackAndRemovesOnlyItsOwnValues) {
  ScratchKey scratch;
  const std::wstring classes = scratch.Classes();
  UserRegistry registry(classes);
  const std::u16string exe = u"C:\\Apps\\Tavora\\tavora.exe";
  // Something of another program's that must survive.
  ASSERT_TRUE(registry.SetString(u".png", u"", u"pngfile"));
  ASSERT_TRUE(RegisterAssociation(registry, exe));

  // What is written is checked in memory; here, that it reaches the registry.
  EXPECT_EQ(Read(classes + L"\\.tvl", nullptr), L"Tavora.Layered");
  EXPECT_EQ(Read(classes + L"\\Tavora.Layered\\shell\\open\\command", nullptr),
            L"\"C:\\Apps\\Tavora\\tavora.exe\" \"%1\"");
  EXPECT_EQ(Read(classes + L"\\.png\\OpenWithProgids", L"Tavora.Image"), L"");
  EXPECT_EQ(Read(classes + L"\\.png", nullptr), L"pngfile");
  EXPECT_EQ(QueryAssociation(registry, exe), AssociationState::ThisProgram);

  ASSERT_TRUE(RemoveAssociation(registry));
  for (const wchar_t* key : {L"\\.tvl", L"\\.kzl", L"\\Tavora.Layered", L"\\Tavora.Image", L"\\.webp",
                             L"\\.png\\OpenWithProgids"})
    EXPECT_FALSE(KeyExists(classes + key)) << std::wstring(key);
  EXPECT_EQ(Read(classes + L"\\.png", nullptr), L"pngfile");
  EXPECT_EQ(QueryAssociation(registry, exe), AssociationState::None);
}

TEST(FileAssociationRegistry, ThisProgramIsAnExecutableThatExists) {
  const std::u16string path = ThisProgramPath();
  ASSERT_GT(path.size(), 4u);
  EXPECT_EQ(GetFileAttributesW(std::wstring(path.begin(), path.end()).c_str()) == INVALID_FILE_ATTRIBUTES, false);
}

}  // namespace
}  // namespace tavora

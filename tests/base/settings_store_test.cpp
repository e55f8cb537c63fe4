#include "base/settings_store.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "base/file_io.h"
#include "base/system_paths.h"
#include "file_bytes.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::FilesIn;
using testing_support::TempDir;
using testing_support::WriteBytes;

std::string ReadText(const std::filesystem::path& p) { return ReadWholeFile(p).value_or("<none>"); }

// A program folder that cannot be written to, and an application-data
// folder the test chooses.
std::filesystem::path gAppData;
std::optional<std::filesystem::path> TestAppData() { return gAppData; }
const SettingsStore::Places kReadOnlyProgramFolder{[](const std::filesystem::path&) { return false; },
                                                   &TestAppData};

TEST(SettingsStoreLocation, WritableProgramFolderHoldsTheFileFromTheFirstSet) {
  TempDir dir;
  SettingsStore store;
  store.Open(dir.path());
  EXPECT_EQ(store.Path(), dir / "tavora.ini");
  EXPECT_EQ(FilesIn(dir.path()), 0u);  // no probe left, nothing written yet
  store.SetInt(u"View", u"Grid", 1);
  EXPECT_EQ(ReadText(dir / "tavora.ini"), "[View]\r\nGrid=1\r\n");
  EXPECT_EQ(FilesIn(dir.path()), 1u);
}

TEST(SettingsStoreLocation, ReadOnlyProgramFolderCarriesItsFileToAppDataOnce) {
  TempDir dir;
  const auto program = dir / "program";
  std::filesystem::create_directories(program);
  WriteBytes(program / "tavora.ini", "[View]\r\nTheme=1\r\n");
  gAppData = dir / "roaming";
  std::filesystem::create_directories(gAppData);

  SettingsStore store;
  store.Open(program, kReadOnlyProgramFolder);
  EXPECT_EQ(store.Path(), dir / "roaming" / "Tavora" / "tavora.ini");
  EXPECT_EQ(store.GetInt(u"View", u"Theme", 2), 1);
  store.SetInt(u"View", u"Theme", 0);
  EXPECT_EQ(ReadText(program / "tavora.ini"), "[View]\r\nTheme=1\r\n");  // untouched

  SettingsStore later;  // a later run never copies again
  later.Open(program, kReadOnlyProgramFolder);
  EXPECT_EQ(later.GetInt(u"View", u"Theme", 2), 0);
}

TEST(SettingsStoreLocation, LegacyFileIsCarriedForwardWhenThereIsNoOther) {
  TempDir dir;
  WriteBytes(dir / "corvane.ini", "[Recent]\r\nr0=C:\\old.png\r\n");
  SettingsStore store;
  store.Open(dir.path());
  EXPECT_EQ(store.GetString(u"Recent", u"r0"), u"C:\\old.png");
  EXPECT_EQ(ReadText(dir / "tavora.ini"), "[Recent]\r\nr0=C:\\old.png\r\n");
  // An existing tavora.ini is never overwritten by the legacy file.
  WriteBytes(dir / "tavora.ini", "[Recent]\r\nr0=C:\\new.png\r\n");
  SettingsStore again;
  again.Open(dir.path());
  EXPECT_EQ(again.GetString(u"Recent", u"r0"), u"C:\\new.png");
}

TEST(SettingsStoreLocation, WithoutAppDataTheCandidateStaysAndWritesFailQuietly) {
  TempDir dir;
  const auto missing = dir / "gone";
  SettingsStore store;
  store.Open(missing, {[](const std::filesystem::path&) { return false; },
                       []() -> std::optional<std::filesystem::path> { return std::nullopt; }});
  EXPECT_EQ(store.Path(), missing / "tavora.ini");
  store.SetInt(u"View", u"Grid", 1);
  EXPECT_EQ(store.GetInt(u"View", u"Grid", 5), 5);
  EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST(SettingsStoreLocation, TheRealProbeAndAppDataFolder) {
  TempDir dir;
  EXPECT_TRUE(FolderIsWritable(dir.path()));
  EXPECT_EQ(FilesIn(dir.path()), 0u);
  EXPECT_FALSE(FolderIsWritable(dir / "no-such-folder"));
  WriteBytes(dir / "a-file", "x");
  EXPECT_FALSE(FolderIsWritable(dir / "a-file"));  // a file is no folder to write in
  const auto appData = RoamingAppDataFolder();
  EXPECT_TRUE(appData && !appData->empty());
  EXPECT_TRUE(std::filesystem::is_directory(ProgramFolder()));
}

// The folder comes from the test fixture as a Unix path.
std::optional<std::filesystem::path> FixtureFolder(const char* variable) {
  const char* value = std::getenv(variable);
  if (!value || !*value) return std::nullopt;
#ifdef _WIN32
  std::string path = std::string("Z:") + value;  // Wine shows the Unix root as Z:
  for (char& c : path)
    if (c == '/') c = '\\';
  return std::filesystem::path(path);
#else
  return std::filesystem::path(value);
#endif
}

TEST(SettingsStoreLocation, ARealReadOnlyProgramFolderSendsTheFileToAppData) {
  const auto program = FixtureFolder("TAVORA_READONLY_FOLDER");
  if (!program || !std::filesystem::exists(*program / "tavora.ini"))
    GTEST_SKIP() << "this system could not make a read-only folder";
  EXPECT_FALSE(FolderIsWritable(*program));
  TempDir dir;
  gAppData = dir / "roaming";
  SettingsStore store;
  store.Open(*program, {&FolderIsWritable, &TestAppData});  // the real probe
  EXPECT_EQ(store.Path(), dir / "roaming" / "Tavora" / "tavora.ini");
  EXPECT_EQ(store.GetInt(u"View", u"Theme", 2), 1);  // carried forward
  store.SetInt(u"View", u"Grid", 1);
  EXPECT_EQ(store.GetInt(u"View", u"Grid", 0), 1);
  EXPECT_EQ(FilesIn(*program), 1u);  // no probe file left behind either
}

TEST(SettingsStoreValues, TypedValuesReadAsTheSystemReadsThem) {
  TempDir dir;
  WriteBytes(dir / "tavora.ini",
             "[Tool Brush]\r\nsize= 42px\r\nneg=-17\r\nword=abc\r\nhuge=99999999999\r\n"
             "name=Caf\xC3\xA9 au lait\r\n");
  SettingsStore store;
  store.Open(dir.path());
  // "word" is present but has no digits.
  for (auto [key, want] : {std::pair<std::u16string_view, int32_t>{u"SIZE", 42}, {u"neg", -17}, {u"word", 0},
                           {u"huge", INT32_MAX}, {u"missing", 9}})
    EXPECT_EQ(store.GetInt(u"tool brush", key, 9), want) << std::string(key.begin(), key.end());
  EXPECT_EQ(store.GetString(u"Tool Brush", u"name"), u"Caf\u00E9 au lait");
  EXPECT_EQ(store.GetString(u"Tool Brush", u"name", u"", 4), u"Caf\u00E9");
  EXPECT_EQ(store.GetString(u"Tool Brush", u"none", u"dflt"), u"dflt");
  store.SetInt(u"Tool Brush", u"neg", INT32_MIN);
  EXPECT_EQ(store.GetInt(u"Tool Brush", u"neg", 0), INT32_MIN);
  store.SetString(u"Paths", u"LastDir", u"D:\\\u4E2D");
  EXPECT_EQ(store.GetString(u"paths", u"lastdir"), u"D:\\\u4E2D");

  // A snapshot answers as the store did when it was taken.
  const SettingsSnapshot snap = store.Snapshot();
  const SettingsStore::Write many[] = {{u"A", u"x", u"1"}, {u"Tool Brush", u"size", u"7"}, {u"A", u"y", u"2"}};
  store.SetMany(many);
  EXPECT_EQ(snap.GetInt(u"tool brush", u"SIZE", 1), 42);
  EXPECT_TRUE(snap.Has(u"Tool Brush", u"word"));
  EXPECT_FALSE(snap.Has(u"A", u"x"));
  EXPECT_EQ(snap.GetString(u"Tool Brush", u"name", u"", 4), u"Caf\u00E9");
  EXPECT_EQ(store.GetInt(u"Tool Brush", u"size", 1), 7);
  EXPECT_EQ(store.GetString(u"A", u"y"), u"2");
  SettingsStore closed;  // before Open() there is nothing to read
  EXPECT_FALSE(closed.Snapshot().Has(u"Tool Brush", u"size"));
}

TEST(SettingsStoreValues, AFailedWriteLeavesTheFileAsItWas) {
  TempDir dir;
  SettingsStore store;
  store.Open(dir.path());
  store.SetInt(u"View", u"Grid", 1);
  const std::string before = ReadText(dir / "tavora.ini");
  SafeFileWriter::FailWritesAfterForTesting(0);
  store.SetInt(u"View", u"Ruler", 1);
  SafeFileWriter::FailWritesAfterForTesting(-1);
  EXPECT_EQ(ReadText(dir / "tavora.ini"), before);
  EXPECT_EQ(FilesIn(dir.path()), 1u);
}

TEST(SettingsStoreReset, ResetAllAndClearSectionsKeepExactlyWhatTheyMust) {
  TempDir dir;
  WriteBytes(dir / "tavora.ini",
             "[Recent]\r\nr0=a.png\r\n[paths]\r\nLastDir=C:\\\r\n[Window]\r\nX=5\r\nMax=1\r\n"
             "[View]\r\nTheme=1\r\nGrid=1\r\nSmooth=0\r\nStartBrowse=0\r\nRuler=1\r\n"
             "[Browse]\r\nShowHidden=0\r\nSort=2\r\n[External]\r\nPhotoshop=C:\\ps.exe\r\n"
             "[Tool Brush]\r\nsize=99\r\n[Dlg Gaussian Blur]\r\nc0=7\r\n[History]\r\nPanel=0\r\n");
  SettingsStore store;
  store.Open(dir.path());
  store.ResetAll();
  const struct {
    std::u16string_view section, key, want;
  } table[] = {
      // Kept sections.
      {u"Recent", u"r0", u"a.png"}, {u"Paths", u"LastDir", u"C:\\"},
      {u"Window", u"X", u"5"}, {u"Window", u"Max", u"1"},
      // The Settings window's own values survive; their neighbours do not.
      {u"View", u"Grid", u"1"}, {u"View", u"StartBrowse", u"0"},
      {u"Browse", u"ShowHidden", u"0"}, {u"External", u"Photoshop", u"C:\\ps.exe"},
      {u"View", u"Ruler", u"1"},
      {u"Browse", u"Sort", u"-"}, {u"Tool Brush", u"size", u"-"},
      {u"Dlg Gaussian Blur", u"c0", u"-"},
      {u"External", u"Upscayl", u"-"},  // absent stays absent
      // First-launch view values.
      {u"View", u"Theme", u"2"}, {u"View", u"Smooth", u"1"}, {u"History", u"Panel", u"1"},
  };
  for (const auto& row : table)
    EXPECT_EQ(store.GetString(row.section, row.key, u"-"), row.want) << std::string(row.key.begin(), row.key.end());

  store.ClearSections({u"WINDOW"});
  EXPECT_EQ(store.GetInt(u"Window", u"X", 0), 5);
  EXPECT_EQ(store.GetString(u"Recent", u"r0", u"gone"), u"gone");
  store.ClearSections({});
  EXPECT_EQ(store.GetInt(u"Window", u"X", 0), 0);
}

}  // namespace
}  // namespace tavora

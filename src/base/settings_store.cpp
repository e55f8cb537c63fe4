#include "base/settings_store.h"

#include <algorithm>
#include <vector>

#include "base/ini_file.h"
#include "base/file_io.h"
#include "base/system_paths.h"

namespace tavora {
namespace {

IniFile Load(const std::filesystem::path& path) {
  const auto bytes = ReadWholeFile(path);
  return bytes ? IniFile::FromBytes(*bytes) : IniFile::Parse(u"");
}

// Failures are ignored: the program goes on with what it has in memory.
void Store(const std::filesystem::path& path, const IniFile& ini) {
  SafeFileWriter out(path);
  if (!out.Open()) return;
  const std::string bytes = ini.ToBytes();
  out.Write(bytes.data(), bytes.size());
  (void)out.Commit();
}

// Like GetPrivateProfileInt: leading blanks, a sign, then digits; anything
// else ends the number, and no digits at all read as 0.
int32_t ParseInt(std::u16string_view text) {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == u' ' || text[i] == u'\t')) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == u'-' || text[i] == u'+')) negative = text[i++] == u'-';
  int64_t value = 0;
  for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i)
    value = std::min<int64_t>(value * 10 + (text[i] - u'0'), int64_t{1} << 32);
  value = negative ? -value : value;
  return static_cast<int32_t>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
}

// The values the Settings window owns; Reset keeps them.
constexpr std::pair<std::u16string_view, std::u16string_view> kSettingsWindowValues[] = {
    {u"Browse", u"DefaultDir"}, {u"Browse", u"ShowHidden"}, {u"View", u"StartBrowse"},
    {u"View", u"Ruler"},        {u"View", u"Grid"},         {u"External", u"Upscayl"},
    {u"External", u"Photoshop"}};

}  // namespace

SettingsStore::Places SettingsStore::SystemPlaces() { return {&FolderIsWritable, &RoamingAppDataFolder}; }

void SettingsStore::Open(const std::filesystem::path& programFolder, const Places& places) {
  const std::filesystem::path candidate = programFolder / u"tavora.ini";
  path_ = candidate;
  if (!places.folderIsWritable(programFolder)) {
    // Without an application-data folder the candidate stays: reads still
    // work, writes fail quietly.
    if (const auto appData = places.appDataFolder()) {
      std::error_code ignored;
      std::filesystem::create_directories(*appData / u"Tavora", ignored);
      path_ = *appData / u"Tavora" / u"tavora.ini";
    }
  }
  ready_ = true;
  std::error_code ec;
  if (!std::filesystem::exists(path_, ec)) {
    if (!CopyFileIfAbsent(candidate, path_)) CopyFileIfAbsent(programFolder / u"corvane.ini", path_);
  }
}

SettingsSnapshot SettingsStore::Snapshot() const {
  return SettingsSnapshot(ready_ ? Load(path_) : IniFile::Parse(u""));
}

int32_t SettingsSnapshot::GetInt(std::u16string_view section, std::u16string_view key,
                                 int32_t fallback) const {
  const auto raw = ini_.Get(section, key);
  return raw ? ParseInt(*raw) : fallback;
}

std::u16string SettingsSnapshot::GetString(std::u16string_view section, std::u16string_view key,
                                           std::u16string_view fallback, std::size_t maxChars) const {
  const auto raw = ini_.Get(section, key);
  std::u16string value = raw ? *raw : std::u16string(fallback);
  if (value.size() > maxChars) value.resize(maxChars);
  return value;
}

bool SettingsSnapshot::Has(std::u16string_view section, std::u16string_view key) const {
  return ini_.Get(section, key).has_value();
}

int32_t SettingsStore::GetInt(std::u16string_view section, std::u16string_view key,
                              int32_t fallback) const {
  return Snapshot().GetInt(section, key, fallback);
}

void SettingsStore::SetInt(std::u16string_view section, std::u16string_view key, int32_t value) {
  const std::string digits = std::to_string(value);
  SetString(section, key, std::u16string(digits.begin(), digits.end()));
}

std::u16string SettingsStore::GetString(std::u16string_view section, std::u16string_view key,
                                        std::u16string_view fallback, std::size_t maxChars) const {
  return Snapshot().GetString(section, key, fallback, maxChars);
}

void SettingsStore::SetString(std::u16string_view section, std::u16string_view key,
                              std::u16string_view value) {
  if (!ready_) return;
  IniFile ini = Load(path_);
  ini.Set(section, key, value);
  Store(path_, ini);
}

void SettingsStore::SetStrings(std::u16string_view section,
                               std::span<const std::pair<std::u16string, std::u16string>> values) {
  if (!ready_) return;
  IniFile ini = Load(path_);
  for (const auto& [key, value] : values) ini.Set(section, key, value);
  Store(path_, ini);
}

void SettingsStore::SetMany(std::span<const Write> values) {
  if (!ready_ || values.empty()) return;
  IniFile ini = Load(path_);
  for (const Write& w : values) ini.Set(w.section, w.key, w.value);
  Store(path_, ini);
}

void SettingsStore::ClearSections(std::initializer_list<std::u16string_view> keep) {
  if (!ready_) return;
  IniFile ini = Load(path_);
  for (const std::u16string& name : ini.SectionNames()) {
    const bool kept = std::any_of(keep.begin(), keep.end(),
                                  [&](std::u16string_view k) { return SameName(k, name); });
    if (!kept) ini.RemoveSection(name);
  }
  Store(path_, ini);
}

void SettingsStore::ResetAll() {
  if (!ready_) return;
  IniFile ini = Load(path_);
  std::vector<std::optional<std::u16string>> saved;
  for (const auto& [section, key] : kSettingsWindowValues) saved.push_back(ini.Get(section, key));
  for (const std::u16string& name : ini.SectionNames()) {
    if (!SameName(name, u"Recent") && !SameName(name, u"Paths") && !SameName(name, u"Window"))
      ini.RemoveSection(name);
  }
  for (std::size_t i = 0; i < saved.size(); ++i)
    if (saved[i]) ini.Set(kSettingsWindowValues[i].first, kSettingsWindowValues[i].second, *saved[i]);
  // First-launch state of the view: smooth zoom, the History panel, dark.
  ini.Set(u"View", u"Smooth", u"1");
  ini.Set(u"History", u"Panel", u"1");
  ini.Set(u"View", u"Theme", u"2");
  Store(path_, ini);
}

SettingsStore& AppSettings() {
  static SettingsStore store;
  return store;
}

}  // namespace tavora

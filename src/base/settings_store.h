#pragma once
// Every remembered value of the editor, in one ini file: next to the
// executable when that folder is writable, else in the user's roaming
// application-data folder. No cache: every get reads the file and every set
// has replaced it on disk before it returns. Until Open() every get answers
// its default and every set does nothing.
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <span>
#include <utility>
#include <string>
#include <string_view>
#include <vector>

#include "base/ini_file.h"

namespace tavora {

// The settings file as read at one moment, answering as the store does:
// for reading many values with one read of the file.
class SettingsSnapshot {
 public:
  explicit SettingsSnapshot(IniFile ini) : ini_(std::move(ini)) {}
  int32_t GetInt(std::u16string_view section, std::u16string_view key, int32_t fallback) const;
  std::u16string GetString(std::u16string_view section, std::u16string_view key,
                           std::u16string_view fallback = {}, std::size_t maxChars = 32767) const;
  bool Has(std::u16string_view section, std::u16string_view key) const;

 private:
  IniFile ini_;
};

class SettingsStore {
 public:
  // Where the file may go; the system's answers unless a test gives others.
  struct Places {
    bool (*folderIsWritable)(const std::filesystem::path& folder);
    std::optional<std::filesystem::path> (*appDataFolder)();
  };
  static Places SystemPlaces();

  // Chooses the file, carries an older "tavora.ini" or the legacy
  // "corvane.ini" forward, and makes the store ready.
  void Open(const std::filesystem::path& programFolder, const Places& places = SystemPlaces());
  bool Ready() const { return ready_; }
  const std::filesystem::path& Path() const { return path_; }

  int32_t GetInt(std::u16string_view section, std::u16string_view key, int32_t fallback) const;
  void SetInt(std::u16string_view section, std::u16string_view key, int32_t value);
  // At most maxChars characters of the value.
  std::u16string GetString(std::u16string_view section, std::u16string_view key,
                           std::u16string_view fallback = {}, std::size_t maxChars = 32767) const;
  void SetString(std::u16string_view section, std::u16string_view key, std::u16string_view value);
  // Several keys of one section in a single write.
  void SetStrings(std::u16string_view section,
                  std::span<const std::pair<std::u16string, std::u16string>> values);
  // Keys of several sections in a single write.
  struct Write {
    std::u16string section, key, value;
  };
  void SetMany(std::span<const Write> values);
  // The whole file read once (empty before Open()).
  SettingsSnapshot Snapshot() const;
  // Deletes every section not named in `keep` (names compared without
  // regard to case); an empty list deletes every section.
  void ClearSections(std::initializer_list<std::u16string_view> keep);

  // The data side of "Reset all settings": keeps "Recent", "Paths",
  // "Window" and the seven values of the Settings window (those present),
  // deletes everything else, and stores the first-launch view values.
  void ResetAll();

 private:
  std::filesystem::path path_;
  bool ready_ = false;
};

// The program's one store.
SettingsStore& AppSettings();

}  // namespace tavora

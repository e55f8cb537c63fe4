#pragma once
// The file association for the current user: ".tvl" and ".kzl" open in
// Tavora ("Tavora.Layered"), and the common image types offer Tavora under
// "Open with" ("Tavora.Image") without changing what opens them by default.
// What is written and how it is taken away again is decided here over a
// small registry interface; the Windows registry behind it is in
// file_association_win32.cpp, and the tests use a registry in memory.
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tavora {

inline constexpr std::u16string_view kLayeredProgId = u"Tavora.Layered";
inline constexpr std::u16string_view kImageProgId = u"Tavora.Image";

// The extensions that open in Tavora, and those only offered.
std::span<const std::u16string_view> AssociatedExtensions();
std::span<const std::u16string_view> OpenWithExtensions();

// Keys are paths below the user's classes root ("Tavora.Layered\shell"),
// an empty value name is the key's default value.
class RegistryAccess {
 public:
  virtual ~RegistryAccess() = default;
  // Creates the key as needed.
  virtual bool SetString(std::u16string_view key, std::u16string_view name, std::u16string_view data) = 0;
  virtual std::optional<std::u16string> GetString(std::u16string_view key, std::u16string_view name) = 0;
  // Succeeds when the value or key is gone afterwards (also when it never was).
  virtual bool DeleteValue(std::u16string_view key, std::u16string_view name) = 0;
  virtual bool DeleteTree(std::u16string_view key) = 0;
  // Deletes the key only when it has no values and no subkeys.
  virtual bool DeleteKeyIfEmpty(std::u16string_view key) = 0;
};

struct RegistryWrite {
  std::u16string key, name, data;
  bool operator==(const RegistryWrite&) const = default;
};
// Every value the association sets, for the program at `exePath`.
std::vector<RegistryWrite> AssociationWrites(std::u16string_view exePath);

// "path" "%1"
std::u16string OpenCommand(std::u16string_view exePath);

enum class AssociationState { None, ThisProgram, OtherPath };
// Whether ".tvl" opens in Tavora, and from this program's path.
AssociationState QueryAssociation(RegistryAccess& registry, std::u16string_view exePath);

// Writes every value; false when one could not be written (what was
// written stays, and removing takes it away).
[[nodiscard]] bool RegisterAssociation(RegistryAccess& registry, std::u16string_view exePath);
// Takes away what registering wrote and nothing else: an extension that
// another program has taken over since keeps its default, and keys that
// hold anything else stay.
[[nodiscard]] bool RemoveAssociation(RegistryAccess& registry);

}  // namespace tavora

#pragma once
// The file association in the Windows registry, for the current user only
// (HKEY_CURRENT_USER\Software\Classes), so no administrator rights are
// needed. The shell is told after every change.
#include <windows.h>

#include <string>

#include "formats/file_association.h"

namespace tavora {

// A registry of string values below one key of HKEY_CURRENT_USER; the
// tests give a scratch key instead of the user's classes.
class UserRegistry final : public RegistryAccess {
 public:
  explicit UserRegistry(std::wstring root = L"Software\\Classes") : root_(std::move(root)) {}
  bool SetString(std::u16string_view key, std::u16string_view name, std::u16string_view data) override;
  std::optional<std::u16string> GetString(std::u16string_view key, std::u16string_view name) override;
  bool DeleteValue(std::u16string_view key, std::u16string_view name) override;
  bool DeleteTree(std::u16string_view key) override;
  bool DeleteKeyIfEmpty(std::u16string_view key) override;

 private:
  std::wstring Path(std::u16string_view key) const;
  std::wstring root_;
};

// The running program's own path, as the open command names it.
std::u16string ThisProgramPath();
AssociationState ThisProgramAssociation();
// Register or remove for the running program, then tell the shell.
[[nodiscard]] bool RegisterThisProgram();
[[nodiscard]] bool RemoveThisProgram();

}  // namespace tavora

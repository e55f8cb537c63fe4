#include "formats/file_association_win32.h"

#include <shlobj.h>

namespace tavora {
namespace {

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

}  // namespace

std::wstring UserRegistry::Path(std::u16string_view key) const {
  std::wstring path = root_;
  if (!key.empty()) {
    path += L'\\';
    path += Wide(key);
  }
  return path;
}

bool UserRegistry::SetString(std::u16string_view key, std::u16string_view name, std::u16string_view data) {
  HKEY handle = nullptr;
  if (RegCreateKeyExW(HKEY_CURRENT_USER, Path(key).c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &handle,
                      nullptr) != ERROR_SUCCESS)
    return false;
  const std::wstring value = Wide(data);
  const LSTATUS status =
      RegSetValueExW(handle, name.empty() ? nullptr : Wide(name).c_str(), 0, REG_SZ,
                     reinterpret_cast<const BYTE*>(value.c_str()), static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
  RegCloseKey(handle);
  return status == ERROR_SUCCESS;
}

std::optional<std::u16string> UserRegistry::GetString(std::u16string_view key, std::u16string_view name) {
  const std::wstring path = Path(key), valueName = Wide(name);
  const wchar_t* n = name.empty() ? nullptr : valueName.c_str();
  DWORD bytes = 0;
  if (RegGetValueW(HKEY_CURRENT_USER, path.c_str(), n, RRF_RT_REG_SZ, nullptr, nullptr, &bytes) != ERROR_SUCCESS)
    return std::nullopt;
  std::wstring value(bytes / sizeof(wchar_t) + 1, L'\0');
  bytes = static_cast<DWORD>(value.size() * sizeof(wchar_t));
  if (RegGetValueW(HKEY_CURRENT_USER, path.c_str(), n, RRF_RT_REG_SZ, nullptr, value.data(), &bytes) != ERROR_SUCCESS)
    return std::nullopt;
  value.resize(wcsnlen(value.c_str(), value.size()));
  return std::u16string(value.begin(), value.end());
}

bool UserRegistry::DeleteValue(std::u16string_view key, std::u16string_view name) {
  HKEY handle = nullptr;
  const LSTATUS open = RegOpenKeyExW(HKEY_CURRENT_USER, Path(key).c_str(), 0, KEY_SET_VALUE, &handle);
  if (open == ERROR_FILE_NOT_FOUND) return true;
  if (open != ERROR_SUCCESS) return false;
  const LSTATUS status = RegDeleteValueW(handle, name.empty() ? nullptr : Wide(name).c_str());
  RegCloseKey(handle);
  return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND;
}

bool UserRegistry::DeleteTree(std::u16string_view key) {
  const LSTATUS status = RegDeleteTreeW(HKEY_CURRENT_USER, Path(key).c_str());
  if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND) return false;
  // RegDeleteTree empties the key; the key itself goes too.
  const LSTATUS gone = RegDeleteKeyW(HKEY_CURRENT_USER, Path(key).c_str());
  return gone == ERROR_SUCCESS || gone == ERROR_FILE_NOT_FOUND;
}

bool UserRegistry::DeleteKeyIfEmpty(std::u16string_view key) {
  HKEY handle = nullptr;
  const LSTATUS open = RegOpenKeyExW(HKEY_CURRENT_USER, Path(key).c_str(), 0, KEY_QUERY_VALUE, &handle);
  if (open == ERROR_FILE_NOT_FOUND) return true;
  if (open != ERROR_SUCCESS) return false;
  DWORD subkeys = 0, values = 0;
  const LSTATUS info = RegQueryInfoKeyW(handle, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values,
                                        nullptr, nullptr, nullptr, nullptr);
  RegCloseKey(handle);
  if (info != ERROR_SUCCESS) return false;
  if (subkeys != 0 || values != 0) return true;  // someone else's too: it stays
  const LSTATUS status = RegDeleteKeyW(HKEY_CURRENT_USER, Path(key).c_str());
  return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND;
}

std::u16string ThisProgramPath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD n = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (n < path.size()) {
      path.resize(n);
      break;
    }
    path.resize(path.size() * 2);
  }
  return std::u16string(path.begin(), path.end());
}

AssociationState ThisProgramAssociation() {
  UserRegistry registry;
  return QueryAssociation(registry, ThisProgramPath());
}

bool RegisterThisProgram() {
  UserRegistry registry;
  const bool ok = RegisterAssociation(registry, ThisProgramPath());
  SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
  return ok;
}

bool RemoveThisProgram() {
  UserRegistry registry;
  const bool ok = RemoveAssociation(registry);
  SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
  return ok;
}

}  // namespace tavora

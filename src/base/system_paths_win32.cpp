#include <windows.h>
#include <shlobj.h>

#include <string>

#include "base/system_paths.h"

namespace tavora {

std::filesystem::path ProgramFolder() {
  std::wstring buffer(32768, L'\0');
  const DWORD n = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
  buffer.resize(n);
  return std::filesystem::path(buffer).parent_path();
}

std::optional<std::filesystem::path> RoamingAppDataFolder() {
  wchar_t folder[MAX_PATH] = {};
  if (FAILED(SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder)))
    return std::nullopt;
  return std::filesystem::path(folder);
}

uint32_t CurrentProcessId() { return GetCurrentProcessId(); }

bool FolderIsWritable(const std::filesystem::path& folder) {
  const auto probe = folder / (L".kztest" + std::to_wstring(CurrentProcessId()));
  // Not shared, temporary, and gone as soon as it is closed.
  HANDLE h = CreateFileW(probe.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                         FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  if (h == INVALID_HANDLE_VALUE) return false;
  CloseHandle(h);
  return true;
}

}  // namespace tavora

namespace tavora {

uint64_t PhysicalMemoryBytes() {
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof status;
  return GlobalMemoryStatusEx(&status) ? status.ullTotalPhys : 0;
}

}  // namespace tavora

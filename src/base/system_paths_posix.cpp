#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "base/system_paths.h"

namespace tavora {

std::filesystem::path ProgramFolder() {
  std::error_code ec;
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::filesystem::current_path() : exe.parent_path();
}

std::optional<std::filesystem::path> RoamingAppDataFolder() {
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg) return std::filesystem::path(xdg);
  if (const char* home = std::getenv("HOME"); home && *home)
    return std::filesystem::path(home) / ".config";
  return std::nullopt;
}

uint32_t CurrentProcessId() { return static_cast<uint32_t>(::getpid()); }

bool FolderIsWritable(const std::filesystem::path& folder) {
  const auto probe = folder / (".kztest" + std::to_string(CurrentProcessId()));
  const int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  ::close(fd);
  ::unlink(probe.c_str());
  return true;
}

}  // namespace tavora

namespace tavora {

uint64_t PhysicalMemoryBytes() {
  const long pages = ::sysconf(_SC_PHYS_PAGES);
  const long size = ::sysconf(_SC_PAGESIZE);
  return pages > 0 && size > 0 ? uint64_t(pages) * uint64_t(size) : 0;
}

}  // namespace tavora

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/file_io.h"

namespace tavora {

FileHandle OpenFileForReading(const std::filesystem::path& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return kNoFile;
  struct stat info {};
  if (::fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
    ::close(fd);
    return kNoFile;
  }
  return fd;
}

FileHandle CreateNewFile(const std::filesystem::path& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  return fd < 0 ? kNoFile : fd;
}

int64_t ReadFromFile(FileHandle file, void* buffer, std::size_t size) {
  for (;;) {
    const ssize_t n = ::read(static_cast<int>(file), buffer, size);
    if (n >= 0) return n;
    if (errno != EINTR) return -1;
  }
}

bool WriteToFile(FileHandle file, const void* data, std::size_t size) {
  const auto* p = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = ::write(static_cast<int>(file), p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

bool FlushFileToDisk(FileHandle file) { return ::fsync(static_cast<int>(file)) == 0; }

bool CloseFile(FileHandle file) { return ::close(static_cast<int>(file)) == 0; }

bool MoveFileReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
  return std::rename(from.c_str(), to.c_str()) == 0;
}

bool DeleteFileAt(const std::filesystem::path& path) { return ::unlink(path.c_str()) == 0; }

}  // namespace tavora

#include <windows.h>

#include "base/file_io.h"


namespace tavora {
namespace {

HANDLE AsHandle(FileHandle file) { return reinterpret_cast<HANDLE>(file); }

FileHandle FromHandle(HANDLE h) {
  return h == INVALID_HANDLE_VALUE ? kNoFile : reinterpret_cast<FileHandle>(h);
}

}  // namespace

FileHandle OpenFileForReading(const std::filesystem::path& path) {
  return FromHandle(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
}

FileHandle CreateNewFile(const std::filesystem::path& path) {
  return FromHandle(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                FILE_ATTRIBUTE_NORMAL, nullptr));
}

int64_t ReadFromFile(FileHandle file, void* buffer, std::size_t size) {
  DWORD got = 0;
  const DWORD want = size > 0x40000000 ? 0x40000000 : static_cast<DWORD>(size);
  if (!ReadFile(AsHandle(file), buffer, want, &got, nullptr)) return -1;
  return got;
}

bool WriteToFile(FileHandle file, const void* data, std::size_t size) {
  const auto* p = static_cast<const char*>(data);
  while (size > 0) {
    const DWORD chunk = size > 0x40000000 ? 0x40000000 : static_cast<DWORD>(size);
    DWORD written = 0;
    if (!WriteFile(AsHandle(file), p, chunk, &written, nullptr) || written == 0) return false;
    p += written;
    size -= written;
  }
  return true;
}

bool FlushFileToDisk(FileHandle file) { return FlushFileBuffers(AsHandle(file)) != 0; }

bool CloseFile(FileHandle file) { return CloseHandle(AsHandle(file)) != 0; }

bool MoveFileReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
  return MoveFileExW(from.c_str(), to.c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

bool DeleteFileAt(const std::filesystem::path& path) { return DeleteFileW(path.c_str()) != 0; }

}  // namespace tavora

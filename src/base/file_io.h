#pragma once
// Files by wide-character path, and a writer that never leaves the user's
// file half-written: it writes a temporary file ("~tvXXXXXXXX.tmp") beside
// the target, flushes it to the disk and only then puts it in the target's
// place.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "base/memory.h"

namespace tavora {

// The operating system's handle of an open file; -1 when none.
using FileHandle = intptr_t;
inline constexpr FileHandle kNoFile = -1;

FileHandle OpenFileForReading(const std::filesystem::path& path);
// Fails when the file exists already.
FileHandle CreateNewFile(const std::filesystem::path& path);
// Bytes read (0 at the end), or -1 on an error.
int64_t ReadFromFile(FileHandle file, void* buffer, std::size_t size);
bool WriteToFile(FileHandle file, const void* data, std::size_t size);
bool FlushFileToDisk(FileHandle file);
bool CloseFile(FileHandle file);
// Puts `from` in the place of `to`, replacing it in one step.
bool MoveFileReplacing(const std::filesystem::path& from, const std::filesystem::path& to);
bool DeleteFileAt(const std::filesystem::path& path);

// A whole (small) file, or nothing when it cannot be read.
std::optional<std::string> ReadWholeFile(const std::filesystem::path& path);
// Copies `from` to `to` only when `to` does not exist yet; a failed copy
// leaves no partial `to` behind.
bool CopyFileIfAbsent(const std::filesystem::path& from, const std::filesystem::path& to);

// Buffered reading; every read says whether it got all it asked for.
class FileReader {
 public:
  FileReader() = default;
  ~FileReader();
  FileReader(const FileReader&) = delete;
  FileReader& operator=(const FileReader&) = delete;

  [[nodiscard]] bool Open(const std::filesystem::path& path);
  [[nodiscard]] bool Read(void* out, std::size_t size);

 private:
  FileHandle file_ = kNoFile;
  std::unique_ptr<uint8_t[], FreeDeleter> buffer_;
  std::size_t start_ = 0, end_ = 0;
};

class SafeFileWriter {
 public:
  // Nothing touches the disk until Open().
  explicit SafeFileWriter(std::filesystem::path target);
  // Without a successful Commit() the temporary file is removed and the
  // target is left as it was.
  ~SafeFileWriter();
  SafeFileWriter(const SafeFileWriter&) = delete;
  SafeFileWriter& operator=(const SafeFileWriter&) = delete;

  [[nodiscard]] bool Open();
  // Failures are remembered; Commit() reports them.
  void Write(const void* data, std::size_t size);
  void WriteU32(uint32_t value);
  [[nodiscard]] bool Commit();

  // Fault injection for tests: every write fails once this many bytes have
  // been written in the process; -1 (the default) never.
  static void FailWritesAfterForTesting(int64_t bytes);

 private:
  bool Drain();

  std::filesystem::path target_, temp_;
  FileHandle file_ = kNoFile;
  std::unique_ptr<uint8_t[], FreeDeleter> buffer_;
  std::size_t used_ = 0;
  bool failed_ = false;
};

}  // namespace tavora

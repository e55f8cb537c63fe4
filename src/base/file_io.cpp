#include "base/file_io.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>

namespace tavora {
namespace {

constexpr std::size_t kBufferSize = 1 << 20;
std::atomic<int64_t> g_failAfter{-1};
std::atomic<int64_t> g_written{0};
std::atomic<uint32_t> g_tempCounter{0};

}  // namespace

std::optional<std::string> ReadWholeFile(const std::filesystem::path& path) {
  const FileHandle file = OpenFileForReading(path);
  if (file == kNoFile) return std::nullopt;
  std::string bytes;
  char chunk[16384];
  int64_t got;
  while ((got = ReadFromFile(file, chunk, sizeof chunk)) > 0) bytes.append(chunk, std::size_t(got));
  CloseFile(file);
  if (got < 0) return std::nullopt;
  return bytes;
}

bool CopyFileIfAbsent(const std::filesystem::path& from, const std::filesystem::path& to) {
  const auto bytes = ReadWholeFile(from);
  if (!bytes) return false;
  const FileHandle out = CreateNewFile(to);
  if (out == kNoFile) return false;
  bool ok = WriteToFile(out, bytes->data(), bytes->size());
  ok = CloseFile(out) && ok;
  if (!ok) DeleteFileAt(to);
  return ok;
}

FileReader::~FileReader() {
  if (file_ != kNoFile) CloseFile(file_);
}

bool FileReader::Open(const std::filesystem::path& path) {
  file_ = OpenFileForReading(path);
  if (file_ == kNoFile) return false;
  buffer_.reset(static_cast<uint8_t*>(CheckedAlloc(kBufferSize)));
  return true;
}

bool FileReader::Read(void* out, std::size_t size) {
  auto* dst = static_cast<uint8_t*>(out);
  while (size > 0) {
    if (start_ == end_) {
      if (file_ == kNoFile) return false;
      const int64_t got = ReadFromFile(file_, buffer_.get(), kBufferSize);
      if (got <= 0) return false;
      start_ = 0;
      end_ = static_cast<std::size_t>(got);
    }
    const std::size_t n = std::min(size, end_ - start_);
    std::memcpy(dst, buffer_.get() + start_, n);
    start_ += n;
    dst += n;
    size -= n;
  }
  return true;
}

SafeFileWriter::SafeFileWriter(std::filesystem::path target) : target_(std::move(target)) {}

SafeFileWriter::~SafeFileWriter() {
  if (file_ != kNoFile) CloseFile(file_);
  if (!temp_.empty()) DeleteFileAt(temp_);
}

bool SafeFileWriter::Open() {
  // Beside the target, so the final replace stays on one volume; a short
  // name of its own, so a target name near the length limit still saves.
  for (int attempt = 0; attempt < 100 && file_ == kNoFile; ++attempt) {
    const uint32_t n = g_tempCounter.fetch_add(1) * 2654435761u ^
                       static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this) >> 4);
    char name[24];
    std::snprintf(name, sizeof name, "~tv%08x.tmp", n);
    temp_ = target_.parent_path() / name;
    file_ = CreateNewFile(temp_);
  }
  if (file_ == kNoFile) {
    temp_.clear();
    return false;
  }
  buffer_.reset(static_cast<uint8_t*>(CheckedAlloc(kBufferSize)));
  return true;
}

bool SafeFileWriter::Drain() {
  if (used_ == 0 || failed_) {
    used_ = 0;
    return !failed_;
  }
  const int64_t limit = g_failAfter.load();
  if (limit >= 0 && g_written.fetch_add(static_cast<int64_t>(used_)) + int64_t(used_) > limit) {
    failed_ = true;
  } else if (!WriteToFile(file_, buffer_.get(), used_)) {
    failed_ = true;
  }
  used_ = 0;
  return !failed_;
}

void SafeFileWriter::Write(const void* data, std::size_t size) {
  if (failed_ || file_ == kNoFile) {
    failed_ = true;
    return;
  }
  const auto* src = static_cast<const uint8_t*>(data);
  while (size > 0) {
    if (used_ == kBufferSize && !Drain()) return;
    const std::size_t n = std::min(size, kBufferSize - used_);
    std::memcpy(buffer_.get() + used_, src, n);
    used_ += n;
    src += n;
    size -= n;
  }
}

void SafeFileWriter::WriteU32(uint32_t value) {
  const uint8_t bytes[4] = {uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16),
                            uint8_t(value >> 24)};
  if (used_ + 4 <= kBufferSize && !failed_ && file_ != kNoFile) {
    std::memcpy(buffer_.get() + used_, bytes, 4);
    used_ += 4;
    return;
  }
  Write(bytes, 4);
}

bool SafeFileWriter::Commit() {
  if (file_ == kNoFile) return false;
  bool ok = Drain() && FlushFileToDisk(file_);
  ok = CloseFile(file_) && ok;
  file_ = kNoFile;
  if (!ok || !MoveFileReplacing(temp_, target_)) return false;
  temp_.clear();
  return true;
}

void SafeFileWriter::FailWritesAfterForTesting(int64_t bytes) {
  g_written = 0;
  g_failAfter = bytes;
}

}  // namespace tavora

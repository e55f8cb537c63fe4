#pragma once
// Where a reader takes its bytes from: a file through a buffer, or memory
// (tests and the fuzzers). Every read says whether it got all it asked for.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <span>

#include "base/file_io.h"

namespace tavora {

class ByteInput {
 public:
  virtual ~ByteInput() = default;
  [[nodiscard]] virtual bool Read(void* out, std::size_t size) = 0;
};

class MemoryInput final : public ByteInput {
 public:
  explicit MemoryInput(std::span<const uint8_t> bytes) : bytes_(bytes) {}
  bool Read(void* out, std::size_t size) override {
    if (size > bytes_.size() - at_) return false;
    std::memcpy(out, bytes_.data() + at_, size);
    at_ += size;
    return true;
  }

 private:
  std::span<const uint8_t> bytes_;
  std::size_t at_ = 0;
};

class FileInput final : public ByteInput {
 public:
  [[nodiscard]] bool Open(const std::filesystem::path& path) { return reader_.Open(path); }
  bool Read(void* out, std::size_t size) override { return reader_.Read(out, size); }

 private:
  FileReader reader_;
};

}  // namespace tavora

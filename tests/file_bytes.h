#pragma once
// Files as bytes in tests: reading, writing, counting, and building
// little-endian records word by word.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

namespace tavora::testing_support {

using Bytes = std::vector<uint8_t>;

inline Bytes ReadBytes(const std::filesystem::path& p) {
  std::ifstream f(p, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(f), {});
}

inline void WriteBytes(const std::filesystem::path& p, std::string_view bytes) {
  std::ofstream(p, std::ios::binary | std::ios::trunc)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}
inline void WriteBytes(const std::filesystem::path& p, const Bytes& b) {
  WriteBytes(p, std::string_view(reinterpret_cast<const char*>(b.data()), b.size()));
}

inline std::size_t FilesIn(const std::filesystem::path& folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

struct LittleEndian {
  Bytes b;
  LittleEndian& Raw(std::string_view s) {
    b.insert(b.end(), s.begin(), s.end());
    return *this;
  }
  LittleEndian& U16(uint32_t v) {
    b.push_back(static_cast<uint8_t>(v));
    b.push_back(static_cast<uint8_t>(v >> 8));
    return *this;
  }
  LittleEndian& U32(uint32_t v) { return U16(v & 0xFFFF).U16(v >> 16); }
  LittleEndian& Append(const Bytes& more) {
    b.insert(b.end(), more.begin(), more.end());
    return *this;
  }
};

}  // namespace tavora::testing_support

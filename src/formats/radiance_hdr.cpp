#include "formats/radiance_hdr.h"

#include <cmath>
#include <cstring>
#include <cstdio>
#include <string>
#include <vector>

#include "document/size_limits.h"

namespace tavora {
namespace {

constexpr std::size_t kMaxLine = 255;

// One line of at most 255 bytes, the line feed kept; a longer line comes
// back in pieces. False at the end of the file before any byte.
bool ReadLine(ByteInput& in, std::string& line) {
  line.clear();
  char c = 0;
  while (line.size() < kMaxLine) {
    if (!in.Read(&c, 1)) return !line.empty();
    line.push_back(c);
    if (c == '\n') break;
  }
  return true;
}

// One scanline's four bytes per pixel (R, G, B, E), flat or coded per
// component with runs and literals.
bool ReadScanline(ByteInput& in, int32_t width, std::vector<uint8_t>& rgbe) {
  uint8_t head[4];
  if (!in.Read(head, 4)) return false;
  const bool coded = width >= 8 && width <= 32767 && head[0] == 2 && head[1] == 2 && !(head[2] & 0x80);
  if (!coded) {
    std::memcpy(rgbe.data(), head, 4);
    return width == 1 || in.Read(rgbe.data() + 4, std::size_t(width - 1) * 4);
  }
  if ((head[2] << 8 | head[3]) != width) return false;
  for (int component = 0; component < 4; ++component) {
    int32_t x = 0;
    while (x < width) {
      uint8_t code;
      if (!in.Read(&code, 1) || code == 0) return false;
      if (code > 128) {
        const int32_t run = code - 128;
        uint8_t value;
        if (x + run > width || !in.Read(&value, 1)) return false;
        for (int32_t i = 0; i < run; ++i) rgbe[std::size_t(x++) * 4 + component] = value;
      } else {
        if (x + code > width) return false;
        uint8_t bytes[128];
        if (!in.Read(bytes, code)) return false;
        for (int32_t i = 0; i < code; ++i) rgbe[std::size_t(x++) * 4 + component] = bytes[i];
      }
    }
  }
  return true;
}

}  // namespace

uint8_t HdrToByte(float value) {
  const float m = std::pow(1.0f - std::exp(-value), 0.45454543828964233f) * 255.0f;
  if (!(m >= 0)) return 0;
  if (m > 255) return 255;
  return static_cast<uint8_t>(m + 0.5);
}

std::optional<Surface> DecodeRadianceHdr(ByteInput& in, float exposure) {
  std::string line;
  if (!ReadLine(in, line) || line.size() < 2 || line[0] != '#' || line[1] != '?') return std::nullopt;
  for (;;) {
    if (!ReadLine(in, line)) return std::nullopt;
    if (line[0] == '\n' || line[0] == '\r') break;
  }
  if (!ReadLine(in, line)) return std::nullopt;
  char ySign = 0, xSign = 0;
  int width = 0, height = 0;
  if (std::sscanf(line.c_str(), "%cY %d %cX %d", &ySign, &height, &xSign, &width) != 4) return std::nullopt;
  if (width < 1 || width > 30000 || height < 1 || height > 30000 ||
      double(width) * double(height) > 250'000'000.0)
    return std::nullopt;
  const float scale = std::exp2(exposure);
  // A byte depends only on its mantissa and the pixel's exponent: each
  // exponent's 256 results are worked out the first time it is met, with
  // exactly the arithmetic of a pixel, so the curve runs once per pair.
  std::vector<uint8_t> curve(256 * 256);
  bool ready[256] = {};
  Surface out(width, height);
  std::vector<uint8_t> rgbe(std::size_t(width) * 4);
  const bool bottomUp = ySign == '+', mirrored = xSign == '-';
  for (int32_t r = 0; r < height; ++r) {
    if (!ReadScanline(in, width, rgbe)) return std::nullopt;
    uint32_t* row = out.Row(bottomUp ? height - 1 - r : r);
    for (int32_t x = 0; x < width; ++x) {
      const uint8_t* p = &rgbe[std::size_t(x) * 4];
      uint32_t pixel = 0xFF000000u;
      if (p[3] != 0) {
        uint8_t* bytes = &curve[std::size_t(p[3]) * 256];
        if (!ready[p[3]]) {
          const float factor = std::ldexp(1.0f, int(p[3]) - 136) * scale;
          for (int m = 0; m < 256; ++m) bytes[m] = HdrToByte(float(m) * factor);
          ready[p[3]] = true;
        }
        pixel |= uint32_t(bytes[p[0]]) << 16 | uint32_t(bytes[p[1]]) << 8 | bytes[p[2]];
      }
      row[mirrored ? width - 1 - x : x] = pixel;
    }
  }
  return out;
}

std::unique_ptr<Document> ReadRadianceHdr(const std::filesystem::path& path, float exposure) {
  FileInput in;
  if (!in.Open(path)) return nullptr;
  auto pixels = DecodeRadianceHdr(in, exposure);
  if (!pixels) return nullptr;
  auto doc = DocumentFromPicture(std::move(*pixels), 72);
  doc->modified = true;
  return doc;
}

}  // namespace tavora

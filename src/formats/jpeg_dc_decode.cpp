#include "formats/jpeg_dc_decode.h"

#include <algorithm>
#include <array>
#include <vector>

#include "document/size_limits.h"

namespace tavora {
namespace {

// A Huffman table with a 9-bit lookup for the short codes and the canonical
// limits (maxcode per length) for the rest.
struct Huffman {
  bool defined = false;
  std::array<uint8_t, 256> symbols{};
  std::array<int32_t, 18> maxCode{};  // by length; -1 when no code has it
  std::array<int32_t, 17> valueOffset{};
  std::array<uint16_t, 512> fast{};  // length << 8 | symbol; 0 when longer than 9 bits
};

bool BuildHuffman(Huffman& h, const uint8_t* counts, const uint8_t* symbols, int total) {
  h = Huffman{};
  std::copy(symbols, symbols + total, h.symbols.begin());
  int32_t code = 0, k = 0;
  for (int len = 1; len <= 16; ++len) {
    h.valueOffset[len] = k - code;
    const int n = counts[len - 1];
    for (int i = 0; i < n; ++i, ++k, ++code) {
      if (code >= (1 << len)) return false;  // over-subscribed
      if (len <= 9) {
        const int shift = 9 - len;
        for (int j = 0; j < (1 << shift); ++j) h.fast[(code << shift) | j] = static_cast<uint16_t>(len << 8 | h.symbols[k]);
      }
    }
    h.maxCode[len] = n ? code - 1 : -1;
    code <<= 1;
  }
  h.maxCode[17] = 0x7FFFFFFF;
  h.defined = true;
  return true;
}

// Entropy-coded bits with the stuffed zero bytes removed; a marker ends the
// data (reads past it give zero bits, which the caller's counts catch).
class BitReader {
 public:
  BitReader(std::span<const uint8_t> data, std::size_t pos) : data_(data), pos_(pos) {}

  void Fill() {
    while (count_ <= 24) {
      uint32_t byte = 0;
      if (!marker_ && pos_ < data_.size()) {
        byte = data_[pos_];
        if (byte == 0xFF) {
          const uint8_t next = pos_ + 1 < data_.size() ? data_[pos_ + 1] : 0xD9;
          if (next == 0x00) {
            pos_ += 2;
          } else {
            marker_ = true;  // stays at the marker
            byte = 0;
            ++overrun_;
          }
        } else {
          ++pos_;
        }
      } else {
        ++overrun_;
      }
      bits_ |= byte << (24 - count_);
      count_ += 8;
    }
  }
  uint32_t Peek(int n) {
    if (count_ < n) Fill();
    return bits_ >> (32 - n);
  }
  void Skip(int n) {
    bits_ <<= n;
    count_ -= n;
  }
  uint32_t Get(int n) {
    if (n == 0) return 0;
    const uint32_t v = Peek(n);
    Skip(n);
    return v;
  }
  int Decode(const Huffman& h) {
    const uint32_t peek = Peek(16);
    const uint16_t f = h.fast[peek >> 7];
    if (f) {
      Skip(f >> 8);
      return f & 0xFF;
    }
    for (int len = 10; len <= 16; ++len) {
      const int32_t code = static_cast<int32_t>(peek >> (16 - len));
      if (code <= h.maxCode[len]) {
        Skip(len);
        const int32_t index = code + h.valueOffset[len];
        return index >= 0 && index < 256 ? h.symbols[index] : -1;
      }
    }
    return -1;
  }
  // At a restart: the next marker must be RSTn; the bits start afresh.
  bool Restart() {
    bits_ = 0;
    count_ = 0;
    overrun_ = 0;
    marker_ = false;
    while (pos_ + 1 < data_.size() && !(data_[pos_] == 0xFF && data_[pos_ + 1] >= 0xD0 && data_[pos_ + 1] <= 0xD7))
      ++pos_;
    if (pos_ + 1 >= data_.size()) return false;
    pos_ += 2;
    return true;
  }
  // More than a few zero bits taken past the end: the data is cut short.
  bool Overrun() const { return overrun_ > 4; }

 private:
  std::span<const uint8_t> data_;
  std::size_t pos_;
  uint32_t bits_ = 0;
  int count_ = 0;
  int overrun_ = 0;
  bool marker_ = false;
};

int32_t Extend(uint32_t v, int s) {
  return s == 0 ? 0 : (v < (1u << (s - 1)) ? static_cast<int32_t>(v) - (1 << s) + 1 : static_cast<int32_t>(v));
}

struct Component {
  int id = 0, h = 1, v = 1, tq = 0, td = 0, ta = 0;
  int32_t blocksX = 0, blocksY = 0;  // the plane's blocks, whole MCUs
  std::vector<uint8_t> dc;           // one sample per block
};

uint8_t Clamp(int32_t v) { return static_cast<uint8_t>(std::clamp<int32_t>(v, 0, 255)); }

}  // namespace

std::optional<JpegDcImage> DecodeJpegDc(std::span<const uint8_t> b) {
  if (b.size() < 4 || b[0] != 0xFF || b[1] != 0xD8) return std::nullopt;
  std::array<int32_t, 4> quantDc{};
  std::array<bool, 4> quantDefined{};
  std::array<Huffman, 4> dcTables, acTables;
  std::vector<Component> comps;
  int32_t width = 0, height = 0, restartInterval = 0;
  int adobeTransform = -1;
  std::size_t pos = 2;
  while (true) {
    // Fill bytes may come before a marker.
    while (pos < b.size() && b[pos] != 0xFF) ++pos;
    while (pos < b.size() && b[pos] == 0xFF) ++pos;
    if (pos >= b.size()) return std::nullopt;
    const uint8_t marker = b[pos++];
    if (marker == 0xD9) return std::nullopt;  // the end before any scan
    if (marker >= 0xD0 && marker <= 0xD7) continue;
    if (pos + 2 > b.size()) return std::nullopt;
    const std::size_t length = std::size_t(b[pos]) << 8 | b[pos + 1];
    if (length < 2 || pos + length > b.size()) return std::nullopt;
    const uint8_t* s = b.data() + pos + 2;
    const std::size_t n = length - 2;
    const std::size_t next = pos + length;
    switch (marker) {
      case 0xDB: {  // quantisation tables: only the DC entry is needed
        std::size_t i = 0;
        while (i < n) {
          const int pq = s[i] >> 4, tq = s[i] & 15;
          const std::size_t size = pq ? 128 : 64;
          if (tq > 3 || pq > 1 || i + 1 + size > n) return std::nullopt;
          quantDc[tq] = pq ? (s[i + 1] << 8 | s[i + 2]) : s[i + 1];
          quantDefined[tq] = true;
          i += 1 + size;
        }
        break;
      }
      case 0xC4: {
        std::size_t i = 0;
        while (i < n) {
          if (i + 17 > n) return std::nullopt;
          const int tc = s[i] >> 4, th = s[i] & 15;
          if (tc > 1 || th > 3) return std::nullopt;
          int total = 0;
          for (int k = 0; k < 16; ++k) total += s[i + 1 + k];
          if (total > 256 || i + 17 + total > n) return std::nullopt;
          if (!BuildHuffman(tc ? acTables[th] : dcTables[th], s + i + 1, s + i + 17, total)) return std::nullopt;
          i += 17 + total;
        }
        break;
      }
      case 0xC0:
      case 0xC1: {
        if (n < 6 || s[0] != 8 || !comps.empty()) return std::nullopt;
        height = s[1] << 8 | s[2];
        width = s[3] << 8 | s[4];
        const int count = s[5];
        if (width == 0 || height == 0 || (count != 1 && count != 3) || n < 6 + 3u * count) return std::nullopt;
        if (int64_t(width) * height > int64_t(kMaxCanvasPixels)) return std::nullopt;
        for (int c = 0; c < count; ++c) {
          Component comp;
          comp.id = s[6 + 3 * c];
          comp.h = s[7 + 3 * c] >> 4;
          comp.v = s[7 + 3 * c] & 15;
          comp.tq = s[8 + 3 * c];
          if (comp.h < 1 || comp.h > 4 || comp.v < 1 || comp.v > 4 || comp.tq > 3) return std::nullopt;
          comps.push_back(comp);
        }
        break;
      }
      case 0xC2: case 0xC3: case 0xC5: case 0xC6: case 0xC7: case 0xC9: case 0xCA: case 0xCB:
      case 0xCD: case 0xCE: case 0xCF:
        return std::nullopt;  // progressive, lossless, hierarchical or arithmetic
      case 0xDD:
        if (n < 2) return std::nullopt;
        restartInterval = s[0] << 8 | s[1];
        break;
      case 0xEE:  // Adobe: its transform flag tells RGB from YCbCr
        if (n >= 12 && std::equal(s, s + 5, reinterpret_cast<const uint8_t*>("Adobe"))) adobeTransform = s[11];
        break;
      case 0xDA: {
        if (comps.empty() || n < 1) return std::nullopt;
        const int ns = s[0];
        // One interleaved scan of every component (or the single one).
        if (ns != static_cast<int>(comps.size()) || n < 1 + 2u * ns + 3) return std::nullopt;
        for (int c = 0; c < ns; ++c) {
          const int id = s[1 + 2 * c];
          if (comps[c].id != id) return std::nullopt;
          comps[c].td = s[2 + 2 * c] >> 4;
          comps[c].ta = s[2 + 2 * c] & 15;
          if (comps[c].td > 3 || comps[c].ta > 3 || !dcTables[comps[c].td].defined ||
              !acTables[comps[c].ta].defined || !quantDefined[comps[c].tq])
            return std::nullopt;
        }
        int hMax = 1, vMax = 1;
        for (const Component& c : comps) {
          hMax = std::max(hMax, c.h);
          vMax = std::max(vMax, c.v);
        }
        const bool single = comps.size() == 1;
        // A lone component's blocks cover the picture; interleaved ones come in MCUs.
        const int32_t mcusX = single ? (width + 7) / 8 : (width + 8 * hMax - 1) / (8 * hMax);
        const int32_t mcusY = single ? (height + 7) / 8 : (height + 8 * vMax - 1) / (8 * vMax);
        for (Component& c : comps) {
          c.blocksX = single ? mcusX : mcusX * c.h;
          c.blocksY = single ? mcusY : mcusY * c.v;
          c.dc.assign(std::size_t(c.blocksX) * c.blocksY, 0);
        }
        BitReader bits(b, next);
        std::array<int32_t, 4> predictors{};
        const int64_t mcuCount = int64_t(mcusX) * mcusY;
        for (int64_t m = 0; m < mcuCount; ++m) {
          if (restartInterval && m > 0 && m % restartInterval == 0) {
            if (!bits.Restart()) return std::nullopt;
            predictors = {};
          }
          const int32_t mx = static_cast<int32_t>(m % mcusX), my = static_cast<int32_t>(m / mcusX);
          for (std::size_t ci = 0; ci < comps.size(); ++ci) {
            Component& c = comps[ci];
            const int bh = single ? 1 : c.h, bv = single ? 1 : c.v;
            for (int by = 0; by < bv; ++by) {
              for (int bx = 0; bx < bh; ++bx) {
                const int sDc = bits.Decode(dcTables[c.td]);
                if (sDc < 0 || sDc > 11) return std::nullopt;
                // Bounded, so that a hostile run of differences cannot overflow.
                predictors[ci] = std::clamp<int32_t>(predictors[ci] + Extend(bits.Get(sDc), sDc), -65536, 65536);
                for (int k = 1; k < 64;) {
                  const int rs = bits.Decode(acTables[c.ta]);
                  if (rs < 0) return std::nullopt;
                  const int r = rs >> 4, size = rs & 15;
                  if (size == 0) {
                    if (r != 15) break;
                    k += 16;
                  } else {
                    if (size > 10) return std::nullopt;
                    bits.Get(size);
                    k += r + 1;
                  }
                }
                // The block's mean: DC x quantiser / 8, level-shifted.
                const int32_t x = mx * bh + bx, y = my * bv + by;
                c.dc[std::size_t(y) * c.blocksX + x] = Clamp((predictors[ci] * quantDc[c.tq] + 4 * (predictors[ci] >= 0 ? 1 : -1)) / 8 + 128);
              }
            }
          }
          if (bits.Overrun()) return std::nullopt;
        }
        // One pixel per 8 x 8 block of the full-resolution picture.
        const int32_t ow = (width + 7) / 8, oh = (height + 7) / 8;
        JpegDcImage out;
        out.width = width;
        out.height = height;
        out.pixels = Surface(ow, oh);
        for (int32_t y = 0; y < oh; ++y) {
          uint32_t* row = out.pixels.Row(y);
          for (int32_t x = 0; x < ow; ++x) {
            int32_t v[3] = {0, 0, 0};
            for (std::size_t ci = 0; ci < comps.size(); ++ci) {
              const Component& c = comps[ci];
              const int32_t sx = std::min<int32_t>(c.blocksX - 1, single ? x : x * c.h / hMax);
              const int32_t sy = std::min<int32_t>(c.blocksY - 1, single ? y : y * c.v / vMax);
              v[ci] = c.dc[std::size_t(sy) * c.blocksX + sx];
            }
            uint8_t r, g, bl;
            if (single) {
              r = g = bl = static_cast<uint8_t>(v[0]);
            } else if (adobeTransform == 0) {
              r = static_cast<uint8_t>(v[0]);
              g = static_cast<uint8_t>(v[1]);
              bl = static_cast<uint8_t>(v[2]);
            } else {
              // JFIF's YCbCr, in 16.16 fixed point.
              const int32_t yy = v[0] << 16, cb = v[1] - 128, cr = v[2] - 128;
              r = Clamp((yy + 91881 * cr + 32768) >> 16);
              g = Clamp((yy - 22554 * cb - 46802 * cr + 32768) >> 16);
              bl = Clamp((yy + 116130 * cb + 32768) >> 16);
            }
            row[x] = 0xFF000000u | uint32_t(r) << 16 | uint32_t(g) << 8 | bl;
          }
        }
        return out;
      }
      default:
        break;  // application data, comments
    }
    pos = next;
  }
}

}  // namespace tavora

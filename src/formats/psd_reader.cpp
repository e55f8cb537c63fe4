#include "formats/psd_reader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "base/file_io.h"
#include "base/memory.h"
#include "document/layer_commands.h"

namespace tavora {
namespace {

constexpr uint64_t kMinFile = 40, kMaxFile = 1'800'000'000;

// A bounded view of the file: every read checks what is left.
class Cursor {
 public:
  Cursor() = default;
  Cursor(const uint8_t* p, const uint8_t* end) : p_(p), end_(end) {}
  uint64_t Left() const { return uint64_t(end_ - p_); }
  const uint8_t* Pos() const { return p_; }
  bool Skip(uint64_t n) {
    if (n > Left()) return false;
    p_ += n;
    return true;
  }
  bool Take(uint64_t n, Cursor& part) {
    if (n > Left()) return false;
    part = Cursor(p_, p_ + n);
    p_ += n;
    return true;
  }
  bool U8(uint32_t& v) { return Be(1, v); }
  bool U16(uint32_t& v) { return Be(2, v); }
  bool U32(uint32_t& v) { return Be(4, v); }
  bool I16(int32_t& v) {
    uint32_t u;
    if (!Be(2, u)) return false;
    v = static_cast<int16_t>(u);
    return true;
  }
  bool I32(int32_t& v) {
    uint32_t u;
    if (!Be(4, u)) return false;
    v = static_cast<int32_t>(u);
    return true;
  }
  bool Is(const char* four) const { return Left() >= 4 && std::memcmp(p_, four, 4) == 0; }

 private:
  bool Be(int n, uint32_t& v) {
    if (Left() < uint64_t(n)) return false;
    v = 0;
    for (int i = 0; i < n; ++i) v = v << 8 | p_[i];
    p_ += n;
    return true;
  }
  const uint8_t* p_ = nullptr;
  const uint8_t* end_ = nullptr;
};

enum Mode : uint32_t { kBitmap = 0, kGray = 1, kIndexed = 2, kRgb = 3, kCmyk = 4 };

struct Header {
  uint32_t channels = 0, height = 0, width = 0, depth = 0, mode = 0;
};

struct Parsed {
  Header h;
  const uint8_t* palette = nullptr;  // 768 bytes: reds, greens, blues
  int32_t dpi = 72;
  bool hasLayers = false;
  Cursor layerInfo;  // the layer info block, after its length
  Cursor image;      // the flattened picture to the end of the file
};

void ReadResolution(Cursor res, int32_t& dpi) {
  while (res.Is("8BIM")) {
    uint32_t id, nameLength, size;
    if (!res.Skip(4) || !res.U16(id) || !res.U8(nameLength)) return;
    // The Pascal name, its length byte included, is padded to even.
    if (!res.Skip(nameLength + ((nameLength + 1) & 1)) || !res.U32(size)) return;
    Cursor data;
    if (!res.Take(size, data) || !res.Skip(size & 1)) return;
    if (id != 1005 || size < 8) continue;
    uint32_t fixed, unit;
    if (!data.U32(fixed) || !data.U16(unit)) return;
    const double value = fixed / 65536.0;
    if (value >= 1 && value < 20000)
      dpi = static_cast<int32_t>(unit == 2 ? value * 2.54 + 0.5 : value + 0.5);
  }
}

std::optional<Parsed> ParseFile(std::span<const uint8_t> bytes) {
  if (bytes.size() < kMinFile || bytes.size() > kMaxFile) return std::nullopt;
  Cursor c(bytes.data(), bytes.data() + bytes.size());
  Parsed f;
  Header& h = f.h;
  uint32_t version;
  if (!c.Is("8BPS") || !c.Skip(4) || !c.U16(version) || version != 1 || !c.Skip(6)) return std::nullopt;
  if (!c.U16(h.channels) || !c.U32(h.height) || !c.U32(h.width) || !c.U16(h.depth) || !c.U16(h.mode))
    return std::nullopt;
  if (h.channels < 1 || h.channels > 56 || h.width < 1 || h.width > 30000 || h.height < 1 || h.height > 30000 ||
      double(h.width) * double(h.height) > 250'000'000.0 || (h.depth != 1 && h.depth != 8 && h.depth != 16) ||
      h.mode > kCmyk)
    return std::nullopt;
  uint32_t length;
  Cursor colorData, resources, layerAndMask;
  if (!c.U32(length) || !c.Take(length, colorData)) return std::nullopt;
  if (h.mode == kIndexed && length >= 768) f.palette = colorData.Pos();
  if (!c.U32(length) || !c.Take(length, resources)) return std::nullopt;
  ReadResolution(resources, f.dpi);
  if (!c.U32(length) || !c.Take(length, layerAndMask)) return std::nullopt;
  uint32_t infoLength;
  if (layerAndMask.U32(infoLength) && infoLength > 3) {
    if (!layerAndMask.Take(infoLength, f.layerInfo)) return std::nullopt;
    f.hasLayers = true;
  }
  if (c.Left() < 2) return std::nullopt;
  f.image = c;
  return f;
}

// ---- samples
// PackBits: a header byte n of 0..127 is followed by n + 1 literal bytes;
// -1..-127 repeats the next byte 1 - n times; -128 is skipped.
bool UnpackBits(Cursor& in, uint8_t* out, std::size_t size) {
  std::size_t at = 0;
  while (at < size) {
    uint32_t n, value;
    if (!in.U8(n)) return false;
    if (n < 128) {
      const std::size_t count = n + 1;
      if (count > size - at || count > in.Left()) return false;
      std::memcpy(out + at, in.Pos(), count);
      in.Skip(count);
      at += count;
    } else if (n > 128) {
      const std::size_t count = 257 - n;
      if (count > size - at || !in.U8(value)) return false;
      std::memset(out + at, static_cast<int>(value), count);
      at += count;
    }
  }
  return true;
}

// 16-bit samples to 8 bits, rounded.
uint8_t To8(uint32_t v16) { return static_cast<uint8_t>((v16 * 255 + 32767) / 65535); }

// Decodes `rows` rows of `width` samples at `depth`, raw or run-length
// (with its table of per-row byte counts at `counts`), one row at a time.
class ChannelRows {
 public:
  ChannelRows(uint32_t depth, uint32_t width) : depth_(depth), width_(width) {
    rowBytes_ = depth == 1 ? (width + 7) / 8 : std::size_t(width) * (depth / 8);
    raw_.resize(rowBytes_);
    row_.resize(width);
  }
  std::size_t RowBytes() const { return rowBytes_; }
  // The next row's 8-bit samples, or null on a fault.
  const uint8_t* Next(Cursor& data, bool packed, Cursor* counts) {
    if (packed) {
      uint32_t count;
      Cursor rowData;
      if (!counts->U16(count) || !data.Take(count, rowData) || !UnpackBits(rowData, raw_.data(), rowBytes_))
        return nullptr;
    } else if (data.Left() < rowBytes_) {
      return nullptr;
    } else {
      std::memcpy(raw_.data(), data.Pos(), rowBytes_);
      data.Skip(rowBytes_);
    }
    if (depth_ == 8) return raw_.data();
    for (uint32_t x = 0; x < width_; ++x) {
      if (depth_ == 16) row_[x] = To8(uint32_t(raw_[2 * x]) << 8 | raw_[2 * x + 1]);
      else row_[x] = (raw_[x >> 3] >> (7 - (x & 7))) & 1 ? 0 : 255;  // bitmap: 1 is black
    }
    return row_.data();
  }

 private:
  uint32_t depth_, width_;
  std::size_t rowBytes_;
  std::vector<uint8_t> raw_, row_;
};

// ---- the flattened picture
std::optional<Surface> DecodeFlattened(const Parsed& f, bool mergedAlpha) {
  const Header& h = f.h;
  Cursor data = f.image;
  uint32_t compression;
  if (!data.U16(compression) || compression > 1) return std::nullopt;
  if (h.mode == kBitmap && h.depth != 1) return std::nullopt;
  if (h.mode != kBitmap && h.depth == 1) return std::nullopt;
  if (h.mode == kIndexed && (!f.palette || h.depth != 8)) return std::nullopt;
  const uint32_t colours = h.mode == kRgb ? 3 : h.mode == kCmyk ? 4 : 1;
  if (h.channels < colours) return std::nullopt;
  // An extra channel is the picture's transparency only when the file says so.
  const uint32_t used = colours + (mergedAlpha && (h.mode == kRgb || h.mode == kGray) && h.channels > colours);
  const bool packed = compression == 1;
  Cursor counts;
  if (packed && !data.Take(uint64_t(h.channels) * h.height * 2, counts)) return std::nullopt;
  Surface out(static_cast<int32_t>(h.width), static_cast<int32_t>(h.height));
  const uint32_t fill = h.mode == kCmyk ? 0xFFFFFFFFu : 0xFF000000u;
  std::fill(out.Data(), out.Data() + out.PixelCount(), fill);
  ChannelRows rows(h.depth, h.width);
  for (uint32_t ch = 0; ch < used; ++ch) {
    for (uint32_t y = 0; y < h.height; ++y) {
      const uint8_t* s = rows.Next(data, packed, &counts);
      if (!s) return std::nullopt;
      uint32_t* row = out.Row(static_cast<int32_t>(y));
      for (uint32_t x = 0; x < h.width; ++x) {
        uint32_t& p = row[x];
        const uint32_t v = s[x];
        switch (h.mode) {
          case kBitmap:
          case kGray:
            if (ch == 0) p = (p & 0xFF000000u) | v * 0x010101u;
            else p = (p & 0x00FFFFFFu) | v << 24;
            break;
          case kIndexed:
            p = 0xFF000000u | uint32_t(f.palette[v]) << 16 | uint32_t(f.palette[256 + v]) << 8 | f.palette[512 + v];
            break;
          case kRgb:
            if (ch < 3) p = (p & ~(0xFFu << (16 - 8 * ch))) | v << (16 - 8 * ch);
            else p = (p & 0x00FFFFFFu) | v << 24;
            break;
          case kCmyk: {
            // Stored inverted (255 is no ink): each colour is its channel
            // times black, both as stored.
            if (ch < 3) {
              const int shift = 16 - 8 * int(ch);
              p = (p & ~(0xFFu << shift)) | v << shift;
            } else {
              uint32_t q = 0xFF000000u;
              for (int shift = 0; shift < 24; shift += 8)
                q |= ((((p >> shift) & 255) * v + 127) / 255) << shift;
              p = q;
            }
            break;
          }
        }
      }
    }
  }
  return out;
}

// ---- layers
constexpr const char* kUnsupportedKeys[] = {
    "brit", "levl", "curv", "expA", "vibA", "hue ", "hue2", "blnc", "blwh", "phfl", "mixr", "clrL", "nvrt", "post",
    "thrs", "selc", "grdm", "SoCo", "GdFl", "PtFl", "lrFX", "lfx2", "lmfx", "vmsk", "vsms", "vogk", "artb", "artd"};

struct Channel {
  int32_t id = 0;
  uint32_t length = 0;
  Cursor data;  // its compression word and samples
};

struct Record {
  int32_t top = 0, left = 0, bottom = 0, right = 0;
  std::vector<Channel> channels;
  int32_t blend = 0;
  bool supported = true, divider = false, hidden = false;
  uint32_t opacity = 255;
  std::u16string name;
};

bool IsSignature(const Cursor& c) { return c.Is("8BIM") || c.Is("8B64"); }

bool ReadExtra(Cursor extra, Record& r) {
  uint32_t maskLength, rangesLength, nameLength;
  if (!extra.U32(maskLength) || !extra.Skip(maskLength)) return false;
  if (maskLength != 0) r.supported = false;
  if (!extra.U32(rangesLength) || !extra.Skip(rangesLength)) return false;
  const uint8_t* nameStart = extra.Pos();
  if (!extra.U8(nameLength) || extra.Left() < nameLength) return false;
  for (uint32_t i = 0; i < nameLength && i < kMaxLayerNameLength; ++i) r.name.push_back(char16_t(nameStart[1 + i]));
  // The name is padded to four bytes; some writers pad to two.
  Cursor four = extra, two = extra;
  const uint32_t used = 1 + nameLength;
  const bool fourOk = four.Skip(((used + 3) & ~3u) - 1), twoOk = two.Skip(((used + 1) & ~1u) - 1);
  if (fourOk && (IsSignature(four) || four.Left() == 0)) extra = four;
  else if (twoOk && IsSignature(two)) extra = two;
  else if (fourOk) extra = four;
  else return false;
  while (IsSignature(extra)) {
    char key[5] = {};
    uint32_t length;
    if (!extra.Skip(4)) return false;
    std::memcpy(key, extra.Pos(), std::min<uint64_t>(4, extra.Left()));
    Cursor data;
    if (!extra.Skip(4) || !extra.U32(length) || !extra.Take(length, data)) return false;
    for (const char* k : kUnsupportedKeys)
      if (std::memcmp(key, k, 4) == 0) r.supported = false;
    if (std::memcmp(key, "lsct", 4) == 0) {
      uint32_t type;
      if (data.U32(type) && type >= 1 && type <= 3) r.divider = true;
    } else if (std::memcmp(key, "luni", 4) == 0) {
      uint32_t count;
      if (data.U32(count) && uint64_t(count) * 2 <= data.Left()) {
        r.name.clear();
        for (uint32_t i = 0; i < count && i < kMaxLayerNameLength; ++i) {
          uint32_t unit = 0;
          data.U16(unit);
          r.name.push_back(char16_t(unit));
        }
        while (!r.name.empty() && r.name.back() == 0) r.name.pop_back();
      }
    }
    // Some writers pad a block to an even length or to four bytes.
    for (int pad = 1; pad <= 3 && !IsSignature(extra) && extra.Left() > 0; ++pad) {
      Cursor probe = extra;
      if (probe.Skip(uint64_t(pad)) && IsSignature(probe)) extra = probe;
    }
  }
  return true;
}

std::optional<std::vector<Record>> ReadRecords(Cursor info, const Header& h) {
  int32_t count;
  if (!info.I16(count)) return std::nullopt;
  count = std::abs(count);
  if (count < 1 || count > 400 || double(count) * h.width * h.height * 4 > 1.4e9) return std::nullopt;
  std::vector<Record> records(static_cast<std::size_t>(count));
  for (Record& r : records) {
    uint32_t channels, opacity, clipping, flags, extraLength;
    if (!info.I32(r.top) || !info.I32(r.left) || !info.I32(r.bottom) || !info.I32(r.right) || !info.U16(channels) ||
        channels > 24)
      return std::nullopt;
    r.channels.resize(channels);
    for (Channel& ch : r.channels)
      if (!info.I16(ch.id) || !info.U32(ch.length)) return std::nullopt;
    if (!info.Is("8BIM") || !info.Skip(4) || info.Left() < 4) return std::nullopt;
    const uint8_t* key = info.Pos();
    info.Skip(4);
    r.blend = PsdBlendMode(std::span<const uint8_t, 4>(key, 4));
    if (r.blend < 0) r.supported = false;
    Cursor extra;
    if (!info.U8(opacity) || !info.U8(clipping) || !info.U8(flags) || !info.Skip(1) || !info.U32(extraLength) ||
        !info.Take(extraLength, extra) || !ReadExtra(extra, r))
      return std::nullopt;
    if (clipping != 0) r.supported = false;
    r.hidden = (flags & 2) != 0;
    r.opacity = std::min(opacity, 255u);
  }
  // The channels' data follows the records in the same order.
  for (Record& r : records)
    for (Channel& ch : r.channels)
      if (!info.Take(ch.length, ch.data)) return std::nullopt;
  return records;
}

bool Empty(const Record& r) { return r.top >= r.bottom || r.left >= r.right; }

// One record's pixels on a canvas-sized layer; false on a structural fault.
bool DecodeLayer(const Record& r, const Header& h, Layer& layer) {
  const int64_t w = int64_t(r.right) - r.left, ht = int64_t(r.bottom) - r.top;
  if (w >= 60001 || ht >= 60001 || w * ht > 400'000'000) return false;
  ChannelRows rows(h.depth, static_cast<uint32_t>(w));
  for (const Channel& ch : r.channels) {
    const int shift = ch.id == -1 ? 24 : (h.mode == kRgb && ch.id >= 0 && ch.id <= 2) ? 16 - 8 * ch.id
                                     : (h.mode == kGray && ch.id == 0)                 ? -1
                                                                                      : -2;
    if (shift == -2) continue;  // user masks and other extra channels
    Cursor data = ch.data;
    uint32_t compression;
    if (!data.U16(compression) || compression > 1) return false;
    Cursor counts;
    if (compression == 1 && !data.Take(uint64_t(ht) * 2, counts)) return false;
    for (int64_t y = 0; y < ht; ++y) {
      const uint8_t* s = rows.Next(data, compression == 1, &counts);
      if (!s) return false;
      const int64_t cy = r.top + y;
      if (cy < 0 || cy >= layer.Height()) continue;
      uint32_t* out = layer.pixels.Row(static_cast<int32_t>(cy));
      const int64_t x0 = std::max<int64_t>(0, -int64_t(r.left)), x1 = std::min<int64_t>(w, layer.Width() - int64_t(r.left));
      for (int64_t x = x0; x < x1; ++x) {
        uint32_t& p = out[r.left + x];
        const uint32_t v = s[x];
        if (shift == -1) p = (p & 0xFF000000u) | v * 0x010101u;
        else p = (p & ~(0xFFu << shift)) | v << shift;
      }
    }
  }
  return true;
}

// The layers, strictly (any unsupported record fails) or leniently.
std::unique_ptr<Document> ReadLayers(const Parsed& f, bool strict) {
  const Header& h = f.h;
  if (!f.hasLayers || (h.mode != kGray && h.mode != kRgb) || h.depth == 1) return nullptr;
  const auto records = ReadRecords(f.layerInfo, h);
  if (!records) return nullptr;
  std::unique_ptr<Document> doc;
  for (const Record& r : *records) {
    if (r.divider) continue;
    if (strict && !r.supported) return nullptr;
    if (Empty(r)) continue;
    Layer layer(static_cast<int32_t>(h.width), static_cast<int32_t>(h.height), r.name.empty() ? u"Layer" : r.name);
    // Channels without an alpha channel are opaque.
    const bool hasAlpha = std::any_of(r.channels.begin(), r.channels.end(), [](const Channel& c) { return c.id == -1; });
    if (!hasAlpha) {
      const Rect area = Intersect({r.left, r.top, r.right, r.bottom}, {0, 0, layer.Width(), layer.Height()});
      if (!area.Empty())
        for (int32_t y = area.y0; y < area.y1; ++y)
          std::fill(layer.pixels.Row(y) + area.x0, layer.pixels.Row(y) + area.x1, 0xFF000000u);
    }
    if (!DecodeLayer(r, h, layer)) return nullptr;
    layer.visible = !r.hidden;
    layer.opacity = static_cast<int32_t>(r.opacity);
    layer.blendMode = std::max(r.blend, 0);
    if (!doc) {
      doc = DocumentFromPicture(std::move(layer.pixels), f.dpi);
      Layer& first = doc->layers[0];
      first.SetName(layer.Name());
      first.visible = layer.visible;
      first.opacity = layer.opacity;
      first.blendMode = layer.blendMode;
    } else {
      doc->layers.push_back(std::move(layer));
    }
  }
  if (doc) doc->active = doc->LayerCount() - 1;
  return doc;
}

bool Uniform(const Surface& s) {
  const uint32_t first = s.Data()[0];
  return std::all_of(s.Data(), s.Data() + s.PixelCount(), [first](uint32_t p) { return p == first; });
}

bool MergedAlpha(const Parsed& f) {
  if (!f.hasLayers) return false;
  Cursor info = f.layerInfo;
  int32_t count;
  return info.I16(count) && count < 0;
}

std::optional<std::vector<uint8_t>> ReadFile(const std::filesystem::path& path) {
  std::error_code ec;
  const uintmax_t size = std::filesystem::file_size(path, ec);
  if (ec || size < kMinFile || size > kMaxFile) return std::nullopt;
  FileReader in;
  if (!in.Open(path)) return std::nullopt;
  std::vector<uint8_t> bytes(static_cast<std::size_t>(size));
  if (!in.Read(bytes.data(), bytes.size())) return std::nullopt;
  return bytes;
}

}  // namespace

int32_t PsdBlendMode(std::span<const uint8_t, 4> key) {
  constexpr const char* kKeys[] = {"norm", "mul ", "scrn", "over", "dark", "lite", "diff",
                                   "sLit", "hLit", "div ", "idiv", "smud", "lddg", "lbrn"};
  for (int32_t i = 0; i < 14; ++i)
    if (std::memcmp(key.data(), kKeys[i], 4) == 0) return i;
  return -1;
}

std::unique_ptr<Document> ReadPsdBytes(std::span<const uint8_t> bytes) {
  const auto f = ParseFile(bytes);
  if (!f) return nullptr;
  // Layers the editor keeps as they are need no flattened picture.
  if (auto layered = ReadLayers(*f, true)) return layered;
  auto flat = DecodeFlattened(*f, MergedAlpha(*f));
  if (!flat) return ReadLayers(*f, false);
  if (!Uniform(*flat)) return DocumentFromPicture(std::move(*flat), f->dpi);
  if (auto lenient = ReadLayers(*f, false)) return lenient;
  return DocumentFromPicture(std::move(*flat), f->dpi);
}

std::unique_ptr<Document> ReadPsd(const std::filesystem::path& path) {
  const auto bytes = ReadFile(path);
  return bytes ? ReadPsdBytes(*bytes) : nullptr;
}

std::optional<PsdPicture> ReadPsdFlattenedBytes(std::span<const uint8_t> bytes) {
  const auto f = ParseFile(bytes);
  if (!f) return std::nullopt;
  auto flat = DecodeFlattened(*f, MergedAlpha(*f));
  if (!flat) return std::nullopt;
  return PsdPicture{std::move(*flat), f->dpi};
}

std::optional<PsdPicture> ReadPsdFlattened(const std::filesystem::path& path) {
  const auto bytes = ReadFile(path);
  return bytes ? ReadPsdFlattenedBytes(*bytes) : std::nullopt;
}

}  // namespace tavora

#include <windows.h>
#include <objidl.h>
#include <gdiplus.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <cwchar>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "document/size_limits.h"
#include "base/file_io.h"
#include "platform/gdiplus_codecs_win32.h"

namespace tavora {
namespace {

namespace gp = Gdiplus;
using ByteView = std::span<const uint8_t>;

ULONG_PTR g_gdiplusToken = 0;

// Above this a recorded resolution is taken for damage, not for a real dpi.
constexpr double kMaxDpi = 65535.0;
constexpr uint32_t kBiRgb = 0, kBiBitFields = 3;

// Little- and big-endian fields; callers have checked the range.
uint16_t U16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t U32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
int32_t I32(const uint8_t* p) { return static_cast<int32_t>(U32(p)); }
uint16_t U16BE(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
uint32_t U32BE(const uint8_t* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}

struct ReleaseStream {
  void operator()(IStream* stream) const { stream->Release(); }
};
using StreamPtr = std::unique_ptr<IStream, ReleaseStream>;

int32_t RoundDpi(double dpi) {
  return std::isfinite(dpi) && dpi >= 0.5 && dpi <= kMaxDpi ? static_cast<int32_t>(std::lround(dpi))
                                                            : 0;
}

// ------------------------------------------------------------------ recognising

enum class Container { Png, Jpeg, Gif, Bmp, Tiff, Ico, Unknown };

// By content, never by name: a renamed file still opens, and GDI+ never sees
// anything but the five raster formats (no metafiles).
Container Recognise(ByteView b) {
  auto startsWith = [&](std::initializer_list<uint8_t> sig) {
    return b.size() >= sig.size() && std::equal(sig.begin(), sig.end(), b.begin());
  };
  if (startsWith({0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A})) return Container::Png;
  if (startsWith({0xFF, 0xD8, 0xFF})) return Container::Jpeg;
  if (startsWith({'G', 'I', 'F', '8', '7', 'a'}) || startsWith({'G', 'I', 'F', '8', '9', 'a'}))
    return Container::Gif;
  if (startsWith({'B', 'M'}) && b.size() >= 30) return Container::Bmp;
  if (startsWith({'I', 'I', 42, 0}) || startsWith({'M', 'M', 0, 42})) return Container::Tiff;
  if (startsWith({0, 0, 1, 0})) return Container::Ico;
  return Container::Unknown;
}

// The height a JPEG's frame header states, and its width; nothing when the
// markers cannot be followed as far as the frame.
std::optional<std::pair<uint32_t, uint32_t>> JpegFrameSize(ByteView b) {
  std::size_t pos = 2;
  while (pos + 4 <= b.size()) {
    if (b[pos] != 0xFF) return std::nullopt;
    const uint8_t marker = b[pos + 1];
    if (marker == 0xFF) {  // fill byte
      ++pos;
      continue;
    }
    if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) {  // markers without a length
      pos += 2;
      continue;
    }
    const bool frame =
        marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (frame) {
      if (pos + 9 > b.size()) return std::nullopt;
      return std::pair<uint32_t, uint32_t>{U16BE(&b[pos + 7]), U16BE(&b[pos + 5])};
    }
    const std::size_t length = U16BE(&b[pos + 2]);
    if (marker == 0xDA || length < 2) return std::nullopt;
    pos += 2 + length;
  }
  return std::nullopt;
}

// Refuses a size the header states before GDI+ allocates anything for it.
// A zero side is left for the decoder to judge (a JPEG may give its height
// later), the decoded size is checked again in any case.
bool StatedSizeAllowed(Container container, ByteView b) {
  auto allowed = [](int64_t w, int64_t h) {
    return CanvasSizeAllowed(std::max<int64_t>(w, 1), std::max<int64_t>(h, 1));
  };
  switch (container) {
    case Container::Png:
      return b.size() >= 24 && std::memcmp(&b[12], "IHDR", 4) == 0 &&
             allowed(U32BE(&b[16]), U32BE(&b[20]));
    case Container::Gif:
      return b.size() >= 10 && allowed(U16(&b[6]), U16(&b[8]));
    case Container::Bmp:
      if (U32(&b[14]) == 12) return allowed(U16(&b[18]), U16(&b[20]));  // the oldest header
      return allowed(I32(&b[18]), std::abs(int64_t{I32(&b[22])}));
    case Container::Jpeg:
      if (const auto size = JpegFrameSize(b)) return allowed(size->first, size->second);
      return true;
    default:
      return true;
  }
}

// ------------------------------------------------------------------ GDI+ decoding

// A stream over a copy of the bytes: GDI+ may keep reading it while the
// bitmap lives.
StreamPtr StreamOnCopy(ByteView bytes) {
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, std::max<std::size_t>(bytes.size(), 1));
  if (!block) return nullptr;
  void* target = GlobalLock(block);
  if (!target) {
    GlobalFree(block);
    return nullptr;
  }
  std::memcpy(target, bytes.data(), bytes.size());
  GlobalUnlock(block);
  IStream* raw = nullptr;
  if (FAILED(CreateStreamOnHGlobal(block, TRUE, &raw))) {
    GlobalFree(block);
    return nullptr;
  }
  StreamPtr stream(raw);
  // The block may be larger than asked for; the stream must end with the data.
  ULARGE_INTEGER size;
  size.QuadPart = bytes.size();
  if (FAILED(stream->SetSize(size))) return nullptr;
  return stream;
}

std::optional<DecodedImage> DecodeWithGdiplus(ByteView bytes) {
  StreamPtr stream = StreamOnCopy(bytes);
  if (!stream) return std::nullopt;
  // The first frame of a GIF and the first page of a TIFF are the active ones.
  gp::Bitmap bitmap(stream.get());
  if (bitmap.GetLastStatus() != gp::Ok) return std::nullopt;
  const UINT width = bitmap.GetWidth(), height = bitmap.GetHeight();
  if (!CanvasSizeAllowed(width, height)) return std::nullopt;

  DecodedImage out;
  out.pixels = Surface(static_cast<int32_t>(width), static_cast<int32_t>(height));
  // 32bppARGB is straight alpha, B, G, R, A in memory: GDI+ converts straight
  // into the surface.
  gp::BitmapData data{};
  data.Width = width;
  data.Height = height;
  data.Stride = static_cast<INT>(width * 4);
  data.PixelFormat = PixelFormat32bppARGB;
  data.Scan0 = out.pixels.Data();
  gp::Rect rect(0, 0, static_cast<INT>(width), static_cast<INT>(height));
  if (bitmap.LockBits(&rect, gp::ImageLockModeRead | gp::ImageLockModeUserInputBuf,
                      PixelFormat32bppARGB, &data) != gp::Ok)
    return std::nullopt;
  if (bitmap.UnlockBits(&data) != gp::Ok) return std::nullopt;
  // Without a resolution in the file GDI+ reports the screen's.
  if (bitmap.GetFlags() & gp::ImageFlagsHasRealDPI)
    out.dpi = RoundDpi(bitmap.GetHorizontalResolution());
  return out;
}

// ------------------------------------------------------------------ DIBs

enum class DibUse { File, Icon };

bool StandardMasks(const uint8_t* masks) {
  return U32(masks) == 0x00FF0000 && U32(masks + 4) == 0x0000FF00 && U32(masks + 8) == 0x000000FF;
}

// A device-independent bitmap from its info header on: uncompressed 1, 4, 8,
// 24 or 32 bits. `pixelsAt` is where a file's header says the rows start;
// an icon's follow the colour table, and a 1-bit mask of the same size
// follows them (its set bits are transparent).
std::optional<DecodedImage> DecodeDib(ByteView dib, std::optional<std::size_t> pixelsAt,
                                      DibUse use) {
  if (dib.size() < 40) return std::nullopt;
  const uint8_t* p = dib.data();
  const uint32_t headerSize = U32(p);
  if (headerSize < 40 || headerSize > dib.size()) return std::nullopt;
  const int64_t width = I32(p + 4);
  int64_t height = I32(p + 8);
  const uint32_t bitCount = U16(p + 14);
  const uint32_t compression = U32(p + 16);
  const int32_t pelsPerMetre = I32(p + 24);
  const uint32_t coloursUsed = U32(p + 32);

  bool topDown = false;
  if (use == DibUse::Icon) {
    height /= 2;  // the colour rows and the mask rows together
  } else if (height < 0) {
    topDown = true;
    height = -height;
  }
  if (!CanvasSizeAllowed(width, height)) return std::nullopt;
  if (bitCount != 1 && bitCount != 4 && bitCount != 8 && bitCount != 24 && bitCount != 32)
    return std::nullopt;

  std::size_t tableAt = headerSize;
  if (compression == kBiBitFields) {
    if (bitCount != 32 || dib.size() < 52 || !StandardMasks(p + 40)) return std::nullopt;
    if (headerSize == 40) tableAt += 12;  // the masks follow a plain info header
  } else if (compression != kBiRgb) {
    return std::nullopt;
  }
  const uint64_t tableEntries =
      bitCount <= 8 && coloursUsed == 0 ? (uint64_t{1} << bitCount) : coloursUsed;
  if (tableEntries > 256 || tableAt + tableEntries * 4 > dib.size()) return std::nullopt;

  const uint64_t rowsAt = pixelsAt ? *pixelsAt : tableAt + tableEntries * 4;
  const uint64_t stride = (uint64_t(width) * bitCount + 31) / 32 * 4;
  const uint64_t pixelBytes = stride * uint64_t(height);
  if (rowsAt > dib.size() || pixelBytes > dib.size() - rowsAt) return std::nullopt;

  // Indices past the table are drawn black rather than refused.
  std::array<uint32_t, 256> palette;
  palette.fill(0xFF000000u);
  for (uint64_t i = 0; i < tableEntries && bitCount <= 8; ++i)
    palette[i] = 0xFF000000u | (U32(p + tableAt + i * 4) & 0xFFFFFFu);

  DecodedImage out;
  out.pixels = Surface(static_cast<int32_t>(width), static_cast<int32_t>(height));
  out.dpi = pelsPerMetre > 0 ? RoundDpi(pelsPerMetre * 0.0254) : 0;
  bool anyAlpha = false;
  const uint32_t indexMask = (1u << bitCount) - 1;
  for (int64_t r = 0; r < height; ++r) {
    const uint8_t* src = p + rowsAt + r * stride;
    uint32_t* dst = out.pixels.Row(static_cast<int32_t>(topDown ? r : height - 1 - r));
    for (int64_t x = 0; x < width; ++x) {
      switch (bitCount) {
        case 32:
          dst[x] = U32(src + x * 4);
          anyAlpha |= (dst[x] >> 24) != 0;
          break;
        case 24:
          dst[x] = 0xFF000000u | uint32_t(src[x * 3]) | uint32_t(src[x * 3 + 1]) << 8 |
                   uint32_t(src[x * 3 + 2]) << 16;
          break;
        default: {
          const uint64_t bit = uint64_t(x) * bitCount;
          const uint32_t index = (src[bit / 8] >> (8 - bitCount - bit % 8)) & indexMask;
          dst[x] = palette[index];
        }
      }
    }
  }
  // Older writers leave the fourth byte zero: then it is no alpha channel.
  if (bitCount == 32 && !anyAlpha) {
    uint32_t* px = out.pixels.Data();
    for (std::size_t i = 0; i < out.pixels.PixelCount(); ++i) px[i] |= 0xFF000000u;
  }
  if (use == DibUse::Icon && !(bitCount == 32 && anyAlpha)) {
    const uint64_t maskAt = rowsAt + pixelBytes;
    const uint64_t maskStride = (uint64_t(width) + 31) / 32 * 4;
    if (maskStride * uint64_t(height) <= dib.size() - maskAt) {
      for (int64_t r = 0; r < height; ++r) {
        const uint8_t* mask = p + maskAt + r * maskStride;
        uint32_t* dst = out.pixels.Row(static_cast<int32_t>(height - 1 - r));
        for (int64_t x = 0; x < width; ++x)
          if (mask[x / 8] & (0x80 >> (x % 8))) dst[x] = 0;
      }
    }
  }
  return out;
}

// A 32-bit BMP is read here: GDI+ drops its alpha channel.
bool IsPlain32BitBmp(ByteView b) {
  if (b.size() < 14 + 40 || U32(&b[14]) < 40 || U16(&b[28]) != 32) return false;
  const uint32_t compression = U32(&b[30]);
  return compression == kBiRgb ||
         (compression == kBiBitFields && b.size() >= 14 + 52 && StandardMasks(&b[14 + 40]));
}

// ------------------------------------------------------------------ icons

// The largest image of the directory (a 0 byte is 256 pixels), the deeper one
// of two the same size; it is a PNG or a DIB with its mask.
std::optional<DecodedImage> DecodeIcon(ByteView b) {
  if (b.size() < 6 || U16(&b[2]) != 1) return std::nullopt;
  const std::size_t count = U16(&b[4]);
  if (count == 0 || 6 + 16 * count > b.size()) return std::nullopt;
  uint64_t bestArea = 0;
  uint32_t bestBits = 0;
  ByteView best;
  for (std::size_t i = 0; i < count; ++i) {
    const uint8_t* e = &b[6 + 16 * i];
    const uint64_t w = e[0] ? e[0] : 256, h = e[1] ? e[1] : 256;
    const uint32_t bits = U16(e + 6);
    const uint32_t size = U32(e + 8), at = U32(e + 12);
    if (size == 0 || at > b.size() || size > b.size() - at) continue;  // not in the file
    if (w * h > bestArea || (w * h == bestArea && bits > bestBits)) {
      bestArea = w * h;
      bestBits = bits;
      best = b.subspan(at, size);
    }
  }
  if (best.empty()) return std::nullopt;
  if (Recognise(best) == Container::Png) {
    if (!StatedSizeAllowed(Container::Png, best)) return std::nullopt;
    return DecodeWithGdiplus(best);
  }
  return DecodeDib(best, std::nullopt, DibUse::Icon);
}

std::optional<DecodedImage> Decode(const std::filesystem::path& path) {
  // Read whole first, so the file is neither held open nor locked while
  // GDI+ decodes.
  const std::optional<std::string> file = ReadWholeFile(path);
  if (!file) return std::nullopt;
  const ByteView bytes(reinterpret_cast<const uint8_t*>(file->data()), file->size());
  const Container container = Recognise(bytes);
  switch (container) {
    case Container::Unknown:
      return std::nullopt;
    case Container::Ico:
      return DecodeIcon(bytes);
    case Container::Bmp:
      if (IsPlain32BitBmp(bytes)) {
        const uint32_t pixelsAt = U32(&bytes[10]);
        if (pixelsAt < 14) return std::nullopt;
        return DecodeDib(bytes.subspan(14), pixelsAt - 14, DibUse::File);
      }
      [[fallthrough]];
    default:
      if (!StatedSizeAllowed(container, bytes)) return std::nullopt;
      return DecodeWithGdiplus(bytes);
  }
}

// ------------------------------------------------------------------ GIF palette

// GIF keeps at most 256 colours and one transparent index, which only pixels
// of alpha 0 take. A picture with no more colours than the palette may hold
// keeps them exactly. Otherwise the colours are reduced by median cut over a
// 5-bit-per-channel histogram: the palette follows the picture's own colours
// and holds to the size asked for, where a fixed palette would do neither.
class GifPalette {
 public:
  GifPalette(const Surface& pixels, int32_t paletteSize) {
    const std::size_t limit = paletteSize >= 1 && paletteSize <= 256 ? paletteSize : 256;
    if (!TryExact(pixels, limit)) MedianCut(pixels, limit);
  }

  const std::vector<gp::ARGB>& Entries() const { return entries_; }
  int TransparentIndex() const { return transparent_; }

  uint8_t IndexOf(uint32_t pixel) const {
    if ((pixel >> 24) == 0 && transparent_ >= 0) return static_cast<uint8_t>(transparent_);
    const uint32_t rgb = pixel & 0xFFFFFFu;
    if (exact_) {
      const auto it = std::lower_bound(exactColours_.begin(), exactColours_.end(), rgb);
      return static_cast<uint8_t>(it - exactColours_.begin());
    }
    return binIndex_[Bin(rgb)];
  }

 private:
  static uint32_t Bin(uint32_t rgb) {
    return (rgb >> 9 & 0x7C00) | (rgb >> 6 & 0x03E0) | (rgb >> 3 & 0x001F);
  }

  void AddTransparent() {
    transparent_ = static_cast<int>(entries_.size());
    entries_.push_back(0);
  }

  bool TryExact(const Surface& pixels, std::size_t limit) {
    std::vector<uint64_t> seen(std::size_t{1} << 18);
    std::size_t distinct = 0;
    bool transparent = false;
    const uint32_t* px = pixels.Data();
    for (std::size_t i = 0; i < pixels.PixelCount(); ++i) {
      if ((px[i] >> 24) == 0) {
        transparent = true;
      } else {
        const uint32_t rgb = px[i] & 0xFFFFFFu;
        uint64_t& word = seen[rgb >> 6];
        const uint64_t bit = uint64_t{1} << (rgb & 63);
        if (!(word & bit)) {
          word |= bit;
          ++distinct;
        }
      }
      if (distinct + (transparent ? 1 : 0) > limit) return false;
    }
    // Ascending, so a pixel finds its entry by binary search.
    for (std::size_t w = 0; w < seen.size(); ++w)
      for (uint64_t bits = seen[w]; bits != 0; bits &= bits - 1)
        exactColours_.push_back(static_cast<uint32_t>(w << 6 | std::countr_zero(bits)));
    for (uint32_t rgb : exactColours_) entries_.push_back(0xFF000000u | rgb);
    if (transparent) AddTransparent();
    exact_ = true;
    return true;
  }

  void MedianCut(const Surface& pixels, std::size_t limit) {
    struct Bin3 {
      uint64_t count = 0, r = 0, g = 0, b = 0;
    };
    std::vector<Bin3> histogram(1 << 15);
    bool transparent = false;
    const uint32_t* px = pixels.Data();
    for (std::size_t i = 0; i < pixels.PixelCount(); ++i) {
      if ((px[i] >> 24) == 0) {
        transparent = true;
        continue;
      }
      Bin3& bin = histogram[Bin(px[i])];
      ++bin.count;
      bin.r += px[i] >> 16 & 0xFF;
      bin.g += px[i] >> 8 & 0xFF;
      bin.b += px[i] & 0xFF;
    }

    struct Cell {
      uint16_t bin;
      std::array<uint8_t, 3> mean;
      uint64_t count;
    };
    std::vector<Cell> cells;
    for (uint32_t i = 0; i < histogram.size(); ++i) {
      const Bin3& h = histogram[i];
      if (h.count == 0) continue;
      cells.push_back({static_cast<uint16_t>(i),
                       {uint8_t(h.r / h.count), uint8_t(h.g / h.count), uint8_t(h.b / h.count)},
                       h.count});
    }

    struct Box {
      std::size_t begin, end;
      uint64_t pixels = 0;
      int channel = 0;
      int range = 0;
    };
    auto measure = [&cells](std::size_t begin, std::size_t end) {
      Box box{begin, end};
      std::array<int, 3> lo{255, 255, 255}, hi{0, 0, 0};
      for (std::size_t i = begin; i < end; ++i) {
        box.pixels += cells[i].count;
        for (int c = 0; c < 3; ++c) {
          lo[c] = std::min<int>(lo[c], cells[i].mean[c]);
          hi[c] = std::max<int>(hi[c], cells[i].mean[c]);
        }
      }
      for (int c = 0; c < 3; ++c) {
        if (hi[c] - lo[c] > box.range) {
          box.range = hi[c] - lo[c];
          box.channel = c;
        }
      }
      return box;
    };

    const std::size_t target = std::max<std::size_t>(1, limit - (transparent ? 1 : 0));
    std::vector<Box> boxes;
    if (!cells.empty()) boxes.push_back(measure(0, cells.size()));
    while (boxes.size() < target) {
      // The widest box, weighted by the pixels it holds, is split at its median.
      std::size_t pick = boxes.size();
      uint64_t bestScore = 0;
      for (std::size_t i = 0; i < boxes.size(); ++i) {
        const uint64_t score = uint64_t(boxes[i].range) * boxes[i].pixels;
        if (boxes[i].end - boxes[i].begin >= 2 && score > bestScore) {
          bestScore = score;
          pick = i;
        }
      }
      if (pick == boxes.size()) break;
      const Box box = boxes[pick];
      std::sort(cells.begin() + box.begin, cells.begin() + box.end,
                [c = box.channel](const Cell& a, const Cell& b) { return a.mean[c] < b.mean[c]; });
      uint64_t seen = 0;
      std::size_t split = box.begin;
      while (split < box.end - 1 && (seen += cells[split].count) < box.pixels / 2) ++split;
      split = std::min(split + 1, box.end - 1);
      boxes[pick] = measure(box.begin, split);
      boxes.push_back(measure(split, box.end));
    }

    binIndex_.assign(histogram.size(), 0);
    for (const Box& box : boxes) {
      uint64_t r = 0, g = 0, b = 0;
      for (std::size_t i = box.begin; i < box.end; ++i) {
        const Bin3& h = histogram[cells[i].bin];
        r += h.r;
        g += h.g;
        b += h.b;
        binIndex_[cells[i].bin] = static_cast<uint8_t>(entries_.size());
      }
      entries_.push_back(0xFF000000u | uint32_t(r / box.pixels) << 16 |
                         uint32_t(g / box.pixels) << 8 | uint32_t(b / box.pixels));
    }
    if (transparent) AddTransparent();
  }

  std::vector<gp::ARGB> entries_;
  int transparent_ = -1;
  bool exact_ = false;
  std::vector<uint32_t> exactColours_;
  std::vector<uint8_t> binIndex_;
};

// GDI+ does not always mark the transparent palette entry (Wine's never
// does), so the graphic control extension is set here: changed in place when
// the encoder wrote one, otherwise a new one goes in front of the first image.
struct GifPatch {
  bool ok = false;
  bool insert = false;
  std::size_t insertAt = 0;
};

GifPatch MarkTransparentIndex(std::span<uint8_t> gif, uint8_t index) {
  if (gif.size() < 13 || std::memcmp(gif.data(), "GIF8", 4) != 0) return {};
  gif[4] = '9';  // the extension needs version 89a; both have one length
  gif[5] = 'a';
  std::size_t pos = 13;
  if (gif[10] & 0x80) pos += std::size_t{3} << ((gif[10] & 7) + 1);
  while (pos < gif.size()) {
    if (gif[pos] == 0x2C) return {true, true, pos};
    if (gif[pos] != 0x21 || pos + 2 > gif.size()) return {};
    if (gif[pos + 1] == 0xF9) {
      if (pos + 8 > gif.size() || gif[pos + 2] != 4) return {};
      gif[pos + 3] |= 1;
      gif[pos + 6] = index;
      return {true, false, 0};
    }
    pos += 2;
    while (pos < gif.size() && gif[pos] != 0) pos += gif[pos] + 1;
    ++pos;
  }
  return {};
}

// ------------------------------------------------------------------ encoding

std::optional<CLSID> EncoderFor(const wchar_t* mimeType) {
  UINT count = 0, bytes = 0;
  if (gp::GetImageEncodersSize(&count, &bytes) != gp::Ok || bytes == 0) return std::nullopt;
  std::vector<uint64_t> buffer((bytes + 7) / 8);  // aligned for the pointers inside
  auto* codecs = reinterpret_cast<gp::ImageCodecInfo*>(buffer.data());
  if (gp::GetImageEncoders(count, bytes, codecs) != gp::Ok) return std::nullopt;
  for (UINT i = 0; i < count; ++i)
    if (codecs[i].MimeType && std::wcscmp(codecs[i].MimeType, mimeType) == 0)
      return codecs[i].Clsid;
  return std::nullopt;
}

bool IsOpaque(const Surface& pixels) {
  const uint32_t* px = pixels.Data();
  for (std::size_t i = 0; i < pixels.PixelCount(); ++i)
    if ((px[i] >> 24) != 0xFF) return false;
  return true;
}

// Calls `row(y, bytes)` for every row of the bitmap locked for writing.
template <typename RowFn>
bool WriteRows(gp::Bitmap& bitmap, gp::PixelFormat format, RowFn row) {
  if (bitmap.GetLastStatus() != gp::Ok) return false;
  gp::Rect rect(0, 0, static_cast<INT>(bitmap.GetWidth()), static_cast<INT>(bitmap.GetHeight()));
  gp::BitmapData data{};
  if (bitmap.LockBits(&rect, gp::ImageLockModeWrite, format, &data) != gp::Ok) return false;
  for (UINT y = 0; y < data.Height; ++y)
    row(static_cast<int32_t>(y), static_cast<uint8_t*>(data.Scan0) + ptrdiff_t(y) * data.Stride);
  return bitmap.UnlockBits(&data) == gp::Ok;
}

bool FillBgr(gp::Bitmap& bitmap, const Surface& pixels) {
  return WriteRows(bitmap, PixelFormat24bppRGB, [&](int32_t y, uint8_t* dst) {
    const uint32_t* src = pixels.Row(y);
    for (int32_t x = 0; x < pixels.Width(); ++x) {
      dst[x * 3] = static_cast<uint8_t>(src[x]);
      dst[x * 3 + 1] = static_cast<uint8_t>(src[x] >> 8);
      dst[x * 3 + 2] = static_cast<uint8_t>(src[x] >> 16);
    }
  });
}

// The stream the encoders write into: bytes in a vector that grows by
// doubling. A stream on an HGLOBAL grows to the exact size on every write,
// which makes a large PNG (written in small pieces) cost quadratic copying.
// It lives on its caller's stack; counting references keeps COM's rules
// but never frees it.
class GrowingStream final : public IStream {
 public:
  std::vector<uint8_t> bytes;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    if (iid == IID_IUnknown || iid == IID_ISequentialStream || iid == IID_IStream) {
      *out = static_cast<IStream*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs_; }

  HRESULT STDMETHODCALLTYPE Read(void* out, ULONG size, ULONG* read) override {
    const std::size_t n = at_ < bytes.size() ? std::min<std::size_t>(size, bytes.size() - at_) : 0;
    if (n) std::memcpy(out, bytes.data() + at_, n);
    at_ += n;
    if (read) *read = static_cast<ULONG>(n);
    return n == size ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Write(const void* data, ULONG size, ULONG* written) override {
    if (written) *written = 0;
    try {
      if (at_ + size > bytes.size()) {
        if (at_ + size > bytes.capacity()) bytes.reserve(std::max<std::size_t>(at_ + size, 2 * bytes.capacity()));
        bytes.resize(at_ + size);
      }
    } catch (const std::bad_alloc&) {
      return STG_E_MEDIUMFULL;
    }
    std::memcpy(bytes.data() + at_, data, size);
    at_ += size;
    if (written) *written = size;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override {
    const int64_t base = origin == STREAM_SEEK_SET ? 0
                         : origin == STREAM_SEEK_CUR ? int64_t(at_)
                         : origin == STREAM_SEEK_END ? int64_t(bytes.size())
                                                     : -1;
    if (base < 0 || base + move.QuadPart < 0) return STG_E_INVALIDFUNCTION;
    at_ = static_cast<std::size_t>(base + move.QuadPart);
    if (position) position->QuadPart = at_;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override {
    try {
      bytes.resize(static_cast<std::size_t>(size.QuadPart));
    } catch (const std::bad_alloc&) {
      return STG_E_MEDIUMFULL;
    }
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE Revert() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    return STG_E_INVALIDFUNCTION;
  }
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    return STG_E_INVALIDFUNCTION;
  }
  HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD) override {
    if (!stat) return E_POINTER;
    *stat = STATSTG{};
    stat->type = STGTY_STREAM;
    stat->cbSize.QuadPart = bytes.size();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return E_NOTIMPL; }

 private:
  ULONG refs_ = 1;
  std::size_t at_ = 0;
};

// The whole encoded file in memory, or nothing.
std::optional<std::vector<uint8_t>> EncodeToStream(gp::Bitmap& bitmap, const wchar_t* mimeType, int32_t dpi,
                                                   const gp::EncoderParameters* params) {
  if (bitmap.GetLastStatus() != gp::Ok) return std::nullopt;
  const std::optional<CLSID> encoder = EncoderFor(mimeType);
  if (!encoder) return std::nullopt;
  if (dpi > 0 && bitmap.SetResolution(gp::REAL(dpi), gp::REAL(dpi)) != gp::Ok) return std::nullopt;
  GrowingStream stream;
  if (bitmap.Save(&stream, &*encoder, params) != gp::Ok || stream.bytes.empty()) return std::nullopt;
  return std::move(stream.bytes);
}

// The system's PNG encoder may drop a palette's alpha; the one transparent
// entry then goes in as a tRNS chunk right after PLTE. Gives the chunk and
// where it goes, nothing when the file already has one or no palette.
struct PngPatch {
  std::vector<uint8_t> chunk;
  std::size_t insertAt = 0;
};
std::optional<PngPatch> TransparentIndexChunk(std::span<const uint8_t> png, int index) {
  std::size_t pos = 8, plteEnd = 0;
  while (pos + 12 <= png.size()) {
    const uint32_t length = uint32_t(png[pos]) << 24 | uint32_t(png[pos + 1]) << 16 | png[pos + 2] << 8 | png[pos + 3];
    const uint8_t* type = &png[pos + 4];
    if (length > png.size() - pos - 12) return std::nullopt;
    if (std::memcmp(type, "tRNS", 4) == 0) return std::nullopt;
    if (std::memcmp(type, "PLTE", 4) == 0) plteEnd = pos + 12 + length;
    if (std::memcmp(type, "IDAT", 4) == 0) break;
    pos += 12 + length;
  }
  if (plteEnd == 0) return std::nullopt;
  PngPatch patch;
  patch.insertAt = plteEnd;
  const uint32_t n = static_cast<uint32_t>(index) + 1;
  patch.chunk = {uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n), 't', 'R', 'N', 'S'};
  patch.chunk.insert(patch.chunk.end(), n - 1, 255);
  patch.chunk.push_back(0);
  uint32_t crc = 0xFFFFFFFFu;
  for (std::size_t i = 4; i < patch.chunk.size(); ++i) {
    crc ^= patch.chunk[i];
    for (int k = 0; k < 8; ++k) crc = crc >> 1 ^ (0xEDB88320u & (0u - (crc & 1)));
  }
  crc = ~crc;
  for (int shift = 24; shift >= 0; shift -= 8) patch.chunk.push_back(uint8_t(crc >> shift));
  return patch;
}

// The whole file is encoded in memory first; only a complete one reaches the
// disk, through the safe writer, so a failure leaves any old file as it was.
bool SaveBitmap(gp::Bitmap& bitmap, const wchar_t* mimeType, int32_t dpi,
                const gp::EncoderParameters* params, const std::filesystem::path& path,
                int gifTransparentIndex = -1, int pngTransparentIndex = -1) {
  std::optional<std::vector<uint8_t>> encoded = EncodeToStream(bitmap, mimeType, dpi, params);
  if (!encoded) return false;
  uint8_t* bytes = encoded->data();
  const std::size_t size = encoded->size();

  bool ok = true;
  // Bytes to insert into the encoder's output, and where.
  std::vector<uint8_t> insert;
  std::size_t insertAt = 0;
  if (gifTransparentIndex >= 0) {
    const GifPatch patch = MarkTransparentIndex({bytes, size}, static_cast<uint8_t>(gifTransparentIndex));
    ok = patch.ok;
    if (patch.insert) {
      insert = {0x21, 0xF9, 4, 1, 0, 0, static_cast<uint8_t>(gifTransparentIndex), 0};
      insertAt = patch.insertAt;
    }
  } else if (pngTransparentIndex >= 0) {
    if (auto patch = TransparentIndexChunk({bytes, size}, pngTransparentIndex)) {
      insert = std::move(patch->chunk);
      insertAt = patch->insertAt;
    }
  }
  if (ok) {
    SafeFileWriter writer(path);
    ok = writer.Open();
    if (ok && !insert.empty()) {
      writer.Write(bytes, insertAt);
      writer.Write(insert.data(), insert.size());
      writer.Write(bytes + insertAt, size - insertAt);
    } else if (ok) {
      writer.Write(bytes, size);
    }
    ok = ok && writer.Commit();
  }
  return ok;
}

// GIF, and PNG with "Reduce to 256 colors": eight bits per pixel through
// the palette above, alpha 0 as the one transparent entry.
bool SaveIndexed(const std::filesystem::path& path, const Surface& pixels, int32_t dpi,
                 int32_t paletteSize, bool gif) {
  const GifPalette palette(pixels, paletteSize);
  gp::Bitmap bitmap(pixels.Width(), pixels.Height(), PixelFormat8bppIndexed);
  if (bitmap.GetLastStatus() != gp::Ok) return false;
  struct {
    UINT flags;
    UINT count;
    gp::ARGB entries[256];
  } table{};
  table.flags = palette.TransparentIndex() >= 0 ? gp::PaletteFlagsHasAlpha : 0;
  table.count = static_cast<UINT>(palette.Entries().size());
  std::copy(palette.Entries().begin(), palette.Entries().end(), table.entries);
  if (bitmap.SetPalette(reinterpret_cast<const gp::ColorPalette*>(&table)) != gp::Ok) return false;
  const bool filled = WriteRows(bitmap, PixelFormat8bppIndexed, [&](int32_t y, uint8_t* dst) {
    const uint32_t* src = pixels.Row(y);
    for (int32_t x = 0; x < pixels.Width(); ++x) dst[x] = palette.IndexOf(src[x]);
  });
  if (!filled) return false;
  if (gif) return SaveBitmap(bitmap, L"image/gif", dpi, nullptr, path, palette.TransparentIndex());
  return SaveBitmap(bitmap, L"image/png", dpi, nullptr, path, -1, palette.TransparentIndex());
}

bool Encode(const std::filesystem::path& path, const Surface& pixels, int32_t dpi,
            const EncodeOptions& options) {
  if (pixels.Empty()) return false;
  const INT w = pixels.Width(), h = pixels.Height();
  switch (options.format) {
    case SaveFormat::Png:
    case SaveFormat::Tiff: {
      if (options.format == SaveFormat::Png && options.paletteSize >= 1 && options.paletteSize <= 256)
        return SaveIndexed(path, pixels, dpi, options.paletteSize, false);
      const wchar_t* mime = options.format == SaveFormat::Png ? L"image/png" : L"image/tiff";
      if (IsOpaque(pixels)) {  // 24 bits: a quarter smaller, and all that is there
        gp::Bitmap bitmap(w, h, PixelFormat24bppRGB);
        return FillBgr(bitmap, pixels) && SaveBitmap(bitmap, mime, dpi, nullptr, path);
      }
      // GDI+ reads the surface in place and never writes to it.
      gp::Bitmap bitmap(w, h, w * 4, PixelFormat32bppARGB,
                        reinterpret_cast<BYTE*>(const_cast<uint32_t*>(pixels.Data())));
      return SaveBitmap(bitmap, mime, dpi, nullptr, path);
    }
    case SaveFormat::Jpeg: {
      gp::Bitmap bitmap(w, h, PixelFormat24bppRGB);
      ULONG quality = static_cast<ULONG>(std::clamp(options.quality, 1, 100));
      gp::EncoderParameters params{};
      params.Count = 1;
      params.Parameter[0].Guid = gp::EncoderQuality;
      params.Parameter[0].Type = gp::EncoderParameterValueTypeLong;
      params.Parameter[0].NumberOfValues = 1;
      params.Parameter[0].Value = &quality;
      return FillBgr(bitmap, pixels) && SaveBitmap(bitmap, L"image/jpeg", dpi, &params, path);
    }
    case SaveFormat::Bmp: {
      gp::Bitmap bitmap(w, h, PixelFormat24bppRGB);
      return FillBgr(bitmap, pixels) && SaveBitmap(bitmap, L"image/bmp", dpi, nullptr, path);
    }
    case SaveFormat::Gif:
      return SaveIndexed(path, pixels, dpi, options.paletteSize, true);
    case SaveFormat::WebP:  // not a system codec: the WebP glue writes it
      return false;
  }
  return false;
}

const SystemCodec kGdiplusCodecs{&Decode, &Encode};

}  // namespace

bool StartGdiplusCodecs() {
  if (g_gdiplusToken != 0) return true;
  gp::GdiplusStartupInput input;
  if (gp::GdiplusStartup(&g_gdiplusToken, &input, nullptr) != gp::Ok) {
    g_gdiplusToken = 0;
    return false;
  }
  return true;
}

void StopGdiplusCodecs() {
  if (g_gdiplusToken == 0) return;
  gp::GdiplusShutdown(g_gdiplusToken);
  g_gdiplusToken = 0;
}

const SystemCodec& GdiplusCodecs() { return kGdiplusCodecs; }

std::optional<std::vector<uint8_t>> EncodePngInMemory(const Surface& pixels, int32_t dpi) {
  if (pixels.Empty()) return std::nullopt;
  // Always 32 bits: whoever reads it back expects the alpha channel.
  gp::Bitmap bitmap(pixels.Width(), pixels.Height(), pixels.Width() * 4, PixelFormat32bppARGB,
                    reinterpret_cast<BYTE*>(const_cast<uint32_t*>(pixels.Data())));
  return EncodeToStream(bitmap, L"image/png", dpi, nullptr);
}

std::optional<DecodedImage> DecodePngInMemory(std::span<const uint8_t> bytes) {
  if (Recognise(bytes) != Container::Png || !StatedSizeAllowed(Container::Png, bytes)) return std::nullopt;
  return DecodeWithGdiplus(bytes);
}

}  // namespace tavora

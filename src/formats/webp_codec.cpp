#include "formats/webp_codec.h"

#include <webp/decode.h>
#include <webp/demux.h>
#include <webp/encode.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "base/file_io.h"
#include "document/size_limits.h"

namespace tavora {
namespace {

constexpr int32_t kMaxWebpSide = 16383;

std::optional<std::vector<uint8_t>> ReadAll(const std::filesystem::path& path) {
  std::error_code ec;
  const uintmax_t size = std::filesystem::file_size(path, ec);
  if (ec || size == 0 || size > (uintmax_t{1} << 31)) return std::nullopt;
  FileReader in;
  if (!in.Open(path)) return std::nullopt;
  std::vector<uint8_t> bytes(static_cast<std::size_t>(size));
  if (!in.Read(bytes.data(), bytes.size())) return std::nullopt;
  return bytes;
}

// A BGRA buffer of libwebp's copied into a Surface of our own.
Surface CopyRows(const uint8_t* bgra, int32_t width, int32_t height, int32_t stride) {
  Surface s(width, height);
  for (int32_t y = 0; y < height; ++y)
    std::memcpy(s.Row(y), bgra + std::size_t(y) * std::size_t(stride), std::size_t(width) * 4);
  return s;
}

std::optional<WebpImage> DecodeAnimationFirstFrame(std::span<const uint8_t> bytes, bool hasAlpha) {
  WebPAnimDecoderOptions options;
  if (!WebPAnimDecoderOptionsInit(&options)) return std::nullopt;
  options.color_mode = MODE_BGRA;
  const WebPData data{bytes.data(), bytes.size()};
  WebPAnimDecoder* decoder = WebPAnimDecoderNew(&data, &options);
  if (!decoder) return std::nullopt;
  std::optional<WebpImage> out;
  WebPAnimInfo info;
  uint8_t* frame = nullptr;
  int timestamp = 0;
  if (WebPAnimDecoderGetInfo(decoder, &info) && CanvasSizeAllowed(int32_t(info.canvas_width), int32_t(info.canvas_height)) &&
      WebPAnimDecoderGetNext(decoder, &frame, &timestamp)) {
    const int32_t w = static_cast<int32_t>(info.canvas_width), h = static_cast<int32_t>(info.canvas_height);
    out = WebpImage{CopyRows(frame, w, h, w * 4), hasAlpha};
  }
  WebPAnimDecoderDelete(decoder);
  return out;
}

// A plain area-average reduction for the rare thumbnail the scaling decoder
// cannot make: each target pixel averages the source pixels it covers,
// colours weighted by alpha.
Surface Reduce(const Surface& src, int32_t w, int32_t h) {
  Surface out(w, h);
  const int32_t sw = src.Width(), sh = src.Height();
  for (int32_t y = 0; y < h; ++y) {
    const int32_t y0 = int32_t(int64_t(y) * sh / h), y1 = std::max(y0 + 1, int32_t(int64_t(y + 1) * sh / h));
    for (int32_t x = 0; x < w; ++x) {
      const int32_t x0 = int32_t(int64_t(x) * sw / w), x1 = std::max(x0 + 1, int32_t(int64_t(x + 1) * sw / w));
      uint64_t a = 0, c[3] = {0, 0, 0}, n = 0;
      for (int32_t sy = y0; sy < y1; ++sy)
        for (int32_t sx = x0; sx < x1; ++sx) {
          const uint32_t p = src.At(sx, sy), pa = p >> 24;
          a += pa;
          for (int k = 0; k < 3; ++k) c[k] += ((p >> (8 * k)) & 255) * pa;
          ++n;
        }
      uint32_t q = uint32_t((a + n / 2) / n) << 24;
      if (a)
        for (int k = 0; k < 3; ++k) q |= uint32_t((c[k] + a / 2) / a) << (8 * k);
      out.At(x, y) = q;
    }
  }
  return out;
}

}  // namespace

bool IsWebpExtension(const std::filesystem::path& path) {
  std::u16string ext = path.extension().u16string();
  for (char16_t& c : ext) c = (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c;
  return ext == u".webp";
}

std::optional<WebpImage> DecodeWebp(std::span<const uint8_t> bytes) {
  WebPBitstreamFeatures features;
  if (bytes.empty() || WebPGetFeatures(bytes.data(), bytes.size(), &features) != VP8_STATUS_OK) return std::nullopt;
  if (features.has_animation) return DecodeAnimationFirstFrame(bytes, features.has_alpha != 0);
  if (!CanvasSizeAllowed(features.width, features.height)) return std::nullopt;
  int width = 0, height = 0;
  uint8_t* decoded = WebPDecodeBGRA(bytes.data(), bytes.size(), &width, &height);
  if (!decoded) return std::nullopt;
  WebpImage image{CopyRows(decoded, width, height, width * 4), features.has_alpha != 0};
  WebPFree(decoded);
  return image;
}

std::optional<WebpImage> ReadWebpFile(const std::filesystem::path& path) {
  const auto bytes = ReadAll(path);
  return bytes ? DecodeWebp(*bytes) : std::nullopt;
}

std::optional<WebpImage> DecodeWebpThumbnail(std::span<const uint8_t> bytes, int32_t longestSide) {
  WebPBitstreamFeatures features;
  if (bytes.empty() || longestSide < 1 || WebPGetFeatures(bytes.data(), bytes.size(), &features) != VP8_STATUS_OK ||
      features.width < 1 || features.height < 1)
    return std::nullopt;
  // A few bytes can claim a huge lossless picture; a thumbnail is refused
  // where the picture itself would be, not decoded at full cost first.
  if (!features.has_animation && !CanvasSizeAllowed(features.width, features.height)) return std::nullopt;
  const double scale = std::min(1.0, double(longestSide) / std::max(features.width, features.height));
  const int32_t w = std::max(1, static_cast<int32_t>(features.width * scale + 0.5));
  const int32_t h = std::max(1, static_cast<int32_t>(features.height * scale + 0.5));
  WebPDecoderConfig config;
  if (!features.has_animation && WebPInitDecoderConfig(&config)) {
    config.output.colorspace = MODE_BGRA;
    if (scale < 1) {
      config.options.use_scaling = 1;
      config.options.scaled_width = w;
      config.options.scaled_height = h;
    }
    if (WebPDecode(bytes.data(), bytes.size(), &config) == VP8_STATUS_OK) {
      const WebPRGBABuffer& rgba = config.output.u.RGBA;
      WebpImage image{CopyRows(rgba.rgba, config.output.width, config.output.height, rgba.stride),
                      features.has_alpha != 0};
      WebPFreeDecBuffer(&config.output);
      return image;
    }
    WebPFreeDecBuffer(&config.output);
  }
  // Animations and anything the scaling decoder refuses: decode whole, then
  // reduce by area average.
  auto full = DecodeWebp(bytes);
  if (!full || scale >= 1) return full;
  full->pixels = Reduce(full->pixels, w, h);
  return full;
}

std::optional<WebpImage> ReadWebpThumbnail(const std::filesystem::path& path, int32_t longestSide) {
  const auto bytes = ReadAll(path);
  return bytes ? DecodeWebpThumbnail(*bytes, longestSide) : std::nullopt;
}

std::optional<std::vector<uint8_t>> EncodeWebp(const Surface& pixels, int32_t quality, bool lossless) {
  const int32_t w = pixels.Width(), h = pixels.Height();
  if (w < 1 || h < 1 || w > kMaxWebpSide || h > kMaxWebpSide) return std::nullopt;
  WebPConfig config;
  if (!WebPConfigInit(&config)) return std::nullopt;  // the default preset at quality 75
  config.method = 4;
  config.lossless = lossless ? 1 : 0;
  config.quality = static_cast<float>(std::clamp(quality, 1, 100));
  if (lossless) config.exact = 1;  // keep the colour under transparent pixels
  if (!WebPValidateConfig(&config)) return std::nullopt;
  WebPPicture picture;
  if (!WebPPictureInit(&picture)) return std::nullopt;
  picture.width = w;
  picture.height = h;
  picture.use_argb = lossless ? 1 : 0;
  WebPMemoryWriter writer;
  WebPMemoryWriterInit(&writer);
  std::optional<std::vector<uint8_t>> out;
  if (WebPPictureImportBGRA(&picture, reinterpret_cast<const uint8_t*>(pixels.Data()), w * 4)) {
    picture.writer = WebPMemoryWrite;
    picture.custom_ptr = &writer;
    if (WebPEncode(&config, &picture)) out = std::vector<uint8_t>(writer.mem, writer.mem + writer.size);
  }
  WebPPictureFree(&picture);
  WebPMemoryWriterClear(&writer);
  return out;
}

bool WriteWebpFile(const std::filesystem::path& path, const Surface& pixels, int32_t quality, bool lossless) {
  const auto bytes = EncodeWebp(pixels, quality, lossless);
  if (!bytes) return false;
  SafeFileWriter out(path);
  if (!out.Open()) return false;
  out.Write(bytes->data(), bytes->size());
  return out.Commit();
}

}  // namespace tavora

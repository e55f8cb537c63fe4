#include "platform/wic_scaled_decode_win32.h"

#include <windows.h>
#include <wincodec.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "document/size_limits.h"

namespace tavora {
namespace {

// Defined here so that no import library of the component is needed; it is
// reached through COM alone.
constexpr CLSID kImagingFactory = {0xcacaf262, 0x9370, 0x4615, {0xa1, 0x3b, 0x9f, 0x55, 0x39, 0xda, 0x4c, 0x0a}};
constexpr GUID kBgra = {0x6fddc324, 0x4e03, 0x4bfe, {0xb1, 0x85, 0x3d, 0x77, 0x76, 0x8d, 0xc9, 0x0f}};
constexpr IID kSourceTransformId = {0x3b16811b, 0x6a43, 0x4ec9, {0xb7, 0x13, 0x3d, 0x5a, 0x0c, 0x13, 0xb9, 0x40}};

// The decoder-side scaling interface, which the MinGW headers lack; the
// methods in the order of the component's own declaration.
struct ISourceTransform : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CopyPixels(const WICRect* rect, UINT width, UINT height, WICPixelFormatGUID* format,
                                               WICBitmapTransformOptions transform, UINT stride, UINT bufferSize,
                                               BYTE* buffer) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetClosestSize(UINT* width, UINT* height) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetClosestPixelFormat(WICPixelFormatGUID* format) = 0;
  virtual HRESULT STDMETHODCALLTYPE DoesSupportTransform(WICBitmapTransformOptions transform, BOOL* supported) = 0;
};

template <typename T>
class Com {
 public:
  Com() = default;
  Com(const Com&) = delete;
  Com& operator=(const Com&) = delete;
  ~Com() {
    if (p_) p_->Release();
  }
  T** Out() { return &p_; }
  T* operator->() const { return p_; }
  T* get() const { return p_; }
  explicit operator bool() const { return p_ != nullptr; }

 private:
  T* p_ = nullptr;
};

// The size FitWithin would give, without pulling in the browse layer.
void Fit(UINT w, UINT h, int32_t bw, int32_t bh, UINT& tw, UINT& th) {
  if (w <= UINT(bw) && h <= UINT(bh)) {
    tw = w;
    th = h;
  } else if (uint64_t(w) * bh >= uint64_t(h) * bw) {
    tw = bw;
    th = std::clamp<UINT>(static_cast<UINT>((uint64_t(h) * bw + w / 2) / w), 1, bh);
  } else {
    th = bh;
    tw = std::clamp<UINT>(static_cast<UINT>((uint64_t(w) * bh + h / 2) / h), 1, bw);
  }
}

// Copies a BGRA source of width x height into a Surface.
std::optional<Surface> CopyBgra(IWICBitmapSource* source, UINT width, UINT height) {
  Surface out(static_cast<int32_t>(width), static_cast<int32_t>(height));
  const UINT stride = width * 4;
  if (FAILED(source->CopyPixels(nullptr, stride, stride * height, reinterpret_cast<BYTE*>(out.Data()))))
    return std::nullopt;
  return out;
}

// Through a scaler (when the size changes) and a converter to BGRA.
std::optional<Surface> ScaleAndConvert(IWICImagingFactory* factory, IWICBitmapSource* source, UINT tw, UINT th) {
  UINT w = 0, h = 0;
  if (FAILED(source->GetSize(&w, &h))) return std::nullopt;
  Com<IWICBitmapScaler> scaler;
  IWICBitmapSource* scaled = source;
  if (w != tw || h != th) {
    if (FAILED(factory->CreateBitmapScaler(scaler.Out())) ||
        FAILED(scaler->Initialize(source, tw, th, WICBitmapInterpolationModeFant)))
      return std::nullopt;
    scaled = scaler.get();
  }
  Com<IWICFormatConverter> converter;
  if (FAILED(factory->CreateFormatConverter(converter.Out())) ||
      FAILED(converter->Initialize(scaled, kBgra, WICBitmapDitherTypeNone, nullptr, 0.0,
                                   WICBitmapPaletteTypeCustom)))
    return std::nullopt;
  return CopyBgra(converter.get(), tw, th);
}

}  // namespace

std::optional<ScaledPicture> DecodeScaledWithWic(const std::filesystem::path& path, int32_t boxWidth,
                                                 int32_t boxHeight) {
  if (boxWidth <= 0 || boxHeight <= 0) return std::nullopt;
  Com<IWICImagingFactory> factory;
  if (FAILED(CoCreateInstance(kImagingFactory, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IWICImagingFactory),
                              reinterpret_cast<void**>(factory.Out()))))
    return std::nullopt;
  Com<IWICBitmapDecoder> decoder;
  if (FAILED(factory->CreateDecoderFromFilename(path.c_str(), nullptr, GENERIC_READ,
                                                WICDecodeMetadataCacheOnDemand, decoder.Out())))
    return std::nullopt;
  Com<IWICBitmapFrameDecode> frame;
  if (FAILED(decoder->GetFrame(0, frame.Out()))) return std::nullopt;
  UINT w = 0, h = 0;
  if (FAILED(frame->GetSize(&w, &h)) || w == 0 || h == 0 || w > UINT(kMaxCanvasSide) * 4 ||
      h > UINT(kMaxCanvasSide) * 4)
    return std::nullopt;
  UINT tw = 0, th = 0;
  Fit(w, h, boxWidth, boxHeight, tw, th);
  ScaledPicture result;
  result.width = static_cast<int32_t>(w);
  result.height = static_cast<int32_t>(h);

  // A camera's own thumbnail, when it holds at least the pixels asked for.
  {
    Com<IWICBitmapSource> embedded;
    UINT ew = 0, eh = 0;
    if (SUCCEEDED(frame->GetThumbnail(embedded.Out())) && embedded && SUCCEEDED(embedded->GetSize(&ew, &eh)) &&
        ew >= tw && eh >= th && ew > 0 && eh > 0 &&
        // The same shape as the picture (not a letterboxed 160 x 120 of a portrait).
        std::abs(double(ew) / eh - double(w) / h) < 0.02) {
      if (auto pixels = ScaleAndConvert(factory.get(), embedded.get(), tw, th)) {
        result.pixels = std::move(*pixels);
        return result;
      }
    }
  }

  // Scaling inside the decoder: the closest size it can make at or above the target.
  Com<ISourceTransform> transform;
  if ((tw != w || th != h) &&
      SUCCEEDED(frame->QueryInterface(kSourceTransformId, reinterpret_cast<void**>(transform.Out())))) {
    UINT cw = tw, ch = th;
    WICPixelFormatGUID format = kBgra;
    if (SUCCEEDED(transform->GetClosestSize(&cw, &ch)) && cw >= tw && ch >= th && cw <= w && ch <= h &&
        SUCCEEDED(transform->GetClosestPixelFormat(&format)) && IsEqualGUID(format, kBgra)) {
      Surface decoded(static_cast<int32_t>(cw), static_cast<int32_t>(ch));
      const UINT stride = cw * 4;
      if (SUCCEEDED(transform->CopyPixels(nullptr, cw, ch, &format, WICBitmapTransformRotate0, stride,
                                          stride * ch, reinterpret_cast<BYTE*>(decoded.Data())))) {
        // Cheap to finish in the component from here: the picture is small now.
        Com<IWICBitmap> bitmap;
        if (cw == tw && ch == th) {
          result.pixels = std::move(decoded);
          return result;
        }
        if (SUCCEEDED(factory->CreateBitmapFromMemory(cw, ch, kBgra, stride, stride * ch,
                                                      reinterpret_cast<BYTE*>(decoded.Data()), bitmap.Out()))) {
          if (auto pixels = ScaleAndConvert(factory.get(), bitmap.get(), tw, th)) {
            result.pixels = std::move(*pixels);
            return result;
          }
        }
      }
    }
  }

  auto pixels = ScaleAndConvert(factory.get(), frame.get(), tw, th);
  if (!pixels) return std::nullopt;
  result.pixels = std::move(*pixels);
  return result;
}

}  // namespace tavora

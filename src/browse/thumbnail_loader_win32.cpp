#include "browse/thumbnail_loader_win32.h"

#include <objbase.h>

#include <cwctype>
#include <span>
#include <utility>

#include "base/file_io.h"
#include "document/composite.h"
#include "formats/file_formats.h"
#include "formats/jpeg_dc_decode.h"
#include "formats/layered_format.h"
#include "formats/psd_reader.h"
#include "formats/radiance_hdr.h"
#include "formats/webp_codec.h"
#include "platform/codec_bridge.h"
#include "platform/wic_scaled_decode_win32.h"

namespace tavora {
namespace {

bool IsJpegName(const std::filesystem::path& path) {
  std::wstring ext = path.extension().wstring();
  for (wchar_t& c : ext) c = static_cast<wchar_t>(towlower(c));
  return ext == L".jpg" || ext == L".jpeg" || ext == L".jpe";
}

}  // namespace

std::optional<Surface> DecodeForBrowse(const std::filesystem::path& path, int32_t box, int32_t& width,
                                       int32_t& height) {
  std::optional<Surface> full;
  switch (ClassifyFile(path)) {
    case FileClass::WebP: {
      if (auto thumb = ReadWebpThumbnail(path, box)) {
        width = thumb->pixels.Width();
        height = thumb->pixels.Height();
        return std::move(thumb->pixels);
      }
      return std::nullopt;
    }
    case FileClass::NativeLayered:
      if (auto doc = ReadLayeredDocument(path)) full = FlatCopy(*doc, 0, Matte::None);
      break;
    case FileClass::Photoshop:
      if (auto picture = ReadPsdFlattened(path)) full = std::move(picture->pixels);
      break;
    case FileClass::RadianceHdr:
      if (auto doc = ReadRadianceHdr(path, 0.0f)) full = FlatCopy(*doc, 0, Matte::None);
      break;
    case FileClass::SystemCodec:
      if (IsJpegName(path)) {
        // A photograph's blocks averaged, when that still fills the box.
        if (const auto bytes = ReadWholeFile(path)) {
          auto dc = DecodeJpegDc(std::span(reinterpret_cast<const uint8_t*>(bytes->data()), bytes->size()));
          if (dc) {
            const PixelSize wanted = FitWithin(dc->width, dc->height, box, box);
            if (dc->pixels.Width() >= wanted.width && dc->pixels.Height() >= wanted.height) {
              width = dc->width;
              height = dc->height;
              return ShrinkToFit(dc->pixels, wanted.width, wanted.height);
            }
          }
        }
      }
      // The component scales while decoding; the full decode is the fallback
      // for what it cannot read (icons, damaged files the codec forgives).
      if (auto scaled = DecodeScaledWithWic(path, box, box)) {
        width = scaled->width;
        height = scaled->height;
        return std::move(scaled->pixels);
      }
      if (const SystemCodec* codec = CurrentSystemCodec(); codec && codec->decode)
        if (auto decoded = codec->decode(path)) full = std::move(decoded->pixels);
      break;
  }
  if (!full || full->Empty()) return std::nullopt;
  width = full->Width();
  height = full->Height();
  return ShrinkToFit(*full, box, box);
}

struct ThumbnailLoader::Shared {
  CRITICAL_SECTION lock;
  CONDITION_VARIABLE wake;
  HWND notify = nullptr;
  UINT message = 0;
  bool stop = false;
  LoaderRequest request;
  std::vector<ThumbState> states;
  bool previewTaken = true;  // the requested preview is under way or done
  std::vector<LoadedThumb> thumbs;
  std::optional<LoadedPreview> preview;
  int32_t working = 0;
};

ThumbnailLoader::ThumbnailLoader(HWND notify, UINT message) : shared_(std::make_unique<Shared>()) {
  InitializeCriticalSection(&shared_->lock);
  InitializeConditionVariable(&shared_->wake);
  shared_->notify = notify;
  shared_->message = message;
  for (int i = 0; i < 2; ++i)
    if (HANDLE h = CreateThread(nullptr, 0, &ThreadMain, this, 0, nullptr)) threads_.push_back(h);
}

ThumbnailLoader::~ThumbnailLoader() {
  EnterCriticalSection(&shared_->lock);
  shared_->stop = true;
  LeaveCriticalSection(&shared_->lock);
  WakeAllConditionVariable(&shared_->wake);
  for (HANDLE h : threads_) {
    WaitForSingleObject(h, INFINITE);
    CloseHandle(h);
  }
  DeleteCriticalSection(&shared_->lock);
}

bool ThumbnailLoader::TrySync(const LoaderRequest& request, std::vector<LoadedThumb>& thumbs,
                              std::optional<LoadedPreview>& preview) {
  Shared& s = *shared_;
  if (!TryEnterCriticalSection(&s.lock)) return false;
  bool wake = false;
  if (request.generation != s.request.generation || request.thumbBox != s.request.thumbBox) {
    // Another folder (or size): what was found or under way for the old one is dropped.
    s.request.generation = request.generation;
    s.request.files = request.files;
    s.request.thumbBox = request.thumbBox;
    s.states.assign(request.files.size(), ThumbState::Waiting);
    for (std::size_t i = 0; i < request.files.size(); ++i)
      if (request.files[i].empty()) s.states[i] = ThumbState::Done;
    s.thumbs.clear();
    wake = true;
  }
  if (request.firstVisible != s.request.firstVisible || request.lastVisible != s.request.lastVisible) {
    s.request.firstVisible = request.firstVisible;
    s.request.lastVisible = request.lastVisible;
  }
  if (request.preview != s.request.preview || request.previewBox != s.request.previewBox) {
    s.request.preview = request.preview;
    s.request.previewBox = request.previewBox;
    s.previewTaken = request.preview.empty();
    s.preview.reset();
    wake = true;
  }
  thumbs = std::move(s.thumbs);
  s.thumbs.clear();
  preview = std::move(s.preview);
  s.preview.reset();
  busy_ = s.working > 0 || !s.previewTaken || NextThumbnail(s.states, 0, 0) >= 0;
  LeaveCriticalSection(&s.lock);
  if (wake) WakeAllConditionVariable(&s.wake);
  return true;
}

DWORD WINAPI ThumbnailLoader::ThreadMain(void* self) {
  // The imaging component needs COM on each thread that uses it.
  const HRESULT com = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  static_cast<ThumbnailLoader*>(self)->Work();
  if (SUCCEEDED(com)) CoUninitialize();
  return 0;
}

void ThumbnailLoader::Work() {
  Shared& s = *shared_;
  EnterCriticalSection(&s.lock);
  while (!s.stop) {
    const int32_t generation = s.request.generation;
    std::filesystem::path path;
    int32_t index = -1, box = 0;
    const bool previewJob = !s.previewTaken;
    if (previewJob) {
      // The preview comes before any thumbnail: it is what the user looks at.
      s.previewTaken = true;
      path = s.request.preview;
      box = s.request.previewBox;
    } else {
      index = NextThumbnail(s.states, s.request.firstVisible, s.request.lastVisible);
      if (index < 0) {
        SleepConditionVariableCS(&s.wake, &s.lock, INFINITE);
        continue;
      }
      s.states[index] = ThumbState::Loading;
      path = s.request.files[index];
      box = s.request.thumbBox;
    }
    ++s.working;
    LeaveCriticalSection(&s.lock);

    int32_t width = 0, height = 0;
    std::optional<Surface> pixels = DecodeForBrowse(path, box, width, height);

    EnterCriticalSection(&s.lock);
    --s.working;
    bool ready = false;
    if (previewJob) {
      if (path == s.request.preview) {
        s.preview = LoadedPreview{path, pixels ? std::move(*pixels) : Surface(), width, height};
        ready = true;
      }
    } else if (generation == s.request.generation && index < static_cast<int32_t>(s.states.size())) {
      s.states[index] = ThumbState::Done;
      s.thumbs.push_back({index, pixels ? std::move(*pixels) : Surface()});
      ready = true;
    }
    if (ready) PostMessageW(s.notify, s.message, 0, 0);
  }
  LeaveCriticalSection(&s.lock);
}

}  // namespace tavora

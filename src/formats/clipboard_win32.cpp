#include "formats/clipboard_win32.h"

#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "document/size_limits.h"
#include "platform/gdiplus_codecs_win32.h"

namespace tavora {
namespace {

// What this process last put on the clipboard, exactly: other programs may
// drop the alpha or the position on the way back.
struct PrivateCopy {
  Surface pixels;
  Rect from;
  DWORD sequence = 0;
};
std::optional<PrivateCopy> g_copy;

UINT PngFormat() {
  static const UINT format = RegisterClipboardFormatW(L"PNG");
  return format;
}

// Open for as long as it lives. Another program may hold the clipboard for
// a moment, so opening is tried a few times.
class OpenClipboardScope {
 public:
  explicit OpenClipboardScope(HWND owner) {
    for (int attempt = 0; attempt < 5 && !open_; ++attempt) {
      open_ = OpenClipboard(owner) != FALSE;
      if (!open_) Sleep(20);
    }
  }
  ~OpenClipboardScope() {
    if (open_) CloseClipboard();
  }
  OpenClipboardScope(const OpenClipboardScope&) = delete;
  OpenClipboardScope& operator=(const OpenClipboardScope&) = delete;
  explicit operator bool() const { return open_; }

 private:
  bool open_ = false;
};

// A movable global block holding the bytes, as the clipboard takes them.
HGLOBAL GlobalBlockWith(std::span<const uint8_t> bytes) {
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, bytes.size());
  if (!block) return nullptr;
  void* target = GlobalLock(block);
  if (!target) {
    GlobalFree(block);
    return nullptr;
  }
  std::memcpy(target, bytes.data(), bytes.size());
  GlobalUnlock(block);
  return block;
}

// Hands the bytes of a memory-block format to `parse`; the clipboard must be
// open. A block may be larger than its contents, never smaller.
template <typename Parse>
auto ReadBlock(UINT format, Parse parse) -> decltype(parse(std::span<const uint8_t>())) {
  if (!format || !IsClipboardFormatAvailable(format)) return std::nullopt;
  HANDLE handle = GetClipboardData(format);
  if (!handle) return std::nullopt;
  const SIZE_T size = GlobalSize(handle);
  const auto* bytes = static_cast<const uint8_t*>(GlobalLock(handle));
  if (!bytes) return std::nullopt;
  auto result = parse(std::span<const uint8_t>(bytes, size));
  GlobalUnlock(handle);
  return result;
}

std::optional<Surface> ParsePng(std::span<const uint8_t> bytes) {
  std::optional<DecodedImage> image = DecodePngInMemory(bytes);
  if (!image) return std::nullopt;
  return std::move(image->pixels);
}

// A device-dependent bitmap carries no alpha: read as 32 bits, made opaque.
std::optional<Surface> ReadBitmap() {
  if (!IsClipboardFormatAvailable(CF_BITMAP)) return std::nullopt;
  auto* bitmap = static_cast<HBITMAP>(GetClipboardData(CF_BITMAP));
  BITMAP info{};
  if (!bitmap || GetObjectW(bitmap, sizeof info, &info) != sizeof info) return std::nullopt;
  if (info.bmWidth <= 0 || info.bmHeight <= 0 ||
      int64_t(info.bmWidth) * int64_t(info.bmHeight) >= int64_t(kMaxCanvasPixels))
    return std::nullopt;
  Surface out(info.bmWidth, info.bmHeight);
  BITMAPINFO header{};
  header.bmiHeader.biSize = sizeof header.bmiHeader;
  header.bmiHeader.biWidth = info.bmWidth;
  header.bmiHeader.biHeight = -info.bmHeight;  // top-down
  header.bmiHeader.biPlanes = 1;
  header.bmiHeader.biBitCount = 32;
  header.bmiHeader.biCompression = BI_RGB;
  HDC screen = GetDC(nullptr);
  const int rows = GetDIBits(screen, bitmap, 0, static_cast<UINT>(info.bmHeight), out.Data(), &header,
                             DIB_RGB_COLORS);
  ReleaseDC(nullptr, screen);
  if (rows != info.bmHeight) return std::nullopt;
  uint32_t* p = out.Data();
  for (std::size_t i = 0, n = out.PixelCount(); i < n; ++i) p[i] |= 0xFF000000u;
  return out;
}

}  // namespace

bool PutOnClipboard(HWND owner, CopiedPixels copy, int32_t dpi) {
  if (copy.pixels.Empty()) return false;
  // The block is made before the clipboard is opened, so it is held only for
  // the moment of the exchange. Only CF_DIBV5 is offered: the system makes
  // CF_DIB and CF_BITMAP from it for older readers.
  HGLOBAL dib = GlobalBlockWith(BuildDibV5(copy.pixels, dpi));
  if (!dib) return false;
  bool placed = false;
  {
    OpenClipboardScope open(owner);
    // Once set, the block belongs to the clipboard.
    if (open && EmptyClipboard()) placed = SetClipboardData(CF_DIBV5, dib) != nullptr;
  }
  if (!placed) GlobalFree(dib);
  if (placed) g_copy = PrivateCopy{std::move(copy.pixels), copy.from, GetClipboardSequenceNumber()};
  return placed;
}

bool CopyToClipboard(HWND owner, Document& doc) {
  std::optional<CopiedPixels> copy = CopySelectedPixels(doc);
  return copy && PutOnClipboard(owner, std::move(*copy), doc.dpi);
}

std::optional<ClipboardPicture> ReadClipboardPicture(HWND owner) {
  // Without clipboard access the number is 0 and says nothing.
  const DWORD sequence = GetClipboardSequenceNumber();
  if (g_copy && sequence != 0 && sequence == g_copy->sequence)
    return ClipboardPicture{g_copy->pixels, g_copy->from};
  OpenClipboardScope open(owner);
  if (!open) return std::nullopt;
  std::optional<Surface> pixels = ReadBlock(PngFormat(), &ParsePng);
  if (!pixels) pixels = ReadBlock(CF_DIBV5, &ParseDibV5);
  if (!pixels) pixels = ReadBlock(CF_DIB, &ParseDib32);
  if (!pixels) pixels = ReadBitmap();
  if (!pixels || pixels->Empty()) return std::nullopt;
  return ClipboardPicture{std::move(*pixels), std::nullopt};
}

std::unique_ptr<Document> PasteFromClipboard(HWND owner, Document* doc, PasteTarget target) {
  std::optional<ClipboardPicture> picture = ReadClipboardPicture(owner);
  if (!picture) return nullptr;
  if (target == PasteTarget::NewImage || !doc) {
    if (!CanvasSizeAllowed(picture->pixels.Width(), picture->pixels.Height())) return nullptr;
    std::unique_ptr<Document> fresh = DocumentFromPicture(std::move(picture->pixels), kDefaultDpi);
    // Only the clipboard holds it: closing the tab must ask.
    fresh->modified = true;
    return fresh;
  }
  PasteAsLayer(*doc, std::move(picture->pixels), picture->from);
  return nullptr;
}

void ForgetClipboardCopy() { g_copy.reset(); }

}  // namespace tavora

#include "document/document.h"

#include <algorithm>
#include <atomic>
#include <string_view>

namespace tavora {
namespace {

// Batch workers read documents in parallel, so numbers are taken atomically.
std::atomic<int32_t> g_untitledCounter{0};

std::u16string AsciiToU16(std::string_view ascii) { return {ascii.begin(), ascii.end()}; }

std::u16string NumberToU16(int64_t n) { return AsciiToU16(std::to_string(n)); }

bool NameTaken(const Document& doc, int32_t ignore, std::u16string_view name) {
  for (int32_t i = 0; i < doc.LayerCount(); ++i) {
    if (i != ignore && doc.layers[i].Name() == name) return true;
  }
  return false;
}

}  // namespace

int32_t TakeUntitledNumber() { return ++g_untitledCounter; }

std::unique_ptr<Document> CreateDocument(int32_t width, int32_t height, int32_t dpi,
                                         uint32_t fillColor, int32_t colorCount) {
  auto doc = std::make_unique<Document>();
  doc->width = width;
  doc->height = height;
  doc->dpi = dpi < 1 ? kDefaultDpi : dpi;
  doc->compositeDirty = doc->Bounds();
  doc->layers.reserve(8);
  doc->history.states.reserve(32);

  Layer background(width, height, u"Background");
  background.pixels.Fill(fillColor);
  background.opaqueBackground = (fillColor >> 24) > 254;
  doc->layers.push_back(std::move(background));
  doc->active = 0;

  doc->colorCount = colorCount < 1 ? kFullColorCount : colorCount;
  doc->untitledNumber = TakeUntitledNumber();
  SetTitle(*doc);
  return doc;
}

std::unique_ptr<Document> DocumentFromPicture(Surface pixels, int32_t dpi) {
  auto doc = std::make_unique<Document>();
  doc->width = pixels.Width();
  doc->height = pixels.Height();
  doc->dpi = dpi < 1 ? kDefaultDpi : dpi;
  doc->compositeDirty = doc->Bounds();
  doc->layers.reserve(8);
  doc->history.states.reserve(32);
  Layer background;
  background.SetName(u"Background");
  const uint32_t* p = pixels.Data();
  bool opaque = true;
  for (std::size_t i = 0, n = pixels.PixelCount(); i < n && opaque; ++i) opaque = p[i] >> 24 == 255;
  background.opaqueBackground = opaque;
  background.pixels = std::move(pixels);
  background.effectsDirty = doc->Bounds();
  doc->layers.push_back(std::move(background));
  doc->untitledNumber = TakeUntitledNumber();
  SetTitle(*doc);
  return doc;
}

Layer* ActiveLayer(Document* doc) {
  if (!doc || doc->layers.empty()) return nullptr;
  doc->active = std::clamp(doc->active, 0, doc->LayerCount() - 1);
  return &doc->layers[doc->active];
}

void SetTitle(Document& doc) {
  // Both separators count, whatever the build: paths come from Windows.
  const std::u16string full = doc.path.u16string();
  if (!full.empty()) {
    const std::size_t cut = full.find_last_of(u"\\/");
    const std::u16string_view name =
        std::u16string_view(full).substr(cut == std::u16string::npos ? 0 : cut + 1);
    doc.title = std::u16string(TruncateUtf16(name, kMaxTitleLength));
    return;
  }
  doc.title = u"Untitled-" + NumberToU16(doc.untitledNumber == 0 ? 1 : doc.untitledNumber);
}

std::u16string UniqueLayerName(const Document& doc, int32_t ignore, std::u16string_view base) {
  const std::u16string cut(TruncateUtf16(base, 55));
  std::u16string candidate = cut;
  // Gives up at 100,000 and keeps the last candidate.
  for (int32_t n = 2; n <= 100000 && NameTaken(doc, ignore, candidate); ++n) {
    candidate = cut + u" " + NumberToU16(n);
  }
  return candidate;
}

std::u16string NewLayerName(const Document& doc) {
  for (int64_t n = doc.LayerCount() + 1;; ++n) {
    std::u16string candidate = u"Layer " + NumberToU16(n);
    if (!NameTaken(doc, -1, candidate)) return candidate;
  }
}

std::u16string DuplicateLayerName(const Document& doc, std::u16string_view sourceName) {
  constexpr std::u16string_view kSuffix = u" copy";
  std::u16string_view stem = sourceName;
  if (stem.size() > 4 && stem.ends_with(kSuffix)) stem.remove_suffix(kSuffix.size());
  return UniqueLayerName(doc, -1, std::u16string(TruncateUtf16(stem, 50)) + std::u16string(kSuffix));
}

}  // namespace tavora

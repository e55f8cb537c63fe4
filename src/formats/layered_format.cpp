#include "formats/layered_format.h"

#include <algorithm>
#include <cstring>

#include "document/blend.h"
#include "document/size_limits.h"
#include "base/file_io.h"
#include "base/system_paths.h"
#include "formats/byte_input.h"

namespace tavora {
namespace {

constexpr int32_t kMaxLayers = 1000;
constexpr int kNameUnits = 64;
constexpr uint32_t kAngleBias = 720;
constexpr uint32_t kMaxRun = 2147483647u;

// The layout number, 1 to 4, is the last character of the magic.
constexpr char kMagic[4][5] = {"KZL1", "KZL2", "KZL3", "KZL4"};

int32_t Clamp(uint32_t word, int32_t lo, int32_t hi) {
  return std::clamp(static_cast<int32_t>(word), lo, hi);
}

// ---------------------------------------------------------------- writing

int LayoutFor(const Document& doc) {
  bool stroke = false, bloom = false;
  for (const Layer& l : doc.layers) {
    stroke |= l.effects.stroke.on;
    bloom |= l.effects.bloom.on;
  }
  return bloom ? 4 : stroke ? 3 : 2;
}

void WriteShadowGlow(SafeFileWriter& out, const ShadowGlowEffect& e) {
  out.WriteU32(e.on);
  out.WriteU32(static_cast<uint32_t>(e.offsetX));
  // Offset Y keeps only its low 16 bits: the option flag rides above them.
  out.WriteU32((static_cast<uint32_t>(e.offsetY) & 0xFFFFu) | (e.option ? 1u << 16 : 0u));
  out.WriteU32(static_cast<uint32_t>(e.size));
  out.WriteU32(e.color);
  out.WriteU32(static_cast<uint32_t>(e.opacity));
}

void WriteLayer(SafeFileWriter& out, const Layer& layer, int layout) {
  uint8_t name[kNameUnits * 2] = {};
  const std::u16string& n = layer.Name();
  for (std::size_t i = 0; i < n.size() && i < kNameUnits - 1; ++i) {
    name[2 * i] = static_cast<uint8_t>(n[i]);
    name[2 * i + 1] = static_cast<uint8_t>(n[i] >> 8);
  }
  out.Write(name, sizeof name);
  out.WriteU32(layer.visible);
  out.WriteU32(static_cast<uint32_t>(layer.opacity));
  out.WriteU32(static_cast<uint32_t>(layer.blendMode));
  out.WriteU32(layer.opaqueBackground);

  const LayerEffects& e = layer.effects;
  WriteShadowGlow(out, e.dropShadow);
  WriteShadowGlow(out, e.outerGlow);
  WriteShadowGlow(out, e.innerGlow);

  const uint32_t words[18] = {
      e.bevel.on, uint32_t(e.bevel.depth), uint32_t(e.bevel.size), uint32_t(e.bevel.soften),
      uint32_t(e.bevel.angle) + kAngleBias, e.bevel.direction != 0,
      e.colorOverlay.on, e.colorOverlay.color, uint32_t(e.colorOverlay.opacity),
      uint32_t(e.colorOverlay.blendMode),
      e.gradientOverlay.on, e.gradientOverlay.color1, e.gradientOverlay.color2,
      uint32_t(e.gradientOverlay.opacity), uint32_t(e.gradientOverlay.blendMode),
      uint32_t(e.gradientOverlay.angle) + kAngleBias, uint32_t(e.gradientOverlay.style),
      e.gradientOverlay.reverse};
  for (uint32_t w : words) out.WriteU32(w);
  if (layout >= 3) {
    const StrokeEffect& s = e.stroke;
    for (uint32_t w : {uint32_t(s.on), s.color, uint32_t(s.opacity), uint32_t(s.thickness),
                       uint32_t(s.smoothness), uint32_t(s.position)})
      out.WriteU32(w);
  }
  if (layout >= 4) {
    const BloomEffect& b = e.bloom;
    for (uint32_t w : {uint32_t(b.on), b.color, uint32_t(b.spread), uint32_t(b.intensity),
                       uint32_t(b.core), uint32_t(b.softness), uint32_t(b.glow)})
      out.WriteU32(w);
  }

  // Runs cross row ends but never the end of the layer.
  const uint32_t* p = layer.pixels.Data();
  const std::size_t total = layer.pixels.PixelCount();
  std::size_t i = 0;
  while (i < total) {
    const uint32_t value = p[i];
    std::size_t run = 1;
    while (i + run < total && p[i + run] == value && run < kMaxRun) ++run;
    out.WriteU32(static_cast<uint32_t>(run));
    out.WriteU32(value);
    i += run;
  }
}

// ---------------------------------------------------------------- reading

class WordReader {
 public:
  explicit WordReader(ByteInput& in) : in_(in) {}
  bool Word(uint32_t& w) {
    uint8_t b[4];
    if (!in_.Read(b, 4)) return false;
    w = uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
    return true;
  }
  template <std::size_t N>
  bool Words(uint32_t (&w)[N]) {
    for (uint32_t& x : w)
      if (!Word(x)) return false;
    return true;
  }
  bool Bytes(void* out, std::size_t n) { return in_.Read(out, n); }

 private:
  ByteInput& in_;
};

bool ReadShadowGlow(WordReader& in, ShadowGlowEffect& e) {
  uint32_t w[6];
  if (!in.Words(w)) return false;
  e.on = w[0] != 0;
  e.offsetX = static_cast<int32_t>(w[1]);
  e.offsetY = static_cast<int16_t>(w[2] & 0xFFFFu);
  e.option = (w[2] >> 16) == 1 ? 1 : 0;
  e.size = Clamp(w[3], 0, 500);
  e.color = w[4];
  e.opacity = Clamp(w[5], 0, 100);
  return true;
}

// Properties and effects of one layer record, into `layer`.
bool ReadLayerFields(WordReader& in, Layer& layer, int layout) {
  uint8_t raw[kNameUnits * 2];
  if (!in.Bytes(raw, sizeof raw)) return false;
  std::u16string name;
  for (int i = 0; i < kNameUnits - 1; ++i) {  // unit 64 is always the terminator
    const char16_t c = static_cast<char16_t>(raw[2 * i] | raw[2 * i + 1] << 8);
    if (c == 0) break;
    name.push_back(c);
  }
  layer.SetName(name);

  uint32_t props[4];
  if (!in.Words(props)) return false;
  layer.visible = props[0] != 0;
  layer.opacity = Clamp(props[1], 0, 255);
  layer.blendMode = Clamp(props[2], 0, kBlendModeCount - 1);
  layer.opaqueBackground = props[3] != 0;

  LayerEffects& e = layer.effects;
  if (!ReadShadowGlow(in, e.dropShadow) || !ReadShadowGlow(in, e.outerGlow) ||
      !ReadShadowGlow(in, e.innerGlow))
    return false;
  if (layout >= 2) {
    uint32_t w[18];
    if (!in.Words(w)) return false;
    e.bevel.on = w[0] != 0;
    e.bevel.depth = Clamp(w[1], 0, 100);
    e.bevel.size = Clamp(w[2], 0, 200);
    e.bevel.soften = Clamp(w[3], 0, 100);
    e.bevel.angle = static_cast<int32_t>(w[4] - kAngleBias);
    e.bevel.direction = w[5] != 0;
    e.colorOverlay.on = w[6] != 0;
    e.colorOverlay.color = w[7];
    e.colorOverlay.opacity = Clamp(w[8], 0, 100);
    e.colorOverlay.blendMode = Clamp(w[9], 0, kBlendModeCount - 1);
    e.gradientOverlay.on = w[10] != 0;
    e.gradientOverlay.color1 = w[11];
    e.gradientOverlay.color2 = w[12];
    e.gradientOverlay.opacity = Clamp(w[13], 0, 100);
    e.gradientOverlay.blendMode = Clamp(w[14], 0, kBlendModeCount - 1);
    e.gradientOverlay.angle = static_cast<int32_t>(w[15] - kAngleBias);
    e.gradientOverlay.style = Clamp(w[16], 0, 4);
    e.gradientOverlay.reverse = w[17] != 0;
  }
  if (layout >= 3) {
    uint32_t w[6];
    if (!in.Words(w)) return false;
    e.stroke.on = w[0] != 0;
    e.stroke.color = w[1];
    e.stroke.opacity = Clamp(w[2], 0, 100);
    e.stroke.thickness = Clamp(w[3], 1, 500);
    e.stroke.smoothness = Clamp(w[4], 0, 100);
    e.stroke.position = Clamp(w[5], 0, 2);
  }
  if (layout >= 4) {
    uint32_t w[7];
    if (!in.Words(w)) return false;
    e.bloom.on = w[0] != 0;
    e.bloom.color = w[1];
    e.bloom.spread = Clamp(w[2], 1, 500);
    e.bloom.intensity = Clamp(w[3], 0, 300);
    e.bloom.core = Clamp(w[4], 0, 100);
    e.bloom.softness = Clamp(w[5], 0, 100);
    e.bloom.glow = Clamp(w[6], 0, 2);
  }
  return true;
}

bool ReadPixels(WordReader& in, Surface& pixels) {
  uint32_t* p = pixels.Data();
  std::size_t left = pixels.PixelCount();
  while (left > 0) {
    uint32_t run, value;
    if (!in.Word(run) || !in.Word(value)) return false;
    if (run == 0 || run > left) return false;
    std::fill_n(p, run, value);
    p += run;
    left -= run;
  }
  return true;
}

}  // namespace

bool IsLayeredExtension(const std::filesystem::path& path) {
  std::u16string ext = path.extension().u16string();
  for (char16_t& c : ext)
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
  return ext == u".tvl" || ext == u".kzl";
}

bool WriteLayeredDocument(const Document& doc, const std::filesystem::path& path) {
  SafeFileWriter out(path);
  if (!out.Open()) return false;
  const int layout = LayoutFor(doc);
  out.Write(kMagic[layout - 1], 4);
  for (int32_t w : {doc.width, doc.height, doc.dpi, doc.colorCount, doc.LayerCount(), doc.active})
    out.WriteU32(static_cast<uint32_t>(w));
  for (const Layer& layer : doc.layers) WriteLayer(out, layer, layout);
  return out.Commit();
}

std::unique_ptr<Document> ReadLayeredDocument(const std::filesystem::path& path) {
  FileInput file;
  if (!file.Open(path)) return nullptr;
  return ReadLayeredDocument(file);
}

std::unique_ptr<Document> ReadLayeredDocumentBytes(std::span<const uint8_t> bytes) {
  MemoryInput memory(bytes);
  return ReadLayeredDocument(memory);
}

std::unique_ptr<Document> ReadLayeredDocument(ByteInput& source) {
  WordReader in(source);

  char magic[4];
  if (!in.Bytes(magic, 4)) return nullptr;
  int layout = 0;
  for (int i = 0; i < 4; ++i)
    if (std::memcmp(magic, kMagic[i], 4) == 0) layout = i + 1;
  if (layout == 0) return nullptr;

  uint32_t header[6];
  if (!in.Words(header)) return nullptr;
  const uint32_t width = header[0], height = header[1], count = header[4];
  // Every limit is checked before any pixel is allocated.
  if (!CanvasSizeAllowed(width, height) || count < 1 || count > kMaxLayers) return nullptr;
  // A run pair fills a whole layer, so a tiny file can ask for a thousand
  // 250-megapixel layers: refuse what could never fit in this machine.
  const uint64_t memory = PhysicalMemoryBytes();
  if (memory && uint64_t(width) * height * 4 * count > memory) return nullptr;

  auto doc = std::make_unique<Document>();
  doc->width = static_cast<int32_t>(width);
  doc->height = static_cast<int32_t>(height);
  doc->dpi = static_cast<int32_t>(header[2]) < 1 ? kDefaultDpi : static_cast<int32_t>(header[2]);
  doc->compositeDirty = doc->Bounds();
  doc->layers.reserve(std::min<uint32_t>(count, 8));
  for (uint32_t i = 0; i < count; ++i) {
    Layer layer(doc->width, doc->height, u"Layer");
    if (!ReadLayerFields(in, layer, layout) || !ReadPixels(in, layer.pixels)) return nullptr;
    doc->layers.push_back(std::move(layer));
  }
  doc->colorCount = static_cast<int32_t>(header[3]);
  doc->active = std::clamp(static_cast<int32_t>(header[5]), 0, static_cast<int32_t>(count) - 1);
  doc->modified = false;
  doc->untitledNumber = TakeUntitledNumber();
  SetTitle(*doc);
  return doc;
}

}  // namespace tavora

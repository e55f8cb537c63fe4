#include "formats/file_formats.h"

#include <algorithm>

#include "document/composite.h"
#include "document/size_limits.h"
#include "formats/layered_format.h"

namespace tavora {
namespace {

std::u16string LowerExtension(const std::filesystem::path& path) {
  std::u16string ext = path.extension().u16string();
  for (char16_t& c : ext)
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
  return ext;
}

bool OneOf(std::u16string_view ext, std::initializer_list<std::u16string_view> list) {
  return std::find(list.begin(), list.end(), ext) != list.end();
}

constexpr DialogFilter kOpenFilters[] = {
    {u"All images",
     u"*.png;*.jpg;*.jpeg;*.jpe;*.jfif;*.bmp;*.gif;*.tif;*.tiff;*.ico;*.webp;*.hdr;*.tvl;*.kzl;*.psd",
     {}},
    {u"PNG", u"*.png", {}},
    {u"JPEG", u"*.jpg;*.jpeg;*.jpe;*.jfif", {}},
    {u"Bitmap", u"*.bmp", {}},
    {u"GIF", u"*.gif", {}},
    {u"TIFF", u"*.tif;*.tiff", {}},
    {u"WebP", u"*.webp", {}},
    {u"Radiance HDR", u"*.hdr", {}},
    {u"Photoshop", u"*.psd", {}},
    {u"Tavora layered", u"*.tvl;*.kzl", {}},
    {u"All files", u"*.*", {}},
};

constexpr DialogFilter kSaveFilters[] = {
    {u"PNG (*.png)", u"*.png", u".png"},
    {u"JPEG (*.jpg)", u"*.jpg", u".jpg"},
    {u"Bitmap (*.bmp)", u"*.bmp", u".bmp"},
    {u"GIF (*.gif)", u"*.gif", u".gif"},
    {u"TIFF (*.tif)", u"*.tif", u".tif"},
    {u"WebP (*.webp)", u"*.webp", u".webp"},
    {u"Tavora layered (*.tvl)", u"*.tvl", u".tvl"},
};

char16_t Fold(char16_t c) { return c >= u'A' && c <= u'Z' ? char16_t(c - u'A' + u'a') : c; }

}  // namespace

bool IsSupportedExtension(const std::filesystem::path& path) {
  return OneOf(LowerExtension(path),
               {u".png", u".jpg", u".jpeg", u".jpe", u".jfif", u".bmp", u".dib", u".gif", u".tif",
                u".tiff", u".ico", u".webp", u".hdr", u".tvl", u".kzl", u".psd"});
}

FileClass ClassifyFile(const std::filesystem::path& path) {
  const std::u16string ext = LowerExtension(path);
  if (IsLayeredExtension(path)) return FileClass::NativeLayered;
  if (ext == u".psd") return FileClass::Photoshop;
  if (ext == u".hdr" || ext == u".pic") return FileClass::RadianceHdr;
  return FileClass::SystemCodec;
}

std::span<const DialogFilter> OpenFilters() { return kOpenFilters; }
std::span<const DialogFilter> SaveFilters() { return kSaveFilters; }

int32_t DefaultSaveFilterIndex(const Document& doc) { return doc.LayerCount() >= 2 ? 7 : 1; }

std::u16string ProposedSaveName(const Document& doc) {
  std::u16string name = doc.title;
  if (!doc.path.empty()) {
    const std::u16string full = doc.path.u16string();
    const std::size_t cut = full.find_last_of(u"\\/");
    name = full.substr(cut == std::u16string::npos ? 0 : cut + 1);
  }
  const std::size_t dot = name.find_last_of(u'.');
  if (dot != std::u16string::npos && dot > 0) name.resize(dot);
  return name + (doc.LayerCount() >= 2 ? u".tvl" : u".png");
}

std::filesystem::path WithSaveExtension(const std::filesystem::path& typed, int32_t filterIndex) {
  if (!typed.extension().empty()) return typed;
  const int32_t index = std::clamp(filterIndex, 1, static_cast<int32_t>(std::size(kSaveFilters)));
  std::filesystem::path result = typed;
  result += std::u16string(kSaveFilters[index - 1].extension);
  return result;
}

EncodeOptions EncodeOptionsFor(const std::filesystem::path& path, const Document& doc) {
  const std::u16string ext = LowerExtension(path);
  EncodeOptions o;
  if (OneOf(ext, {u".jpg", u".jpeg", u".jpe", u".jfif"})) o.format = SaveFormat::Jpeg;
  else if (ext == u".bmp") o.format = SaveFormat::Bmp;
  else if (ext == u".gif") o.format = SaveFormat::Gif;
  else if (ext == u".tif" || ext == u".tiff") o.format = SaveFormat::Tiff;
  else if (ext == u".webp") o.format = SaveFormat::WebP;
  else o.format = SaveFormat::Png;
  o.paletteSize = doc.colorCount >= 1 && doc.colorCount <= 256 ? doc.colorCount : 0;
  return o;
}

bool AsksForQuality(SaveFormat f) { return f == SaveFormat::Jpeg || f == SaveFormat::WebP; }
bool NeedsOpaqueFlattening(SaveFormat f) { return f == SaveFormat::Jpeg || f == SaveFormat::Bmp; }

bool NeedsFlattenWarning(const Document& doc, const std::filesystem::path& chosen,
                         bool nameFromDialog) {
  return doc.LayerCount() >= 2 && nameFromDialog && !IsLayeredExtension(chosen) &&
         !SamePathIgnoringCase(chosen, doc.path);
}

std::unique_ptr<Document> ReadDocumentFile(const std::filesystem::path& path) {
  std::unique_ptr<Document> doc;
  switch (ClassifyFile(path)) {
    case FileClass::NativeLayered:
      doc = ReadLayeredDocument(path);
      break;
    case FileClass::SystemCodec: {
      const SystemCodec* codec = CurrentSystemCodec();
      if (!codec) return nullptr;
      auto image = codec->decode(path);
      if (!image || image->pixels.Empty() ||
          !CanvasSizeAllowed(image->pixels.Width(), image->pixels.Height()))
        return nullptr;
      doc = CreateDocument(image->pixels.Width(), image->pixels.Height(), image->dpi, 0, 0);
      Layer& background = doc->layers[0];
      background.pixels = std::move(image->pixels);
      // Opaque only when every pixel is: a PNG with transparency keeps it.
      const uint32_t* p = background.pixels.Data();
      bool opaque = true;
      for (std::size_t i = 0, n = background.pixels.PixelCount(); i < n && opaque; ++i)
        opaque = p[i] >> 24 == 255;
      background.opaqueBackground = opaque;
      break;
    }
    case FileClass::Photoshop:
    case FileClass::RadianceHdr:
      return nullptr;  // their readers are not part of the program yet
  }
  if (!doc) return nullptr;
  doc->path = path;
  SetTitle(*doc);
  doc->modified = false;
  return doc;
}

bool WriteDocumentFile(Document& doc, const std::filesystem::path& path,
                       const EncodeOptions& options) {
  if (ClassifyFile(path) == FileClass::NativeLayered) return WriteLayeredDocument(doc, path);
  const SystemCodec* codec = CurrentSystemCodec();
  if (!codec || ClassifyFile(path) != FileClass::SystemCodec) return false;
  // JPEG and BMP get an opaque picture, laid on white.
  const Surface flat = FlatCopy(doc, 0xFFFFFF, NeedsOpaqueFlattening(options.format)
                                                   ? Matte::Use : Matte::None);
  return codec->encode(path, flat, doc.dpi, options);
}

bool SamePathIgnoringCase(const std::filesystem::path& a, const std::filesystem::path& b) {
  const std::u16string x = a.u16string(), y = b.u16string();
  if (x.size() != y.size()) return false;
  for (std::size_t i = 0; i < x.size(); ++i)
    if (Fold(x[i]) != Fold(y[i])) return false;
  return true;
}

std::u16string FolderOf(const std::filesystem::path& path) {
  const std::u16string full = path.u16string();
  const std::size_t cut = full.find_last_of(u"\\/");
  return cut == std::u16string::npos ? std::u16string() : full.substr(0, cut);
}

void RecentFiles::Load(const SettingsStore& settings) {
  paths_.clear();
  for (int i = 0; i < kMax; ++i) {
    std::u16string p = settings.GetString(u"Recent", u"r" + std::u16string(1, char16_t(u'0' + i)),
                                          u"", 260);
    if (!p.empty()) paths_.push_back(std::move(p));
  }
}

void RecentFiles::Add(const std::filesystem::path& path, SettingsStore& settings) {
  std::u16string entry = path.u16string();
  if (entry.size() > 260) entry.resize(260);
  auto same = std::find_if(paths_.begin(), paths_.end(), [&](const std::u16string& p) {
    return SamePathIgnoringCase(p, entry);
  });
  if (same != paths_.end()) {
    paths_.erase(same);
  } else if (paths_.size() >= kMax) {
    paths_.pop_back();
  }
  paths_.insert(paths_.begin(), entry);
  std::vector<std::pair<std::u16string, std::u16string>> values;
  for (int i = 0; i < kMax; ++i) {
    values.emplace_back(u"r" + std::u16string(1, char16_t(u'0' + i)),
                        i < static_cast<int>(paths_.size()) ? paths_[i] : std::u16string());
  }
  settings.SetStrings(u"Recent", values);
}

}  // namespace tavora

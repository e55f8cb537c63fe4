#include "formats/file_formats.h"

#include <algorithm>
#include <array>

#include "document/composite.h"
#include "document/size_limits.h"
#include "formats/layered_format.h"
#include "formats/psd_reader.h"
#include "formats/radiance_hdr.h"
#include "formats/webp_codec.h"

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

char16_t Fold(char16_t c) { return c >= u'A' && c <= u'Z' ? char16_t(c - u'A' + u'a') : c; }

std::unique_ptr<Document> ReadWithCodec(const std::filesystem::path& path, const OpenOptions&);
bool WriteWithCodec(Document& doc, const std::filesystem::path& path, const EncodeOptions& options);
std::unique_ptr<Document> ReadLayered(const std::filesystem::path& path, const OpenOptions&) {
  return ReadLayeredDocument(path);
}
bool WriteLayered(Document& doc, const std::filesystem::path& path, const EncodeOptions&) {
  return WriteLayeredDocument(doc, path);
}
std::unique_ptr<Document> ReadWebp(const std::filesystem::path& path, const OpenOptions&) {
  auto image = ReadWebpFile(path);
  return image ? DocumentFromPicture(std::move(image->pixels), 72) : nullptr;
}
bool WriteWebp(Document& doc, const std::filesystem::path& path, const EncodeOptions& options) {
  return WriteWebpFile(path, FlatCopy(doc, 0xFFFFFF, Matte::None), options.quality, options.lossless);
}
std::unique_ptr<Document> ReadHdr(const std::filesystem::path& path, const OpenOptions& options) {
  return ReadRadianceHdr(path, options.hdrExposure);
}
std::unique_ptr<Document> ReadPhotoshop(const std::filesystem::path& path, const OpenOptions&) {
  return ReadPsd(path);
}

using Reader = std::unique_ptr<Document> (*)(const std::filesystem::path&, const OpenOptions&);
using Writer = bool (*)(Document&, const std::filesystem::path&, const EncodeOptions&);

// One row per format, in the order of the dialogs. A format is offered
// where its function is set; the system codec's rows only while a codec is
// registered. A format's reader or writer lands by filling in its row.
struct FormatEntry {
  FileClass fileClass;
  std::array<std::u16string_view, 4> extensions;  // the unused ones empty
  std::u16string_view openLabel;    // its own open filter; empty: only in "All images"
  std::u16string_view openPattern;
  std::u16string_view saveLabel;
  std::u16string_view saveExtension;
  Reader read;
  Writer write;
};

const FormatEntry kFormats[] = {
    {FileClass::SystemCodec, {u".png"}, u"PNG", u"*.png", u"PNG (*.png)", u".png", &ReadWithCodec,
     &WriteWithCodec},
    {FileClass::SystemCodec, {u".jpg", u".jpeg", u".jpe", u".jfif"}, u"JPEG",
     u"*.jpg;*.jpeg;*.jpe;*.jfif", u"JPEG (*.jpg)", u".jpg", &ReadWithCodec, &WriteWithCodec},
    {FileClass::SystemCodec, {u".bmp", u".dib"}, u"Bitmap", u"*.bmp", u"Bitmap (*.bmp)", u".bmp",
     &ReadWithCodec, &WriteWithCodec},
    {FileClass::SystemCodec, {u".gif"}, u"GIF", u"*.gif", u"GIF (*.gif)", u".gif", &ReadWithCodec,
     &WriteWithCodec},
    {FileClass::SystemCodec, {u".tif", u".tiff"}, u"TIFF", u"*.tif;*.tiff", u"TIFF (*.tif)", u".tif",
     &ReadWithCodec, &WriteWithCodec},
    {FileClass::SystemCodec, {u".ico"}, {}, u"*.ico", {}, {}, &ReadWithCodec, nullptr},
    {FileClass::WebP, {u".webp"}, u"WebP", u"*.webp", u"WebP (*.webp)", u".webp", &ReadWebp, &WriteWebp},
    {FileClass::RadianceHdr, {u".hdr", u".pic"}, u"Radiance HDR", u"*.hdr", {}, {}, &ReadHdr, nullptr},
    {FileClass::Photoshop, {u".psd"}, u"Photoshop", u"*.psd", {}, {}, &ReadPhotoshop, nullptr},
    {FileClass::NativeLayered, {u".tvl", u".kzl"}, u"Tavora layered", u"*.tvl;*.kzl",
     u"Tavora layered (*.tvl)", u".tvl", &ReadLayered, &WriteLayered},
};

// The row of a file name; other names go to the system codec, which
// decodes by content and writes PNG.
const FormatEntry& EntryFor(const std::filesystem::path& path) {
  const std::u16string ext = LowerExtension(path);
  for (const FormatEntry& f : kFormats)
    if (!ext.empty() && std::find(f.extensions.begin(), f.extensions.end(), ext) != f.extensions.end())
      return f;
  return kFormats[0];
}

bool Available(const FormatEntry& f, bool writing) {
  const bool present = writing ? f.write != nullptr : f.read != nullptr;
  return present && (f.fileClass != FileClass::SystemCodec || CurrentSystemCodec());
}

}  // namespace

bool IsSupportedExtension(const std::filesystem::path& path) {
  return OneOf(LowerExtension(path),
               {u".png", u".jpg", u".jpeg", u".jpe", u".jfif", u".bmp", u".dib", u".gif", u".tif",
                u".tiff", u".ico", u".webp", u".hdr", u".tvl", u".kzl", u".psd"});
}

FileClass ClassifyFile(const std::filesystem::path& path) { return EntryFor(path).fileClass; }

bool CanOpenFile(const std::filesystem::path& path) { return Available(EntryFor(path), false); }
bool CanWriteFile(const std::filesystem::path& path) { return Available(EntryFor(path), true); }

std::vector<DialogFilter> OpenFilters() {
  std::vector<DialogFilter> filters{{u"All images", {}, {}}};
  for (const FormatEntry& f : kFormats) {
    if (!Available(f, false)) continue;
    if (!filters[0].pattern.empty()) filters[0].pattern += u';';
    filters[0].pattern += f.openPattern;
    if (!f.openLabel.empty()) filters.push_back({std::u16string(f.openLabel), std::u16string(f.openPattern), {}});
  }
  filters.push_back({u"All files", u"*.*", {}});
  return filters;
}

std::vector<DialogFilter> SaveFilters() {
  std::vector<DialogFilter> filters;
  for (const FormatEntry& f : kFormats) {
    if (f.saveLabel.empty() || !Available(f, true)) continue;
    DialogFilter& filter = filters.emplace_back();
    filter.label = f.saveLabel;
    filter.pattern.reserve(f.saveExtension.size() + 1);
    filter.pattern.push_back(u'*');
    filter.pattern.append(f.saveExtension);
    filter.extension = f.saveExtension;
  }
  return filters;
}

int32_t DefaultSaveFilterIndex(const Document& doc) {
  const std::vector<DialogFilter> filters = SaveFilters();
  const std::u16string_view wanted = doc.LayerCount() >= 2 ? u".tvl" : u".png";
  int32_t layered = 1;
  for (std::size_t i = 0; i < filters.size(); ++i) {
    if (filters[i].extension == wanted) return static_cast<int32_t>(i) + 1;
    if (filters[i].extension == u".tvl") layered = static_cast<int32_t>(i) + 1;
  }
  return layered;
}

std::u16string ProposedSaveName(const Document& doc) {
  std::u16string name = doc.title;
  if (!doc.path.empty()) {
    const std::u16string full = doc.path.u16string();
    const std::size_t cut = full.find_last_of(u"\\/");
    name = full.substr(cut == std::u16string::npos ? 0 : cut + 1);
  }
  const std::size_t dot = name.find_last_of(u'.');
  if (dot != std::u16string::npos && dot > 0) name.resize(dot);
  const std::vector<DialogFilter> filters = SaveFilters();
  return name + filters[static_cast<std::size_t>(DefaultSaveFilterIndex(doc)) - 1].extension;
}

std::filesystem::path WithSaveExtension(const std::filesystem::path& typed, int32_t filterIndex) {
  if (!typed.extension().empty()) return typed;
  const std::vector<DialogFilter> filters = SaveFilters();
  const int32_t index = std::clamp(filterIndex, 1, static_cast<int32_t>(filters.size()));
  std::filesystem::path result = typed;
  result += filters[static_cast<std::size_t>(index) - 1].extension;
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

namespace {

std::unique_ptr<Document> ReadWithCodec(const std::filesystem::path& path, const OpenOptions&) {
  const SystemCodec* codec = CurrentSystemCodec();
  if (!codec) return nullptr;
  auto image = codec->decode(path);
  if (!image || image->pixels.Empty() ||
      !CanvasSizeAllowed(image->pixels.Width(), image->pixels.Height()))
    return nullptr;
  auto doc = CreateDocument(image->pixels.Width(), image->pixels.Height(), image->dpi, 0, 0);
  Layer& background = doc->layers[0];
  background.pixels = std::move(image->pixels);
  // Opaque only when every pixel is: a PNG with transparency keeps it.
  const uint32_t* p = background.pixels.Data();
  bool opaque = true;
  for (std::size_t i = 0, n = background.pixels.PixelCount(); i < n && opaque; ++i)
    opaque = p[i] >> 24 == 255;
  background.opaqueBackground = opaque;
  return doc;
}

bool WriteWithCodec(Document& doc, const std::filesystem::path& path, const EncodeOptions& options) {
  const SystemCodec* codec = CurrentSystemCodec();
  if (!codec) return false;
  // JPEG and BMP get an opaque picture, laid on white.
  const Surface flat = FlatCopy(doc, 0xFFFFFF, NeedsOpaqueFlattening(options.format)
                                                   ? Matte::Use : Matte::None);
  return codec->encode(path, flat, doc.dpi, options);
}

}  // namespace

std::unique_ptr<Document> ReadDocumentFile(const std::filesystem::path& path, const OpenOptions& options) {
  if (!CanOpenFile(path)) return nullptr;
  const FormatEntry& entry = EntryFor(path);
  std::unique_ptr<Document> doc = entry.read(path, options);
  if (!doc) return nullptr;
  doc->path = path;
  SetTitle(*doc);
  doc->modified = false;
  if (entry.fileClass == FileClass::Photoshop || entry.fileClass == FileClass::RadianceHdr) {
    // Never written back: the name stays as the title only.
    doc->path.clear();
    doc->modified = true;
  }
  return doc;
}

bool WriteDocumentFile(Document& doc, const std::filesystem::path& path,
                       const EncodeOptions& options) {
  return CanWriteFile(path) && EntryFor(path).write(doc, path, options);
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

#include "formats/batch.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <system_error>
#include <type_traits>
#include <unordered_map>

#include "base/row_workers.h"
#include "base/unicode.h"
#include "document/blend.h"
#include "document/composite.h"
#include "document/size_limits.h"
#include "formats/file_formats.h"
#include "formats/layered_format.h"
#include "formats/psd_reader.h"
#include "formats/radiance_hdr.h"
#include "formats/webp_codec.h"

namespace tavora {
namespace {

namespace fs = std::filesystem;

constexpr BatchSourceType kSourceTypes[kBatchSourceTypeCount] = {
    {u"All supported image types", {}},
    {u"PNG (*.png)", {u".png"}},
    {u"JPEG (*.jpg, *.jpeg)", {u".jpg", u".jpeg", u".jpe", u".jfif"}},
    {u"Bitmap (*.bmp)", {u".bmp", u".dib"}},
    {u"GIF (*.gif)", {u".gif"}},
    {u"TIFF (*.tif, *.tiff)", {u".tif", u".tiff"}},
    {u"WebP (*.webp)", {u".webp"}},
    {u"Icon (*.ico)", {u".ico"}},
    {u"Radiance HDR (*.hdr)", {u".hdr"}},
    {u"Tavora layered (*.tvl, *.kzl)", {u".tvl", u".kzl"}},
    {u"Photoshop (*.psd)", {u".psd"}},
};

constexpr BatchDestination kDestinations[kBatchDestinationCount] = {
    {u"PNG (*.png)", u".png", SaveFormat::Png},   {u"JPEG (*.jpg)", u".jpg", SaveFormat::Jpeg},
    {u"Bitmap (*.bmp)", u".bmp", SaveFormat::Bmp}, {u"GIF (*.gif)", u".gif", SaveFormat::Gif},
    {u"TIFF (*.tif)", u".tif", SaveFormat::Tiff},  {u"WebP (*.webp)", u".webp", SaveFormat::WebP},
};

constexpr std::u16string_view kSection = u"Batch";

template <typename Char>
Char FoldAscii(Char c) {
  return c >= Char('A') && c <= Char('Z') ? Char(c - Char('A') + Char('a')) : c;
}

// The file name's native spelling folded for A-Z, as Windows compares names.
fs::path::string_type FoldedNative(const fs::path& p) {
  fs::path::string_type s = p.native();
  for (auto& c : s) c = FoldAscii(c);
  return s;
}

// The extension in lower case when it is all ASCII (every extension the
// program knows is); nothing otherwise. Works on the native spelling, so a
// name that is not valid Unicode cannot throw.
std::optional<std::u16string> AsciiLowerExtension(const fs::path& p) {
  std::u16string out;
  const fs::path ext = p.extension();
  for (const auto c : ext.native()) {
    const auto u = static_cast<std::make_unsigned_t<std::remove_const_t<decltype(c)>>>(c);
    if (u >= 128) return std::nullopt;
    out.push_back(FoldAscii(static_cast<char16_t>(u)));
  }
  return out;
}

bool IsSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

std::u16string Trim(std::u16string_view s) {
  while (!s.empty() && IsSpace(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsSpace(s.back())) s.remove_suffix(1);
  // A path copied from Explorer comes in quotes.
  if (s.size() >= 2 && s.front() == u'"' && s.back() == u'"') return Trim(s.substr(1, s.size() - 2));
  return std::u16string(s);
}

std::u16string Number(int64_t n) {
  const std::string s = std::to_string(n);
  return {s.begin(), s.end()};
}

bool IsFolder(const fs::path& p) {
  std::error_code ec;
  return fs::is_directory(p, ec);
}

std::unique_ptr<Document> ReadAsDocument(const fs::path& path, FileClass kind) {
  switch (kind) {
    case FileClass::NativeLayered: return ReadLayeredDocument(path);
    case FileClass::Photoshop: return ReadPsd(path);
    case FileClass::RadianceHdr: return ReadRadianceHdr(path, 0.0f);
    default: return nullptr;
  }
}

}  // namespace

std::span<const BatchSourceType> BatchSourceTypes() { return kSourceTypes; }
std::span<const BatchDestination> BatchDestinations() { return kDestinations; }

bool BatchTypeMatches(int32_t type, const fs::path& file) {
  if (type < 0 || type >= kBatchSourceTypeCount) return false;
  const auto ext = AsciiLowerExtension(file);
  if (!ext || ext->empty()) return false;
  if (type == 0) return IsSupportedExtension(fs::path(u"x" + *ext));
  const auto& list = kSourceTypes[type].extensions;
  return std::find(list.begin(), list.end(), *ext) != list.end();
}

fs::path PathFromText(std::u16string_view text) {
#ifdef _WIN32
  return fs::path(std::wstring(text.begin(), text.end()));
#else
  return fs::path(Utf16ToUtf8(text));
#endif
}

std::u16string PathDisplayText(const fs::path& path) {
#ifdef _WIN32
  const std::wstring& s = path.native();
  return std::u16string(s.begin(), s.end());
#else
  return Utf8ToUtf16(path.native());
#endif
}

// ------------------------------------------------------------------ remembered values

BatchSettings ReadBatchSettings(const SettingsSnapshot& s) {
  BatchSettings v;
  auto ranged = [&](std::u16string_view key, int32_t low, int32_t high, int32_t fallback) {
    const int32_t value = s.GetInt(kSection, key, fallback);
    return value >= low && value <= high ? value : fallback;
  };
  v.source = s.GetString(kSection, u"Source");
  v.dest = s.GetString(kSection, u"Dest");
  v.srcType = ranged(u"SrcType", 0, kBatchSourceTypeCount - 1, 0);
  v.dstFmt = ranged(u"DstFmt", 0, kBatchDestinationCount - 1, 1);
  v.png256 = ranged(u"Png256", 0, 1, 0) == 1;
  v.jpegQuality = ranged(u"JpegQuality", 1, 100, 90);
  v.webpQuality = ranged(u"WebpQuality", 1, 100, 90);
  v.webpLossless = ranged(u"WebpLossless", 0, 1, 0) == 1;
  return v;
}

void WriteBatchSettings(SettingsStore& settings, const BatchSettings& v) {
  const std::pair<std::u16string, std::u16string> values[] = {
      {u"Source", v.source},
      {u"Dest", v.dest},
      {u"SrcType", Number(v.srcType)},
      {u"DstFmt", Number(v.dstFmt)},
      {u"Png256", v.png256 ? u"1" : u"0"},
      {u"JpegQuality", Number(v.jpegQuality)},
      {u"WebpQuality", Number(v.webpQuality)},
      {u"WebpLossless", v.webpLossless ? u"1" : u"0"},
  };
  settings.SetStrings(kSection, values);
}

std::optional<int32_t> ParseBatchQuality(std::u16string_view text) {
  const std::u16string trimmed = Trim(text);
  std::string ascii;
  for (char16_t c : trimmed) {
    if (!((c >= u'0' && c <= u'9') || c == u'.' || c == u'+' || c == u'-')) return std::nullopt;
    ascii.push_back(static_cast<char>(c));
  }
  if (ascii.empty()) return std::nullopt;
  char* end = nullptr;
  const double v = std::strtod(ascii.c_str(), &end);
  if (end == ascii.c_str() || *end || !(v >= 1.0 && v <= 100.0)) return std::nullopt;
  return static_cast<int32_t>(std::floor(v + 0.5));
}

// ------------------------------------------------------------------ starting

std::u16string PrepareBatchFolders(std::u16string& source, std::u16string& dest) {
  source = Trim(source);
  dest = Trim(dest);
  if (source.empty() || !IsFolder(PathFromText(source))) return std::u16string(kBatchNoSource);
  if (dest.empty()) return std::u16string(kBatchNoDest);
  const fs::path folder = PathFromText(dest);
  if (!IsFolder(folder)) {
    std::error_code ec;
    fs::create_directory(folder, ec);
    if (!IsFolder(folder)) return std::u16string(kBatchDestNotCreated);
  }
  return {};
}

BatchOptions BatchOptionsFrom(const BatchSettings& v) {
  BatchOptions o;
  o.source = PathFromText(v.source);
  o.dest = PathFromText(v.dest);
  o.type = std::clamp(v.srcType, 0, kBatchSourceTypeCount - 1);
  o.format = std::clamp(v.dstFmt, 0, kBatchDestinationCount - 1);
  const SaveFormat format = kDestinations[o.format].format;
  if (format == SaveFormat::Jpeg) o.quality = v.jpegQuality;
  if (format == SaveFormat::WebP) o.quality = v.webpQuality;
  o.lossless = format == SaveFormat::WebP && v.webpLossless;
  o.paletteSize = format == SaveFormat::Png && v.png256 ? 256 : 0;
  return o;
}

std::vector<fs::path> ListBatchFiles(const fs::path& folder, int32_t type) {
  std::vector<fs::path> files;
  std::error_code ec;
  fs::directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec);
  for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
    std::error_code entryError;
    if (!it->is_regular_file(entryError) || entryError) continue;
    if (BatchTypeMatches(type, it->path())) files.push_back(it->path());
  }
  std::vector<std::pair<fs::path::string_type, std::size_t>> keys;
  keys.reserve(files.size());
  for (std::size_t i = 0; i < files.size(); ++i) keys.emplace_back(FoldedNative(files[i].filename()), i);
  // Names equal but for case (possible off Windows) keep a fixed order.
  std::sort(keys.begin(), keys.end(), [&](const auto& a, const auto& b) {
    if (a.first != b.first) return a.first < b.first;
    return files[a.second].filename().native() < files[b.second].filename().native();
  });
  std::vector<fs::path> sorted;
  sorted.reserve(files.size());
  for (const auto& k : keys) sorted.push_back(std::move(files[k.second]));
  return sorted;
}

fs::path BatchOutputPath(const fs::path& source, const fs::path& destFolder, int32_t format) {
  fs::path out = destFolder / source.stem();
  out += PathFromText(kDestinations[std::clamp(format, 0, kBatchDestinationCount - 1)].extension);
  return out;
}

bool SameBatchFile(const fs::path& a, const fs::path& b) {
  auto normal = [](const fs::path& p) {
    std::error_code ec;
    fs::path full = fs::absolute(p, ec);
    return FoldedNative((ec ? p : full).lexically_normal());
  };
  if (normal(a) == normal(b)) return true;
  std::error_code ec;
  return fs::equivalent(a, b, ec) && !ec;  // another spelling of one file
}

bool ConvertBatchFile(const fs::path& source, const fs::path& output, const BatchOptions& options) {
  if (options.format < 0 || options.format >= kBatchDestinationCount) return false;
  const SaveFormat format = kDestinations[options.format].format;
  const bool opaque = NeedsOpaqueFlattening(format);
  const SystemCodec* codec = CurrentSystemCodec();
  Surface pixels;
  int32_t dpi = kDefaultDpi;
  switch (const FileClass kind = ClassifyFile(source)) {
    case FileClass::NativeLayered:
    case FileClass::Photoshop:
    case FileClass::RadianceHdr: {
      std::unique_ptr<Document> doc = ReadAsDocument(source, kind);
      if (!doc) return false;
      pixels = FlatCopy(*doc, 0xFFFFFF, opaque ? Matte::Use : Matte::None);
      dpi = doc->dpi;
      break;
    }
    case FileClass::WebP: {
      std::optional<WebpImage> image = ReadWebpFile(source);
      if (!image) return false;
      pixels = std::move(image->pixels);
      break;
    }
    case FileClass::SystemCodec: {
      if (!codec || !codec->decode) return false;
      std::optional<DecodedImage> image = codec->decode(source);
      if (!image) return false;
      pixels = std::move(image->pixels);
      if (image->dpi > 0) dpi = image->dpi;  // as a file opened without one gets
      break;
    }
  }
  if (pixels.Empty() || !CanvasSizeAllowed(pixels.Width(), pixels.Height())) return false;
  if (opaque) {
    uint32_t* p = pixels.Data();
    for (std::size_t i = 0, n = pixels.PixelCount(); i < n; ++i)
      if (p[i] >> 24 != 255) p[i] = Over(0xFFFFFFFFu, p[i]);
  }
  if (format == SaveFormat::WebP) return WriteWebpFile(output, pixels, options.quality, options.lossless);
  if (!codec || !codec->encode) return false;
  EncodeOptions encode;
  encode.format = format;
  encode.quality = std::clamp(options.quality, 1, 100);
  encode.paletteSize = format == SaveFormat::Png ? options.paletteSize : 0;
  return codec->encode(output, pixels, dpi, encode);
}

// ------------------------------------------------------------------ the job

BatchJob::~BatchJob() {
  RequestStop();
  Wait();
}

void BatchJob::Start() {
  if (started_) return;
  started_ = true;
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (const std::system_error&) {
    Run();  // no thread to be had: the caller waits, but the work gets done
  }
}

void BatchJob::Wait() {
  if (thread_.joinable()) thread_.join();
}

std::u16string BatchJob::CurrentName() const {
  const std::lock_guard<std::mutex> hold(lock_);
  return currentName_;
}

BatchOutcome BatchJob::Outcome() const {
  BatchOutcome o;
  o.found = found_.load();
  o.converted = converted_.load();
  o.skipped = skipped_.load();
  o.failed = failed_.load();
  const std::lock_guard<std::mutex> hold(lock_);
  o.firstFailure = firstFailure_;
  return o;
}

void BatchJob::Run() {
  const std::vector<fs::path> files = ListBatchFiles(options_.source, options_.type);
  std::error_code ec;
  fs::create_directory(options_.dest, ec);  // gone since the start was checked: made again
  // Files whose outputs share a name form one group, converted in order by
  // one worker, so the later in sorted order is written last and stays.
  std::vector<std::vector<int32_t>> groups;
  std::unordered_map<fs::path::string_type, std::size_t> groupOf;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const fs::path out = BatchOutputPath(files[i], options_.dest, options_.format);
    const auto [at, fresh] = groupOf.try_emplace(FoldedNative(out.lexically_normal()), groups.size());
    if (fresh) groups.emplace_back();
    groups[at->second].push_back(static_cast<int32_t>(i));
  }
  found_.store(static_cast<int32_t>(files.size()));

  const int wanted = options_.workers > 0 ? options_.workers : std::min(2, RowWorkers::ProcessorCount());
  const int workers = std::clamp(std::min<int>(wanted, static_cast<int>(groups.size())), 1, kMaxRowWorkers);
  std::atomic<std::size_t> next{0};
  std::vector<std::thread> helpers;
  for (int k = 1; k < workers; ++k) {
    try {
      helpers.emplace_back([&] { Work(files, groups, next); });
    } catch (const std::system_error&) {
      break;  // fewer workers; the others take up the files
    }
  }
  Work(files, groups, next);
  for (std::thread& t : helpers) t.join();
  done_.store(true);
}

void BatchJob::Work(const std::vector<fs::path>& files, const std::vector<std::vector<int32_t>>& groups,
                    std::atomic<std::size_t>& next) {
  while (!stop_.load()) {
    const std::size_t g = next.fetch_add(1);
    if (g >= groups.size()) return;
    for (const int32_t i : groups[g]) {
      if (stop_.load()) return;
      const fs::path& source = files[static_cast<std::size_t>(i)];
      {
        const std::lock_guard<std::mutex> hold(lock_);
        currentName_ = PathDisplayText(source.filename());
        current_.store(i + 1);
      }
      const fs::path output = BatchOutputPath(source, options_.dest, options_.format);
      if (SameBatchFile(source, output)) {
        ++skipped_;
      } else if (ConvertBatchFile(source, output, options_)) {
        ++converted_;
      } else {
        const std::lock_guard<std::mutex> hold(lock_);
        if (firstFailureIndex_ < 0 || i < firstFailureIndex_) {
          firstFailureIndex_ = i;
          firstFailure_ = source;
        }
        ++failed_;
      }
      if (onFileDone) onFileDone(*this);
    }
  }
}

// ------------------------------------------------------------------ texts

std::u16string BatchProgressText(const BatchJob& job) {
  if (job.StopRequested()) return u"Stopping";
  const int32_t count = job.Found(), number = job.CurrentNumber();
  if (count == 0 || number == 0) return u"Looking for files";
  return u"Now converting file " + Number(number) + u" of " + Number(count) + u": " + job.CurrentName();
}

BatchReport MakeBatchReport(const BatchOutcome& o) {
  BatchReport r;
  if (o.found == 0) {
    r.text = kBatchNoMatchingFiles;
    return r;
  }
  r.text = std::u16string(o.Stopped() ? u"Batch Conversion stopped." : u"Batch Conversion Complete.") + u"\n\n" +
           Number(o.converted) + u" file" + (o.converted == 1 ? u"" : u"s") + u" converted.";
  if (o.skipped > 0)
    r.text += u"\n" + Number(o.skipped) + u" skipped (the source and destination are the same file).";
  if (o.failed > 0) {
    r.text += u"\n" + Number(o.failed) + u" could not be converted (first: " + PathDisplayText(o.firstFailure) + u").";
    r.warning = true;
  }
  return r;
}

std::u16string_view BatchStatusText(const BatchOutcome& o) {
  return o.Stopped() ? u"Batch Conversion stopped" : u"Batch Conversion Complete";
}

}  // namespace tavora

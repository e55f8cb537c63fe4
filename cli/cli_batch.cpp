#include "cli/cli_batch.h"

#include <chrono>
#include <cstdio>
#include <string_view>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

#include "base/unicode.h"
#include "cli/cli.h"
#include "formats/batch.h"

namespace tavora {
namespace {

constexpr const char* kBatchUsage =
    "usage: tavora-cli batch [--type=INDEX] [--to=png|jpg|bmp|gif|tif|webp] [--quality=Q] [--lossless]\n"
    "                        [--png256] SRC_FOLDER DEST_FOLDER\n"
    "       INDEX: 0 all supported image types, 1 PNG, 2 JPEG, 3 Bitmap, 4 GIF, 5 TIFF, 6 WebP,\n"
    "              7 Icon, 8 Radiance HDR, 9 Tavora layered, 10 Photoshop\n";

int BatchUsage(std::string& err) {
  err += kBatchUsage;
  return kCliUsage;
}

int Refuse(std::u16string_view message, std::string& err) {
  err += Utf16ToUtf8(message) + "\n";
  return kCliUsage;
}

// The destination index of a --to= name.
std::optional<int32_t> DestinationNamed(std::u16string_view name) {
  constexpr std::u16string_view kNames[kBatchDestinationCount] = {u"png", u"jpg", u"bmp", u"gif", u"tif", u"webp"};
  for (int32_t i = 0; i < kBatchDestinationCount; ++i)
    if (name == kNames[i]) return i;
  return std::nullopt;
}

std::optional<int32_t> TypeIndex(std::u16string_view text) {
  if (text.empty() || text.size() > 2) return std::nullopt;
  int32_t v = 0;
  for (char16_t c : text) {
    if (c < u'0' || c > u'9') return std::nullopt;
    v = v * 10 + (c - u'0');
  }
  return v < kBatchSourceTypeCount ? std::optional<int32_t>(v) : std::nullopt;
}

// A progress line for a person watching, never for a pipe or a file.
class ProgressLine {
 public:
  ProgressLine() {
#ifdef _WIN32
    console_ = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    shown_ = console_ && console_ != INVALID_HANDLE_VALUE && GetConsoleMode(console_, &mode);
#else
    shown_ = isatty(STDERR_FILENO) == 1;
#endif
  }
  bool Shown() const { return shown_; }

  // Rewrites the line; cut to fit a standard console width.
  void Show(std::u16string text) {
    constexpr std::size_t kWidth = 79;
    if (text.size() > kWidth) text = text.substr(0, kWidth - 3) + u"...";
    const std::size_t length = text.size();
    if (text.size() < last_) text.append(last_ - text.size(), u' ');
    last_ = length;
    Write(u"\r" + text + u"\r");
  }
  void Clear() {
    if (last_ > 0) Write(u"\r" + std::u16string(last_, u' ') + u"\r");
    last_ = 0;
  }

 private:
  void Write(const std::u16string& text) {
#ifdef _WIN32
    DWORD written = 0;
    WriteConsoleW(console_, reinterpret_cast<const wchar_t*>(text.data()), static_cast<DWORD>(text.size()), &written,
                  nullptr);
#else
    const std::string utf8 = Utf16ToUtf8(text);
    std::fwrite(utf8.data(), 1, utf8.size(), stderr);
    std::fflush(stderr);
#endif
  }

  bool shown_ = false;
  std::size_t last_ = 0;
#ifdef _WIN32
  HANDLE console_ = nullptr;
#endif
};

}  // namespace

std::optional<int> RunBatchCommand(const std::vector<std::u16string>& args, std::string& out, std::string& err) {
  if (args.empty() || args[0] != u"batch") return std::nullopt;
  BatchSettings values;  // type 0, JPEG, quality 90
  std::vector<std::u16string> folders;
  for (std::size_t i = 1; i < args.size(); ++i) {
    const std::u16string_view a = args[i];
    if (a.starts_with(u"--type=")) {
      const auto type = TypeIndex(a.substr(7));
      if (!type) {
        err += "The type must be a number from 0 to 10.\n";
        return BatchUsage(err);
      }
      values.srcType = *type;
    } else if (a.starts_with(u"--to=")) {
      const auto format = DestinationNamed(a.substr(5));
      if (!format) return BatchUsage(err);
      values.dstFmt = *format;
    } else if (a.starts_with(u"--quality=")) {
      const auto quality = ParseBatchQuality(a.substr(10));
      if (!quality) return Refuse(kBatchQualityMessage, err);
      values.jpegQuality = values.webpQuality = *quality;
    } else if (a == u"--lossless") {
      values.webpLossless = true;
    } else if (a == u"--png256") {
      values.png256 = true;
    } else if (a.starts_with(u"--")) {
      return BatchUsage(err);
    } else {
      folders.emplace_back(a);
    }
  }
  if (folders.size() != 2) return BatchUsage(err);

  // Only what this build can write: no half a run of failures.
  const BatchDestination& destination = BatchDestinations()[values.dstFmt];
  const SystemCodec* codec = CurrentSystemCodec();
  if (destination.format != SaveFormat::WebP && !(codec && codec->encode))
    return Refuse(u"This build of tavora-cli cannot write " +
                      std::u16string(destination.label.substr(0, destination.label.find(u" ("))) +
                      u" files; it writes WebP (--to=webp).",
                  err);

  values.source = folders[0];
  values.dest = folders[1];
  if (const std::u16string problem = PrepareBatchFolders(values.source, values.dest); !problem.empty())
    return Refuse(problem, err);
  BatchOptions options = BatchOptionsFrom(values);
  if (ListBatchFiles(options.source, options.type).empty()) {
    out += Utf16ToUtf8(kBatchNoFiles) + "\n";
    return kCliOk;  // nothing to do is not a failure
  }

  BatchJob job(std::move(options));
  ProgressLine progress;
  job.Start();
  if (progress.Shown()) {
    while (!job.Done()) {
      progress.Show(BatchProgressText(job));
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    progress.Clear();
  }
  job.Wait();
  const BatchOutcome outcome = job.Outcome();
  out += Utf16ToUtf8(MakeBatchReport(outcome).text) + "\n";
  return outcome.failed > 0 ? 1 : kCliOk;  // 1: some file could not be converted
}

}  // namespace tavora

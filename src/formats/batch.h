#pragma once
// Batch conversion: every picture of one type in a folder, converted into
// another folder in one of the flat formats. The tables, the remembered
// values, the checks before a start, the listing, the job with its worker
// threads and the texts of its progress and report; the dialog and
// tavora-cli both drive this.
#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/settings_store.h"
#include "platform/codec_bridge.h"

namespace tavora {

// "Convert files of type:". Index 0 takes every extension that opens; the
// others list theirs, compared without regard to case.
struct BatchSourceType {
  std::u16string_view label;
  std::array<std::u16string_view, 4> extensions;  // the unused ones empty
};
inline constexpr int32_t kBatchSourceTypeCount = 11;
std::span<const BatchSourceType> BatchSourceTypes();

// "Convert to type:".
struct BatchDestination {
  std::u16string_view label;
  std::u16string_view extension;
  SaveFormat format;
};
inline constexpr int32_t kBatchDestinationCount = 6;
std::span<const BatchDestination> BatchDestinations();

// Whether a file name belongs to a source type (an index outside the table
// matches nothing).
bool BatchTypeMatches(int32_t type, const std::filesystem::path& file);

// A path typed as UTF-16; never throws, whatever the text.
std::filesystem::path PathFromText(std::u16string_view text);
// A path as UTF-16 for showing; malformed names show U+FFFD, never throw.
std::u16string PathDisplayText(const std::filesystem::path& path);

// ------------------------------------------------------------------ remembered values

// Section "Batch" of the settings.
struct BatchSettings {
  std::u16string source, dest;  // "Source", "Dest"
  int32_t srcType = 0;          // "SrcType", 0..10
  int32_t dstFmt = 1;           // "DstFmt", 0..5 (JPEG)
  bool png256 = false;          // "Png256"
  int32_t jpegQuality = 90;     // "JpegQuality", 1..100
  int32_t webpQuality = 90;     // "WebpQuality", 1..100
  bool webpLossless = false;    // "WebpLossless"
};
// Values out of range come back as their defaults.
BatchSettings ReadBatchSettings(const SettingsSnapshot& settings);
// All eight in one write.
void WriteBatchSettings(SettingsStore& settings, const BatchSettings& values);

// Typed quality: a number from 1 to 100, rounded half up; nothing otherwise.
std::optional<int32_t> ParseBatchQuality(std::u16string_view text);
inline constexpr std::u16string_view kBatchQualityMessage = u"Please enter a value between 1 and 100.";

// ------------------------------------------------------------------ starting

inline constexpr std::u16string_view kBatchTitle = u"Batch Conversion";
inline constexpr std::u16string_view kBatchNoSource = u"Choose a source folder that exists.";
inline constexpr std::u16string_view kBatchNoDest = u"Choose a destination folder.";
inline constexpr std::u16string_view kBatchDestNotCreated =
    u"The destination folder does not exist and could not be created.";
inline constexpr std::u16string_view kBatchNoFiles = u"There are no files of that type in the source folder.";
inline constexpr std::u16string_view kBatchNoMatchingFiles = u"There are no matching files in the source folder.";
inline constexpr std::u16string_view kBatchOverwriteWarning =
    u"Files with the same name in the destination folder are overwritten.";

// Trims both folders in place, checks the source, and creates a missing
// destination (one level). The message to show, or empty when both are
// ready.
std::u16string PrepareBatchFolders(std::u16string& source, std::u16string& dest);

struct BatchOptions {
  std::filesystem::path source, dest;
  int32_t type = 0;         // source type index
  int32_t format = 1;       // destination index
  int32_t quality = 90;     // JPEG and WebP
  bool lossless = false;    // WebP only
  int32_t paletteSize = 0;  // 256 with "Reduce to 256 colors", PNG only
  int32_t workers = 0;      // files converted at once; 0: as many as help (two at most)
};
// The options of the remembered (or chosen) values, for already prepared
// folders: each destination takes only its own options.
BatchOptions BatchOptionsFrom(const BatchSettings& values);

// The files (not folders; not recursive) of `folder` that belong to the
// type, as full paths, sorted by name without regard to case. Empty when
// the folder cannot be read.
std::vector<std::filesystem::path> ListBatchFiles(const std::filesystem::path& folder, int32_t type);

// destination \ (name without its last extension) + the format's extension.
std::filesystem::path BatchOutputPath(const std::filesystem::path& source, const std::filesystem::path& destFolder,
                                      int32_t format);
// Whether two paths name the same file the way Windows compares them.
bool SameBatchFile(const std::filesystem::path& a, const std::filesystem::path& b);

// Reads one file and writes it in the destination format, replacing what
// is there. False when the file cannot be read or the output not written
// (including formats this build has no reader or writer for).
[[nodiscard]] bool ConvertBatchFile(const std::filesystem::path& source, const std::filesystem::path& output,
                                    const BatchOptions& options);

// ------------------------------------------------------------------ the job

// The counters at one moment.
struct BatchOutcome {
  int32_t found = 0, converted = 0, skipped = 0, failed = 0;
  std::filesystem::path firstFailure;  // the first in sorted order that failed
  bool Stopped() const { return converted + skipped + failed < found; }
};

// Shared by whoever shows it and the worker. The worker lists the files
// again (the folder may have changed since the start was checked), then
// converts them in sorted order on up to two threads; files that come out
// under one name are converted by one thread in order, so the later in
// sorted order is the one left.
class BatchJob {
 public:
  explicit BatchJob(BatchOptions options) : options_(std::move(options)) {}
  ~BatchJob();  // asks the worker to stop and waits for it
  BatchJob(const BatchJob&) = delete;
  BatchJob& operator=(const BatchJob&) = delete;

  // Called on a worker thread after each file; set before Start().
  std::function<void(BatchJob&)> onFileDone;

  // Starts the worker thread (runs the job on the caller when no thread
  // can be started). Once.
  void Start();
  // The file in hand is finished; no further one is begun.
  void RequestStop() { stop_.store(true); }
  bool StopRequested() const { return stop_.load(); }
  bool Done() const { return done_.load(); }
  // Waits for the worker to end.
  void Wait();

  const BatchOptions& Options() const { return options_; }
  int32_t Found() const { return found_.load(); }
  int32_t CurrentNumber() const { return current_.load(); }  // 1-based; 0 before the first
  std::u16string CurrentName() const;
  BatchOutcome Outcome() const;

 private:
  void Run();
  void Work(const std::vector<std::filesystem::path>& files, const std::vector<std::vector<int32_t>>& groups,
            std::atomic<std::size_t>& next);

  const BatchOptions options_;
  std::atomic<int32_t> found_{0}, current_{0}, converted_{0}, skipped_{0}, failed_{0};
  std::atomic<bool> stop_{false}, done_{false};
  mutable std::mutex lock_;  // guards the two below
  std::u16string currentName_;
  std::filesystem::path firstFailure_;
  int32_t firstFailureIndex_ = -1;
  std::thread thread_;
  bool started_ = false;
};

// ------------------------------------------------------------------ texts

// "Now converting file 3 of 20: name", "Looking for files" while none is
// counted yet, "Stopping" once a stop was asked for.
std::u16string BatchProgressText(const BatchJob& job);
// The closing report; `warning` when any file failed.
struct BatchReport {
  std::u16string text;
  bool warning = false;
};
BatchReport MakeBatchReport(const BatchOutcome& outcome);
// The status line at the end.
std::u16string_view BatchStatusText(const BatchOutcome& outcome);

}  // namespace tavora

#pragma once
// What the Browse tab knows without a screen: which files of a folder show
// as thumbnails and in what order, the back/forward list of visited folders,
// the arithmetic of the thumbnail grid, thumbnail sizes and the order in
// which thumbnails are loaded, and the preview's caption.
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "document/surface.h"

namespace tavora {

struct BrowseEntry {
  std::filesystem::path path;
  std::u16string name;     // the last component, as shown
  uint64_t size = 0;       // bytes; 0 for folders
  int64_t modified = 0;    // any scale that grows with time (file-time ticks)
  bool folder = false;
  bool hidden = false;
};

// Remembered as "Browse" / "Sort".
enum class BrowseSort : int32_t { Name = 0, Date = 1, Size = 2 };
BrowseSort BrowseSortFromInt(int64_t value);  // out of range: Name

// Case-insensitive, with runs of digits compared by value ("img2" before
// "img10"); names equal that way are ordered by their code units so the
// order is total.
bool NaturalLess(std::u16string_view a, std::u16string_view b);

enum class ShowHidden : bool { No = false, Yes = true };
// The grid's entries: the sub-folders first (by name), then the files that
// `opens` accepts, in the chosen order (name A-Z, newest first, largest
// first; ties by name). Hidden entries only with ShowHidden::Yes.
[[nodiscard]] std::vector<BrowseEntry> GridEntries(std::vector<BrowseEntry> all, BrowseSort sort,
                                                   ShowHidden hidden,
                                                   bool (*opens)(const std::filesystem::path&));

// A folder's entries through the standard library (hidden = a leading
// dot); nothing when the folder cannot be read. Windows lists with its own
// calls, which also see the hidden attribute.
[[nodiscard]] std::optional<std::vector<BrowseEntry>> ListFolder(const std::filesystem::path& folder);

// The folders visited, for Back and Forward. Visiting a new folder drops
// everything ahead of the current one; visiting the current one again
// changes nothing. At most kLimit folders are kept, the oldest dropped.
class FolderHistory {
 public:
  static constexpr std::size_t kLimit = 100;
  void Visit(const std::filesystem::path& folder);
  bool CanGoBack() const { return index_ > 0; }
  bool CanGoForward() const { return index_ + 1 < folders_.size(); }
  // The folder stepped to, or nothing at either end.
  std::optional<std::filesystem::path> Back();
  std::optional<std::filesystem::path> Forward();
  std::optional<std::filesystem::path> Current() const;

 private:
  std::vector<std::filesystem::path> folders_;
  std::size_t index_ = 0;
};

// Cells of equal size laid left to right, top to bottom, with `gap` pixels
// around each; y is measured in content coordinates (add the scroll offset
// to a window's y).
struct GridBox {
  int32_t x = 0, y = 0, width = 0, height = 0;
  bool operator==(const GridBox&) const = default;
};
enum class GridKey { Left, Right, Up, Down, Home, End, PageUp, PageDown };

struct GridLayout {
  int32_t cellWidth = 160;
  int32_t cellHeight = 180;
  int32_t gap = 8;
  int32_t viewWidth = 0;
  int32_t viewHeight = 0;
  int32_t count = 0;

  int32_t Columns() const;  // at least 1
  int32_t Rows() const;
  int32_t ContentHeight() const;
  int32_t MaxScroll() const;
  int32_t ClampScroll(int32_t scroll) const;
  GridBox Cell(int32_t index) const;
  // The cell under a point of the content, or -1 (a gap, past the end).
  int32_t HitTest(int32_t x, int32_t y) const;
  // The cells at least partly inside the view: [first, last), empty when none.
  std::pair<int32_t, int32_t> Visible(int32_t scroll) const;
  // Where a key moves the selection from `current` (-1: none yet).
  int32_t Move(int32_t current, GridKey key) const;
  // The scroll offset that brings a cell fully into view with the least movement.
  int32_t ScrollToShow(int32_t index, int32_t scroll) const;
};

// A picture of width x height shrunk to fit a box, keeping its aspect and
// never enlarged; each side at least 1. {0, 0} for an empty picture or box.
struct PixelSize {
  int32_t width = 0, height = 0;
  bool operator==(const PixelSize&) const = default;
};
PixelSize FitWithin(int32_t width, int32_t height, int32_t boxWidth, int32_t boxHeight);
// The picture averaged down to FitWithin's size (each target pixel the
// alpha-weighted mean of the source pixels it covers); a copy when it fits.
[[nodiscard]] Surface ShrinkToFit(const Surface& source, int32_t boxWidth, int32_t boxHeight);

// The next thumbnail to load: visible cells first, then those below, then
// those above; -1 when every cell is done or under way.
enum class ThumbState : uint8_t { Waiting, Loading, Done };
int32_t NextThumbnail(std::span<const ThumbState> states, int32_t firstVisible, int32_t lastVisible);

// "1,234 bytes", "12.3 KB", "4.5 MB" (1024-based, one decimal).
std::u16string FileSizeText(uint64_t bytes);
// "JPEG image", "PNG image", ..., "Tavora layered image"; the upper-case
// extension plus " file" otherwise.
std::u16string FileTypeText(const std::filesystem::path& path);
// Under the preview: "4000 × 3000 px   JPEG image   3.2 MB".
std::u16string PreviewCaption(int32_t width, int32_t height, const std::filesystem::path& path, uint64_t bytes);

// The folder Browse opens in: the chosen default folder, else the last one
// used, else `fallback`, whichever first exists.
std::filesystem::path StartFolder(std::u16string_view defaultDir, std::u16string_view lastFolder,
                                  const std::filesystem::path& fallback);

}  // namespace tavora

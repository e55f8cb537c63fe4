#include "browse/browse_model.h"

#include <algorithm>
#include <cstdio>
#include <cwctype>
#include <system_error>

namespace tavora {

BrowseSort BrowseSortFromInt(int64_t value) {
  return value == 1 ? BrowseSort::Date : value == 2 ? BrowseSort::Size : BrowseSort::Name;
}

namespace {

char16_t Fold(char16_t c) {
  if (c >= u'A' && c <= u'Z') return static_cast<char16_t>(c + 32);
  if (c < 0x80) return c;
  return static_cast<char16_t>(std::towlower(static_cast<wint_t>(c)));
}

bool IsDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

// <0, 0, >0 like strcmp, folding case and reading digit runs as numbers.
int NaturalCompare(std::u16string_view a, std::u16string_view b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (IsDigit(a[i]) && IsDigit(b[j])) {
      // Skip leading zeros, then the longer run is the larger number.
      std::size_t si = i, sj = j;
      while (si < a.size() && a[si] == u'0') ++si;
      while (sj < b.size() && b[sj] == u'0') ++sj;
      std::size_t ei = si, ej = sj;
      while (ei < a.size() && IsDigit(a[ei])) ++ei;
      while (ej < b.size() && IsDigit(b[ej])) ++ej;
      if (ei - si != ej - sj) return ei - si < ej - sj ? -1 : 1;
      for (std::size_t k = 0; k < ei - si; ++k)
        if (a[si + k] != b[sj + k]) return a[si + k] < b[sj + k] ? -1 : 1;
      i = ei;
      j = ej;
      continue;
    }
    const char16_t x = Fold(a[i]), y = Fold(b[j]);
    if (x != y) return x < y ? -1 : 1;
    ++i;
    ++j;
  }
  if (i < a.size()) return 1;
  if (j < b.size()) return -1;
  return 0;
}

}  // namespace

bool NaturalLess(std::u16string_view a, std::u16string_view b) {
  const int c = NaturalCompare(a, b);
  return c != 0 ? c < 0 : a < b;
}

std::vector<BrowseEntry> GridEntries(std::vector<BrowseEntry> all, BrowseSort sort, ShowHidden hidden,
                                     bool (*opens)(const std::filesystem::path&)) {
  std::erase_if(all, [&](const BrowseEntry& e) {
    if (e.hidden && hidden == ShowHidden::No) return true;
    return !e.folder && !(opens && opens(e.path));
  });
  const auto byName = [](const BrowseEntry& a, const BrowseEntry& b) { return NaturalLess(a.name, b.name); };
  std::sort(all.begin(), all.end(), byName);
  // Folders stay first and by name; files are re-ordered stably, so ties
  // keep the name order.
  const auto files = std::stable_partition(all.begin(), all.end(), [](const BrowseEntry& e) { return e.folder; });
  if (sort == BrowseSort::Date) {
    std::stable_sort(files, all.end(), [](const BrowseEntry& a, const BrowseEntry& b) { return a.modified > b.modified; });
  } else if (sort == BrowseSort::Size) {
    std::stable_sort(files, all.end(), [](const BrowseEntry& a, const BrowseEntry& b) { return a.size > b.size; });
  }
  return all;
}

std::optional<std::vector<BrowseEntry>> ListFolder(const std::filesystem::path& folder) {
  std::error_code ec;
  std::filesystem::directory_iterator it(folder, ec);
  if (ec) return std::nullopt;
  std::vector<BrowseEntry> out;
  for (; it != std::filesystem::directory_iterator(); it.increment(ec)) {
    if (ec) return std::nullopt;
    BrowseEntry e;
    e.path = it->path();
    e.name = e.path.filename().u16string();
    std::error_code fe;
    e.folder = it->is_directory(fe);
    if (!e.folder) {
      e.size = it->file_size(fe);
      if (fe) e.size = 0;
    }
    const auto time = it->last_write_time(fe);
    if (!fe) e.modified = time.time_since_epoch().count();
    e.hidden = !e.name.empty() && e.name[0] == u'.';
    out.push_back(std::move(e));
  }
  return out;
}

// ---------------------------------------------------------------- history

void FolderHistory::Visit(const std::filesystem::path& folder) {
  if (!folders_.empty() && folders_[index_] == folder) return;
  if (!folders_.empty()) folders_.resize(index_ + 1);
  folders_.push_back(folder);
  if (folders_.size() > kLimit) folders_.erase(folders_.begin());
  index_ = folders_.size() - 1;
}

std::optional<std::filesystem::path> FolderHistory::Back() {
  if (!CanGoBack()) return std::nullopt;
  return folders_[--index_];
}

std::optional<std::filesystem::path> FolderHistory::Forward() {
  if (!CanGoForward()) return std::nullopt;
  return folders_[++index_];
}

std::optional<std::filesystem::path> FolderHistory::Current() const {
  if (folders_.empty()) return std::nullopt;
  return folders_[index_];
}

// ---------------------------------------------------------------- grid

int32_t GridLayout::Columns() const {
  const int32_t pitch = cellWidth + gap;
  if (pitch <= 0) return 1;
  return std::max<int32_t>(1, (viewWidth - gap) / pitch);
}

int32_t GridLayout::Rows() const {
  const int32_t c = Columns();
  return count <= 0 ? 0 : (count + c - 1) / c;
}

int32_t GridLayout::ContentHeight() const { return Rows() * (cellHeight + gap) + gap; }

int32_t GridLayout::MaxScroll() const { return std::max<int32_t>(0, ContentHeight() - viewHeight); }

int32_t GridLayout::ClampScroll(int32_t scroll) const { return std::clamp<int32_t>(scroll, 0, MaxScroll()); }

GridBox GridLayout::Cell(int32_t index) const {
  const int32_t c = Columns();
  return {gap + (index % c) * (cellWidth + gap), gap + (index / c) * (cellHeight + gap), cellWidth, cellHeight};
}

int32_t GridLayout::HitTest(int32_t x, int32_t y) const {
  if (x < gap || y < gap) return -1;
  const int32_t col = (x - gap) / (cellWidth + gap), row = (y - gap) / (cellHeight + gap);
  if (col >= Columns() || (x - gap) % (cellWidth + gap) >= cellWidth ||
      (y - gap) % (cellHeight + gap) >= cellHeight)
    return -1;
  const int64_t index = int64_t(row) * Columns() + col;
  return index < count ? static_cast<int32_t>(index) : -1;
}

std::pair<int32_t, int32_t> GridLayout::Visible(int32_t scroll) const {
  if (count <= 0 || viewHeight <= 0) return {0, 0};
  const int32_t pitch = cellHeight + gap;
  // A row is visible while any of its cell rows lies in [scroll, scroll + viewHeight).
  const int32_t firstRow = std::max<int32_t>(0, (scroll - gap - cellHeight) / pitch + (scroll - gap - cellHeight >= 0 ? 1 : 0));
  const int32_t lastRow = std::max<int32_t>(0, (scroll + viewHeight - gap - 1) / pitch);  // inclusive
  const int32_t c = Columns();
  const int32_t first = std::min<int32_t>(count, firstRow * c);
  const int32_t last = std::min<int32_t>(count, (lastRow + 1) * c);
  return {first, std::max(first, last)};
}

int32_t GridLayout::Move(int32_t current, GridKey key) const {
  if (count <= 0) return -1;
  if (current < 0 || current >= count) return key == GridKey::End ? count - 1 : 0;
  const int32_t c = Columns();
  const int32_t page = std::max<int32_t>(1, viewHeight / (cellHeight + gap)) * c;
  int32_t next = current;
  switch (key) {
    case GridKey::Left: next = current - 1; break;
    case GridKey::Right: next = current + 1; break;
    case GridKey::Up: next = current - c; break;
    case GridKey::Down: next = current + c; break;
    case GridKey::Home: return 0;
    case GridKey::End: return count - 1;
    case GridKey::PageUp: next = current - page; break;
    case GridKey::PageDown: next = current + page; break;
  }
  // Up and Down stay in their column at the edges; the rest stop at the ends.
  if (key == GridKey::Up && next < 0) return current;
  if (key == GridKey::Down && next >= count) {
    // The last row may be short: the last cell when it lies in a lower row.
    return (count - 1) / c > current / c ? count - 1 : current;
  }
  if (key == GridKey::PageUp && next < 0) return current % c;
  return std::clamp<int32_t>(next, 0, count - 1);
}

int32_t GridLayout::ScrollToShow(int32_t index, int32_t scroll) const {
  if (index < 0 || index >= count) return ClampScroll(scroll);
  const GridBox b = Cell(index);
  if (b.y - gap < scroll) scroll = b.y - gap;
  else if (b.y + b.height + gap > scroll + viewHeight) scroll = b.y + b.height + gap - viewHeight;
  return ClampScroll(scroll);
}

// ---------------------------------------------------------------- thumbnails

PixelSize FitWithin(int32_t width, int32_t height, int32_t boxWidth, int32_t boxHeight) {
  if (width <= 0 || height <= 0 || boxWidth <= 0 || boxHeight <= 0) return {};
  if (width <= boxWidth && height <= boxHeight) return {width, height};
  // Compare width/boxWidth with height/boxHeight without rounding.
  if (int64_t(width) * boxHeight >= int64_t(height) * boxWidth) {
    const int64_t h = (int64_t(height) * boxWidth + width / 2) / width;
    return {boxWidth, static_cast<int32_t>(std::clamp<int64_t>(h, 1, boxHeight))};
  }
  const int64_t w = (int64_t(width) * boxHeight + height / 2) / height;
  return {static_cast<int32_t>(std::clamp<int64_t>(w, 1, boxWidth)), boxHeight};
}

Surface ShrinkToFit(const Surface& source, int32_t boxWidth, int32_t boxHeight) {
  const PixelSize size = FitWithin(source.Width(), source.Height(), boxWidth, boxHeight);
  if (size.width == 0) return {};
  if (size.width == source.Width() && size.height == source.Height()) return source;
  Surface out(size.width, size.height);
  const int32_t sw = source.Width(), sh = source.Height();
  // Source columns covered by each target column, worked out once.
  std::vector<int32_t> x0(size.width + 1);
  for (int32_t x = 0; x <= size.width; ++x) x0[x] = static_cast<int32_t>(int64_t(x) * sw / size.width);
  std::vector<uint64_t> sums(std::size_t(size.width) * 4);
  for (int32_t y = 0; y < size.height; ++y) {
    const int32_t ya = static_cast<int32_t>(int64_t(y) * sh / size.height);
    const int32_t yb = std::max(ya + 1, static_cast<int32_t>(int64_t(y + 1) * sh / size.height));
    std::fill(sums.begin(), sums.end(), 0);
    for (int32_t sy = ya; sy < yb; ++sy) {
      const uint32_t* row = source.Row(sy);
      for (int32_t x = 0; x < size.width; ++x) {
        uint64_t* s = &sums[std::size_t(x) * 4];
        const int32_t xb = std::max(x0[x] + 1, x0[x + 1]);
        for (int32_t sx = x0[x]; sx < xb; ++sx) {
          const uint32_t p = row[sx];
          const uint32_t a = p >> 24;
          s[0] += (p & 0xFF) * a;
          s[1] += ((p >> 8) & 0xFF) * a;
          s[2] += ((p >> 16) & 0xFF) * a;
          s[3] += a;
        }
      }
    }
    uint32_t* outRow = out.Row(y);
    for (int32_t x = 0; x < size.width; ++x) {
      const uint64_t* s = &sums[std::size_t(x) * 4];
      const uint64_t n = uint64_t(std::max(x0[x] + 1, x0[x + 1]) - x0[x]) * uint64_t(yb - ya);
      if (s[3] == 0) {
        outRow[x] = 0;
        continue;
      }
      const uint32_t b = static_cast<uint32_t>((s[0] + s[3] / 2) / s[3]);
      const uint32_t g = static_cast<uint32_t>((s[1] + s[3] / 2) / s[3]);
      const uint32_t r = static_cast<uint32_t>((s[2] + s[3] / 2) / s[3]);
      const uint32_t a = static_cast<uint32_t>((s[3] + n / 2) / n);
      outRow[x] = b | (g << 8) | (r << 16) | (a << 24);
    }
  }
  return out;
}

int32_t NextThumbnail(std::span<const ThumbState> states, int32_t firstVisible, int32_t lastVisible) {
  const int32_t n = static_cast<int32_t>(states.size());
  firstVisible = std::clamp<int32_t>(firstVisible, 0, n);
  lastVisible = std::clamp<int32_t>(lastVisible, firstVisible, n);
  for (int32_t i = firstVisible; i < lastVisible; ++i)
    if (states[i] == ThumbState::Waiting) return i;
  for (int32_t i = lastVisible; i < n; ++i)
    if (states[i] == ThumbState::Waiting) return i;
  for (int32_t i = firstVisible - 1; i >= 0; --i)
    if (states[i] == ThumbState::Waiting) return i;
  return -1;
}

// ---------------------------------------------------------------- captions

std::u16string FileSizeText(uint64_t bytes) {
  char text[64];
  if (bytes < 1024) {
    // Thousands separated, as the bytes of a small file are read.
    std::string digits = std::to_string(bytes);
    std::string grouped;
    for (std::size_t i = 0; i < digits.size(); ++i) {
      if (i > 0 && (digits.size() - i) % 3 == 0) grouped.push_back(',');
      grouped.push_back(digits[i]);
    }
    std::snprintf(text, sizeof text, "%s bytes", grouped.c_str());
  } else {
    static const char* const kUnits[] = {"KB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes) / 1024.0;
    int unit = 0;
    while (value >= 1023.95 && unit < 3) {
      value /= 1024.0;
      ++unit;
    }
    std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
  }
  return std::u16string(text, text + std::char_traits<char>::length(text));
}

std::u16string FileTypeText(const std::filesystem::path& path) {
  std::u16string ext = path.extension().u16string();
  if (!ext.empty()) ext.erase(0, 1);
  for (char16_t& c : ext) c = Fold(c);
  static const struct {
    std::u16string_view ext, text;
  } kTypes[] = {{u"jpg", u"JPEG image"},  {u"jpeg", u"JPEG image"}, {u"jpe", u"JPEG image"},
                {u"png", u"PNG image"},   {u"bmp", u"BMP image"},   {u"gif", u"GIF image"},
                {u"tif", u"TIFF image"},  {u"tiff", u"TIFF image"}, {u"ico", u"Icon"},
                {u"webp", u"WebP image"}, {u"psd", u"Photoshop image"}, {u"hdr", u"Radiance HDR image"},
                {u"tvl", u"Tavora layered image"}, {u"kzl", u"Tavora layered image"}};
  for (const auto& t : kTypes)
    if (t.ext == ext) return std::u16string(t.text);
  for (char16_t& c : ext)
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
  return ext.empty() ? u"File" : ext + u" file";
}

std::u16string PreviewCaption(int32_t width, int32_t height, const std::filesystem::path& path, uint64_t bytes) {
  const std::string w = std::to_string(width), h = std::to_string(height);
  return std::u16string(w.begin(), w.end()) + u" \u00D7 " + std::u16string(h.begin(), h.end()) + u" px   " +
         FileTypeText(path) + u"   " + FileSizeText(bytes);
}

std::filesystem::path StartFolder(std::u16string_view defaultDir, std::u16string_view lastFolder,
                                  const std::filesystem::path& fallback) {
  for (std::u16string_view candidate : {defaultDir, lastFolder}) {
    if (candidate.empty()) continue;
    std::error_code ec;
    const std::filesystem::path p{std::u16string(candidate)};
    if (std::filesystem::is_directory(p, ec)) return p;
  }
  return fallback;
}

}  // namespace tavora

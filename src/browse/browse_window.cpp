#include "browse/browse_window.h"

#include <commctrl.h>
#include <shellapi.h>
#include <shlobj.h>
#include <windowsx.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/settings_store.h"
#include "browse/browse_model.h"
#include "browse/thumbnail_loader_win32.h"
#include "formats/file_formats.h"
#include "platform/buffered_paint_win32.h"
#include "platform/dpi_win32.h"
#include "platform/message_box_win32.h"
#include "platform/theme_win32.h"

namespace tavora {
namespace {

constexpr UINT kLoaded = WM_APP + 41;   // a loading thread has results
constexpr UINT_PTR kSyncTimer = 41;     // retries the lock and collects results
constexpr UINT kSyncMs = 40;
enum : int { kIdBack = 101, kIdForward, kIdUp, kIdSort, kIdPath, kIdTree };

struct Browse {
  HWND host = nullptr, back = nullptr, forward = nullptr, up = nullptr, sort = nullptr, path = nullptr;
  HWND tree = nullptr, grid = nullptr, preview = nullptr;
  BrowseActions actions;
  bool dark = true;
  UINT dpi = 96;
  HFONT font = nullptr;

  FolderHistory history;
  std::filesystem::path folder;
  std::vector<BrowseEntry> entries;
  BrowseSort order = BrowseSort::Name;
  std::vector<Surface> thumbs;  // by entry; empty until loaded
  std::vector<bool> failed;     // the file could not be read
  int32_t selected = -1;
  int32_t scroll = 0;
  GridLayout layout;

  std::unique_ptr<ThumbnailLoader> loader;
  LoaderRequest request;
  bool requestChanged = false;
  std::optional<LoadedPreview> shownPreview;  // the preview of request.preview once loaded

  std::vector<std::filesystem::path> treePaths;  // by tree item lParam
};
Browse g_browse;

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }
int Px(int dip) { return MulDiv(dip, static_cast<int>(g_browse.dpi), 96); }

COLORREF Background() { return g_browse.dark ? RGB(0x25, 0x26, 0x2A) : RGB(0xFF, 0xFF, 0xFF); }
COLORREF TextColor() { return g_browse.dark ? RGB(0xDD, 0xDE, 0xE1) : RGB(0x20, 0x21, 0x24); }
COLORREF DimText() { return g_browse.dark ? RGB(0x9A, 0x9D, 0xA3) : RGB(0x60, 0x63, 0x69); }
COLORREF SelectedFill() { return g_browse.dark ? RGB(0x2F, 0x4F, 0x7A) : RGB(0xCC, 0xE0, 0xFA); }
COLORREF Placeholder() { return g_browse.dark ? RGB(0x34, 0x36, 0x3B) : RGB(0xE6, 0xE7, 0xEA); }

// ---------------------------------------------------------------- listing

// The files the open flow takes: a known extension whose reader is there.
bool Opens(const std::filesystem::path& path) { return IsSupportedExtension(path) && CanOpenFile(path); }

bool ShowHiddenSetting() { return AppSettings().GetInt(u"Browse", u"ShowHidden", 1) != 0; }

// FindFirstFileEx gives name, size, time and the hidden attribute in one
// call per entry, which std::filesystem does not.
std::optional<std::vector<BrowseEntry>> ListFolderWin32(const std::filesystem::path& folder, bool foldersOnly) {
  WIN32_FIND_DATAW data;
  const std::wstring pattern = (folder / L"*").wstring();
  HANDLE find = FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &data,
                                 foldersOnly ? FindExSearchLimitToDirectories : FindExSearchNameMatch, nullptr,
                                 FIND_FIRST_EX_LARGE_FETCH);
  if (find == INVALID_HANDLE_VALUE) {
    if (GetLastError() == ERROR_FILE_NOT_FOUND) return std::vector<BrowseEntry>{};
    return std::nullopt;
  }
  std::vector<BrowseEntry> out;
  do {
    const std::wstring name = data.cFileName;
    if (name == L"." || name == L"..") continue;
    BrowseEntry e;
    e.folder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (foldersOnly && !e.folder) continue;
    e.name = std::u16string(name.begin(), name.end());
    e.path = folder / name;
    e.size = e.folder ? 0 : (uint64_t(data.nFileSizeHigh) << 32 | data.nFileSizeLow);
    e.modified = int64_t(uint64_t(data.ftLastWriteTime.dwHighDateTime) << 32 | data.ftLastWriteTime.dwLowDateTime);
    e.hidden = (data.dwFileAttributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) != 0;
    out.push_back(std::move(e));
  } while (FindNextFileW(find, &data));
  FindClose(find);
  return out;
}

// ---------------------------------------------------------------- loading

void Sync();

void EnsureLoader() {
  if (!g_browse.loader) g_browse.loader = std::make_unique<ThumbnailLoader>(g_browse.grid, kLoaded);
}

void UpdateVisible() {
  const auto [first, last] = g_browse.layout.Visible(g_browse.scroll);
  if (first != g_browse.request.firstVisible || last != g_browse.request.lastVisible) {
    g_browse.request.firstVisible = first;
    g_browse.request.lastVisible = last;
    g_browse.requestChanged = true;
  }
}

// Hands the request over and takes results; when a thread holds the lock
// the timer comes back to it.
void Sync() {
  if (!g_browse.loader) return;
  std::vector<LoadedThumb> thumbs;
  std::optional<LoadedPreview> preview;
  if (!g_browse.loader->TrySync(g_browse.request, thumbs, preview)) {
    SetTimer(g_browse.grid, kSyncTimer, kSyncMs, nullptr);
    return;
  }
  g_browse.requestChanged = false;
  bool repaint = false;
  for (LoadedThumb& t : thumbs) {
    if (t.index < 0 || t.index >= static_cast<int32_t>(g_browse.thumbs.size())) continue;
    g_browse.failed[t.index] = t.pixels.Empty();
    g_browse.thumbs[t.index] = std::move(t.pixels);
    repaint = true;
  }
  if (repaint) InvalidateRect(g_browse.grid, nullptr, FALSE);
  if (preview && preview->path == g_browse.request.preview) {
    g_browse.shownPreview = std::move(preview);
    InvalidateRect(g_browse.preview, nullptr, FALSE);
  }
  if (g_browse.loader->Busy()) SetTimer(g_browse.grid, kSyncTimer, kSyncMs, nullptr);
  else KillTimer(g_browse.grid, kSyncTimer);
}

// The host's window text names what Browse points at: the selected entry's
// path, else the folder's (screen readers and the end-to-end tests read it).
void UpdateHostText() {
  const int32_t s = g_browse.selected;
  const std::filesystem::path& shown =
      s >= 0 && s < static_cast<int32_t>(g_browse.entries.size()) ? g_browse.entries[s].path : g_browse.folder;
  SetWindowTextW(g_browse.host, shown.c_str());
}

void RequestPreview() {
  UpdateHostText();
  std::filesystem::path wanted;
  const int32_t s = g_browse.selected;
  if (s >= 0 && s < static_cast<int32_t>(g_browse.entries.size()) && !g_browse.entries[s].folder)
    wanted = g_browse.entries[s].path;
  if (wanted != g_browse.request.preview) {
    g_browse.request.preview = wanted;
    g_browse.shownPreview.reset();
    g_browse.requestChanged = true;
    InvalidateRect(g_browse.preview, nullptr, FALSE);
  }
}

// ---------------------------------------------------------------- grid

void UpdateLayout() {
  RECT r;
  GetClientRect(g_browse.grid, &r);
  GridLayout& l = g_browse.layout;
  l.cellWidth = Px(168);
  l.cellHeight = Px(190);
  l.gap = Px(8);
  l.viewWidth = r.right;
  l.viewHeight = r.bottom;
  l.count = static_cast<int32_t>(g_browse.entries.size());
  g_browse.scroll = l.ClampScroll(g_browse.scroll);
  SCROLLINFO si{sizeof si, SIF_ALL | SIF_DISABLENOSCROLL};
  si.nMin = 0;
  si.nMax = std::max(0, l.ContentHeight() - 1);
  si.nPage = static_cast<UINT>(std::max(0, l.viewHeight));
  si.nPos = g_browse.scroll;
  SetScrollInfo(g_browse.grid, SB_VERT, &si, TRUE);
  UpdateVisible();
}

void ScrollTo(int32_t scroll) {
  scroll = g_browse.layout.ClampScroll(scroll);
  if (scroll == g_browse.scroll) return;
  g_browse.scroll = scroll;
  SetScrollPos(g_browse.grid, SB_VERT, scroll, TRUE);
  InvalidateRect(g_browse.grid, nullptr, FALSE);
  UpdateVisible();
  Sync();
}

void Select(int32_t index) {
  if (index >= static_cast<int32_t>(g_browse.entries.size())) index = static_cast<int32_t>(g_browse.entries.size()) - 1;
  if (index != g_browse.selected) {
    g_browse.selected = index;
    InvalidateRect(g_browse.grid, nullptr, FALSE);
  }
  if (index >= 0) ScrollTo(g_browse.layout.ScrollToShow(index, g_browse.scroll));
  RequestPreview();
  Sync();
}

// A thumbnail laid on the cell's colour, as opaque pixels for GDI.
void DrawPixels(HDC dc, const Surface& pixels, int x, int y, COLORREF under) {
  const int w = pixels.Width(), h = pixels.Height();
  std::vector<uint32_t> out(std::size_t(w) * h);
  const uint32_t ur = GetRValue(under), ug = GetGValue(under), ub = GetBValue(under);
  for (int j = 0; j < h; ++j) {
    const uint32_t* row = pixels.Row(j);
    uint32_t* o = out.data() + std::size_t(j) * w;
    for (int i = 0; i < w; ++i) {
      const uint32_t p = row[i], a = p >> 24;
      if (a == 255) {
        o[i] = p;
        continue;
      }
      const uint32_t b = ((p & 0xFF) * a + ub * (255 - a) + 127) / 255;
      const uint32_t g = (((p >> 8) & 0xFF) * a + ug * (255 - a) + 127) / 255;
      const uint32_t r = (((p >> 16) & 0xFF) * a + ur * (255 - a) + 127) / 255;
      o[i] = 0xFF000000u | r << 16 | g << 8 | b;
    }
  }
  BITMAPINFO bi{};
  bi.bmiHeader.biSize = sizeof bi.bmiHeader;
  bi.bmiHeader.biWidth = w;
  bi.bmiHeader.biHeight = -h;
  bi.bmiHeader.biPlanes = 1;
  bi.bmiHeader.biBitCount = 32;
  bi.bmiHeader.biCompression = BI_RGB;
  SetDIBitsToDevice(dc, x, y, w, h, 0, 0, 0, h, out.data(), &bi, DIB_RGB_COLORS);
}

void Fill(HDC dc, const RECT& r, COLORREF c) {
  SetDCBrushColor(dc, c);
  FillRect(dc, &r, static_cast<HBRUSH>(GetStockObject(DC_BRUSH)));
}

void DrawFolderIcon(HDC dc, const RECT& box) {
  const int w = (box.right - box.left) * 3 / 5, h = w * 3 / 4;
  const int x = (box.left + box.right - w) / 2, y = (box.top + box.bottom - h) / 2;
  const COLORREF tab = RGB(0xD9, 0xA4, 0x3B), body = RGB(0xF2, 0xC2, 0x5C);
  Fill(dc, {x, y, x + w * 2 / 5, y + h / 6}, tab);
  Fill(dc, {x, y + h / 8, x + w, y + h}, body);
}

void PaintGrid(HWND hwnd) {
  BufferedPaint paint(hwnd);
  const HDC dc = paint.Dc();
  RECT client = paint.Client();
  HGDIOBJ oldFont = SelectObject(dc, g_browse.font);
  Fill(dc, client, Background());
  SetBkMode(dc, TRANSPARENT);
  const GridLayout& l = g_browse.layout;
  if (g_browse.entries.empty()) {
    SetTextColor(dc, DimText());
    const wchar_t* text = g_browse.folder.empty() ? L"" : L"No pictures in this folder";
    DrawTextW(dc, text, -1, &client, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
  }
  const auto [first, last] = l.Visible(g_browse.scroll);
  const int pad = Px(4), textHeight = Px(22);
  for (int32_t i = first; i < last; ++i) {
    const GridBox b = l.Cell(i);
    RECT cell{b.x, b.y - g_browse.scroll, b.x + b.width, b.y + b.height - g_browse.scroll};
    const bool selected = i == g_browse.selected;
    const COLORREF under = selected ? SelectedFill() : Background();
    if (selected) Fill(dc, cell, under);
    RECT picture{cell.left + pad, cell.top + pad, cell.right - pad, cell.bottom - textHeight};
    const BrowseEntry& e = g_browse.entries[i];
    if (e.folder) {
      DrawFolderIcon(dc, picture);
    } else if (!g_browse.thumbs[i].Empty()) {
      const Surface& t = g_browse.thumbs[i];
      DrawPixels(dc, t, (picture.left + picture.right - t.Width()) / 2, (picture.top + picture.bottom - t.Height()) / 2,
                 under);
    } else {
      // Waiting for its thumbnail, or unreadable: a plain frame of the shape to come.
      RECT ph{picture.left + Px(16), picture.top + Px(24), picture.right - Px(16), picture.bottom - Px(24)};
      Fill(dc, ph, Placeholder());
      if (g_browse.failed[i]) {
        SetTextColor(dc, DimText());
        DrawTextW(dc, L"?", -1, &ph, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
      }
    }
    RECT label{cell.left + pad, cell.bottom - textHeight, cell.right - pad, cell.bottom - pad / 2};
    SetTextColor(dc, TextColor());
    const std::wstring name = Wide(e.name);
    DrawTextW(dc, name.c_str(), -1, &label, DT_CENTER | DT_SINGLELINE | DT_END_ELLIPSIS | DT_NOPREFIX);
  }
  SelectObject(dc, oldFont);
}

// ---------------------------------------------------------------- folders

void UpdateButtons() {
  EnableWindow(g_browse.back, g_browse.history.CanGoBack());
  EnableWindow(g_browse.forward, g_browse.history.CanGoForward());
  EnableWindow(g_browse.up, g_browse.folder.has_relative_path());
  SetWindowTextW(g_browse.path, g_browse.folder.c_str());
}

void RevealInTree(const std::filesystem::path& folder);

// Lists the folder again; `keep` is selected when it is still there.
void Load(const std::filesystem::path& folder, const std::filesystem::path& keep) {
  auto listed = ListFolderWin32(folder, false);
  g_browse.folder = folder;
  g_browse.entries = listed ? GridEntries(std::move(*listed), g_browse.order,
                                          ShowHiddenSetting() ? ShowHidden::Yes : ShowHidden::No, &Opens)
                            : std::vector<BrowseEntry>{};
  g_browse.thumbs.assign(g_browse.entries.size(), Surface());
  g_browse.failed.assign(g_browse.entries.size(), false);
  g_browse.selected = -1;
  g_browse.scroll = 0;
  for (std::size_t i = 0; i < g_browse.entries.size(); ++i)
    if (!keep.empty() && g_browse.entries[i].path == keep) g_browse.selected = static_cast<int32_t>(i);
  EnsureLoader();
  ++g_browse.request.generation;
  g_browse.request.files.clear();
  for (const BrowseEntry& e : g_browse.entries)
    g_browse.request.files.push_back(e.folder ? std::filesystem::path() : e.path);
  g_browse.request.thumbBox = Px(160);
  g_browse.request.previewBox = Px(640);
  g_browse.requestChanged = true;
  UpdateLayout();
  if (g_browse.selected >= 0) g_browse.scroll = g_browse.layout.ScrollToShow(g_browse.selected, 0);
  UpdateLayout();
  RequestPreview();
  UpdateButtons();
  InvalidateRect(g_browse.grid, nullptr, FALSE);
  InvalidateRect(g_browse.preview, nullptr, FALSE);
  Sync();
  AppSettings().SetString(u"Browse", u"Folder", folder.u16string());
  RevealInTree(folder);
}

void Visit(const std::filesystem::path& folder, const std::filesystem::path& keep = {}) {
  g_browse.history.Visit(folder);
  Load(folder, keep);
}

void GoBack() {
  const std::filesystem::path from = g_browse.folder;
  if (auto f = g_browse.history.Back()) Load(*f, from);
}
void GoForward() {
  if (auto f = g_browse.history.Forward()) Load(*f, {});
}
void GoUp() {
  if (!g_browse.folder.has_relative_path()) return;
  const std::filesystem::path from = g_browse.folder;
  std::filesystem::path parent = from.parent_path();
  if (parent.empty()) return;
  Visit(parent, from);
}

void Refresh() {
  const int32_t s = g_browse.selected;
  const std::filesystem::path keep =
      s >= 0 && s < static_cast<int32_t>(g_browse.entries.size()) ? g_browse.entries[s].path : std::filesystem::path();
  const int32_t scroll = g_browse.scroll;
  Load(g_browse.folder, keep);
  if (g_browse.selected < 0 && s >= 0) g_browse.selected = std::min<int32_t>(s, static_cast<int32_t>(g_browse.entries.size()) - 1);
  ScrollTo(g_browse.selected >= 0 ? g_browse.layout.ScrollToShow(g_browse.selected, scroll) : scroll);
  RequestPreview();
  Sync();
}

void Activate(int32_t index) {
  if (index < 0 || index >= static_cast<int32_t>(g_browse.entries.size())) return;
  const BrowseEntry e = g_browse.entries[index];
  if (e.folder) {
    Visit(e.path);
  } else if (g_browse.actions.openImage) {
    g_browse.actions.openImage(e.path);
  }
}

void DeleteSelected() {
  const int32_t s = g_browse.selected;
  if (s < 0 || s >= static_cast<int32_t>(g_browse.entries.size())) return;
  const BrowseEntry& e = g_browse.entries[s];
  const std::wstring question = L"Move \"" + Wide(e.name) + L"\" to the Recycle Bin?";
  if (ShowMessageBox(GetAncestor(g_browse.host, GA_ROOT), question, L"Tavora", MB_YESNO | MB_ICONQUESTION) != IDYES)
    return;
  // The list ends in two nulls.
  std::wstring from = e.path.wstring();
  from.push_back(L'\0');
  SHFILEOPSTRUCTW op{};
  op.hwnd = GetAncestor(g_browse.host, GA_ROOT);
  op.wFunc = FO_DELETE;
  op.pFrom = from.c_str();
  op.fFlags = FOF_ALLOWUNDO | FOF_NOCONFIRMATION | FOF_SILENT;
  if (SHFileOperationW(&op) != 0 || op.fAnyOperationsAborted) {
    ShowMessageBox(op.hwnd, L"\"" + Wide(e.name) + L"\" could not be moved to the Recycle Bin.", L"Tavora",
                   MB_OK | MB_ICONWARNING);
  }
  Refresh();
}

void SetSort(BrowseSort order) {
  if (order == g_browse.order) return;
  g_browse.order = order;
  AppSettings().SetInt(u"Browse", u"Sort", static_cast<int32_t>(order));
  SendMessageW(g_browse.sort, CB_SETCURSEL, static_cast<WPARAM>(order), 0);
  if (!g_browse.folder.empty()) Refresh();
}

// ---------------------------------------------------------------- tree

HTREEITEM AddTreeItem(HTREEITEM parent, const std::wstring& text, const std::filesystem::path& path) {
  g_browse.treePaths.push_back(path);
  TVINSERTSTRUCTW ins{};
  ins.hParent = parent;
  ins.hInsertAfter = TVI_LAST;
  ins.item.mask = TVIF_TEXT | TVIF_PARAM | TVIF_CHILDREN;
  ins.item.pszText = const_cast<wchar_t*>(text.c_str());
  ins.item.lParam = static_cast<LPARAM>(g_browse.treePaths.size() - 1);
  ins.item.cChildren = 1;  // found out when it is opened
  return reinterpret_cast<HTREEITEM>(SendMessageW(g_browse.tree, TVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&ins)));
}

void FillTreeRoots() {
  SendMessageW(g_browse.tree, TVM_DELETEITEM, 0, reinterpret_cast<LPARAM>(TVI_ROOT));
  g_browse.treePaths.clear();
  wchar_t drives[512];
  const DWORD n = GetLogicalDriveStringsW(511, drives);
  for (const wchar_t* d = drives; n > 0 && n < 512 && *d; d += wcslen(d) + 1) {
    std::wstring label = d;
    if (label.size() > 1 && label.back() == L'\\') label.pop_back();
    AddTreeItem(TVI_ROOT, label, d);
  }
  const struct {
    int csidl;
    const wchar_t* name;
  } kPlaces[] = {{CSIDL_DESKTOPDIRECTORY, L"Desktop"}, {CSIDL_PERSONAL, L"Documents"},
                 {CSIDL_MYPICTURES, L"Pictures"},      {CSIDL_PROFILE, L"Home"}};
  for (const auto& p : kPlaces) {
    wchar_t path[MAX_PATH];
    DWORD attributes;
    if (SUCCEEDED(SHGetFolderPathW(nullptr, p.csidl, nullptr, SHGFP_TYPE_CURRENT, path)) &&
        (attributes = GetFileAttributesW(path)) != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
      AddTreeItem(TVI_ROOT, p.name, path);
  }
}

void ExpandTreeItem(HTREEITEM item, LPARAM param) {
  if (SendMessageW(g_browse.tree, TVM_GETNEXTITEM, TVGN_CHILD, reinterpret_cast<LPARAM>(item))) return;  // filled before
  if (param < 0 || param >= static_cast<LPARAM>(g_browse.treePaths.size())) return;
  const std::filesystem::path folder = g_browse.treePaths[param];
  auto listed = ListFolderWin32(folder, true);
  std::vector<BrowseEntry> folders;
  if (listed) {
    const ShowHidden hidden = ShowHiddenSetting() ? ShowHidden::Yes : ShowHidden::No;
    folders = GridEntries(std::move(*listed), BrowseSort::Name, hidden, nullptr);
  }
  for (const BrowseEntry& e : folders) AddTreeItem(item, Wide(e.name), e.path);
  if (folders.empty()) {
    TVITEMW none{};
    none.mask = TVIF_HANDLE | TVIF_CHILDREN;
    none.hItem = item;
    none.cChildren = 0;
    SendMessageW(g_browse.tree, TVM_SETITEMW, 0, reinterpret_cast<LPARAM>(&none));
  }
}

LPARAM TreeItemParam(HTREEITEM item) {
  TVITEMW info{};
  info.mask = TVIF_HANDLE | TVIF_PARAM;
  info.hItem = item;
  if (!SendMessageW(g_browse.tree, TVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&info))) return -1;
  return info.lParam >= 0 && info.lParam < static_cast<LPARAM>(g_browse.treePaths.size()) ? info.lParam : -1;
}

// The tree follows the grid: the folder's drive is opened level by level
// down to the folder (or as far as the tree shows it) and selected.
void RevealInTree(const std::filesystem::path& folder) {
  const std::wstring root = folder.root_path().wstring();
  HTREEITEM found = nullptr;
  for (HTREEITEM item = TreeView_GetRoot(g_browse.tree); item; item = TreeView_GetNextSibling(g_browse.tree, item)) {
    const LPARAM p = TreeItemParam(item);
    if (p >= 0 && lstrcmpiW(g_browse.treePaths[p].wstring().c_str(), root.c_str()) == 0) {
      found = item;
      break;
    }
  }
  if (!found) return;
  for (const std::filesystem::path& part : folder.relative_path()) {
    if (part.empty()) continue;
    ExpandTreeItem(found, TreeItemParam(found));
    HTREEITEM next = nullptr;
    for (HTREEITEM child = TreeView_GetChild(g_browse.tree, found); child;
         child = TreeView_GetNextSibling(g_browse.tree, child)) {
      const LPARAM p = TreeItemParam(child);
      if (p >= 0 && lstrcmpiW(g_browse.treePaths[p].filename().wstring().c_str(), part.wstring().c_str()) == 0) {
        next = child;
        break;
      }
    }
    if (!next) break;
    TreeView_Expand(g_browse.tree, found, TVE_EXPAND);
    found = next;
  }
  // A selection made here opens nothing (its action is neither mouse nor keyboard).
  TreeView_SelectItem(g_browse.tree, found);
  TreeView_EnsureVisible(g_browse.tree, found);
}

LRESULT TreeNotify(const NMHDR& header) {
  if (header.code == NM_CUSTOMDRAW) {
    // The selected folder in the theme's selection colour, focused or not
    // (the system's unfocused grey would hide the light text of the dark theme).
    auto& draw = const_cast<NMTVCUSTOMDRAW&>(reinterpret_cast<const NMTVCUSTOMDRAW&>(header));
    if (draw.nmcd.dwDrawStage == CDDS_PREPAINT) return CDRF_NOTIFYITEMDRAW;
    if (draw.nmcd.dwDrawStage == CDDS_ITEMPREPAINT && (draw.nmcd.uItemState & CDIS_SELECTED)) {
      draw.clrText = TextColor();
      draw.clrTextBk = SelectedFill();
    }
    return CDRF_DODEFAULT;
  }
  if (header.code == TVN_ITEMEXPANDINGW) {
    const auto& tv = reinterpret_cast<const NMTREEVIEWW&>(header);
    if (tv.action & TVE_EXPAND) ExpandTreeItem(tv.itemNew.hItem, tv.itemNew.lParam);
  } else if (header.code == TVN_SELCHANGEDW) {
    const auto& tv = reinterpret_cast<const NMTREEVIEWW&>(header);
    // Only the user's choice opens a folder, not a selection set from here.
    if ((tv.action == TVC_BYMOUSE || tv.action == TVC_BYKEYBOARD) && tv.itemNew.lParam >= 0 &&
        tv.itemNew.lParam < static_cast<LPARAM>(g_browse.treePaths.size()))
      Visit(g_browse.treePaths[tv.itemNew.lParam]);
  }
  return 0;
}

// ---------------------------------------------------------------- preview

// A short note in the middle of a box, wrapped when the box is narrow.
void DrawNote(HDC dc, const wchar_t* text, const RECT& box) {
  RECT measured = box;
  DrawTextW(dc, text, -1, &measured, DT_CENTER | DT_WORDBREAK | DT_CALCRECT);
  RECT r = box;
  r.top += std::max<LONG>(0, (box.bottom - box.top - (measured.bottom - measured.top)) / 2);
  DrawTextW(dc, text, -1, &r, DT_CENTER | DT_WORDBREAK);
}

void PaintPreview(HWND hwnd) {
  BufferedPaint paint(hwnd);
  const HDC dc = paint.Dc();
  RECT client = paint.Client();
  HGDIOBJ oldFont = SelectObject(dc, g_browse.font);
  Fill(dc, client, Background());
  SetBkMode(dc, TRANSPARENT);
  const int pad = Px(10), captionHeight = Px(48);
  RECT box{pad, pad, client.right - pad, client.bottom - pad - captionHeight};
  RECT caption{pad, client.bottom - pad - captionHeight, client.right - pad, client.bottom - pad};
  const std::filesystem::path& wanted = g_browse.request.preview;
  if (wanted.empty() && !g_browse.entries.empty()) {
    SetTextColor(dc, DimText());
    DrawNote(dc, L"Select a picture to see it here.", box);
  }
  if (!wanted.empty()) {
    std::wstring lines = wanted.filename().wstring() + L"\n";
    SetTextColor(dc, DimText());
    if (!g_browse.shownPreview) {
      DrawNote(dc, L"Loading\u2026", box);
    } else if (g_browse.shownPreview->pixels.Empty()) {
      DrawTextW(dc, L"This file could not be read.", -1, &box, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
    } else {
      const Surface& p = g_browse.shownPreview->pixels;
      const PixelSize fit = FitWithin(p.Width(), p.Height(), box.right - box.left, box.bottom - box.top);
      if (fit.width > 0) {
        const Surface shown = fit.width == p.Width() ? p : ShrinkToFit(p, fit.width, fit.height);
        DrawPixels(dc, shown, (box.left + box.right - shown.Width()) / 2, (box.top + box.bottom - shown.Height()) / 2,
                   Background());
      }
      uint64_t bytes = 0;
      const int32_t s = g_browse.selected;
      if (s >= 0 && s < static_cast<int32_t>(g_browse.entries.size())) bytes = g_browse.entries[s].size;
      lines += Wide(PreviewCaption(g_browse.shownPreview->width, g_browse.shownPreview->height, wanted, bytes));
    }
    SetTextColor(dc, TextColor());
    DrawTextW(dc, lines.c_str(), -1, &caption, DT_CENTER | DT_WORDBREAK | DT_END_ELLIPSIS | DT_NOPREFIX);
  }
  SelectObject(dc, oldFont);
}

// ---------------------------------------------------------------- keys

// Side buttons of the mouse step through the visited folders anywhere in the tab.
bool SideButton(UINT msg, WPARAM wp) {
  if (msg != WM_XBUTTONUP) return false;
  if (GET_XBUTTON_WPARAM(wp) == XBUTTON1) GoBack();
  else if (GET_XBUTTON_WPARAM(wp) == XBUTTON2) GoForward();
  return true;
}

bool HandleGridKey(WPARAM key, bool alt) {
  if (alt) {
    if (key == VK_LEFT) GoBack();
    else if (key == VK_RIGHT) GoForward();
    else return false;
    return true;
  }
  const struct {
    WPARAM key;
    tavora::GridKey move;
  } kMoves[] = {{VK_LEFT, GridKey::Left},   {VK_RIGHT, GridKey::Right}, {VK_UP, GridKey::Up},
                {VK_DOWN, GridKey::Down},   {VK_HOME, GridKey::Home},   {VK_END, GridKey::End},
                {VK_PRIOR, GridKey::PageUp}, {VK_NEXT, GridKey::PageDown}};
  for (const auto& m : kMoves)
    if (m.key == key) {
      Select(g_browse.layout.Move(g_browse.selected, m.move));
      return true;
    }
  switch (key) {
    case VK_RETURN: Activate(g_browse.selected); return true;
    case VK_DELETE: DeleteSelected(); return true;
    case VK_F5: Refresh(); return true;
    case VK_BACK: GoUp(); return true;
  }
  return false;
}

LRESULT CALLBACK GridProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  if (SideButton(msg, wp)) return TRUE;
  switch (msg) {
    case WM_PAINT: PaintGrid(hwnd); return 0;
    case WM_ERASEBKGND: return 1;
    case WM_SIZE:
      if (g_browse.grid) {
        UpdateLayout();
        Sync();
      }
      return 0;
    case WM_GETDLGCODE: return DLGC_WANTARROWS | DLGC_WANTCHARS;
    case WM_KEYDOWN:
    case WM_SYSKEYDOWN:
      if (HandleGridKey(wp, (GetKeyState(VK_MENU) & 0x8000) != 0)) return 0;
      break;
    case WM_SETFOCUS:
    case WM_KILLFOCUS: InvalidateRect(hwnd, nullptr, FALSE); return 0;
    case WM_LBUTTONDOWN:
    case WM_LBUTTONDBLCLK: {
      SetFocus(hwnd);
      const int32_t hit = g_browse.layout.HitTest(GET_X_LPARAM(lp), GET_Y_LPARAM(lp) + g_browse.scroll);
      if (hit >= 0) Select(hit);
      if (msg == WM_LBUTTONDBLCLK && hit >= 0) Activate(hit);
      return 0;
    }
    case WM_MOUSEWHEEL:
      ScrollTo(g_browse.scroll - GET_WHEEL_DELTA_WPARAM(wp) * (g_browse.layout.cellHeight + g_browse.layout.gap) / WHEEL_DELTA);
      return 0;
    case WM_VSCROLL: {
      SCROLLINFO si{sizeof si, SIF_ALL};
      GetScrollInfo(hwnd, SB_VERT, &si);
      const int line = g_browse.layout.cellHeight + g_browse.layout.gap;
      int pos = si.nPos;
      switch (LOWORD(wp)) {
        case SB_LINEUP: pos -= line; break;
        case SB_LINEDOWN: pos += line; break;
        case SB_PAGEUP: pos -= static_cast<int>(si.nPage); break;
        case SB_PAGEDOWN: pos += static_cast<int>(si.nPage); break;
        case SB_THUMBTRACK:
        case SB_THUMBPOSITION: pos = si.nTrackPos; break;
        case SB_TOP: pos = 0; break;
        case SB_BOTTOM: pos = si.nMax; break;
      }
      ScrollTo(pos);
      return 0;
    }
    case WM_TIMER:
      if (wp == kSyncTimer) Sync();
      return 0;
    case kLoaded:
      Sync();
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

LRESULT CALLBACK PreviewProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  if (SideButton(msg, wp)) return TRUE;
  switch (msg) {
    case WM_PAINT: PaintPreview(hwnd); return 0;
    case WM_ERASEBKGND: return 1;
    case WM_SIZE: InvalidateRect(hwnd, nullptr, FALSE); return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

// ---------------------------------------------------------------- host

void LayoutHost() {
  RECT r;
  GetClientRect(g_browse.host, &r);
  const int bar = Px(34), pad = Px(5), button = Px(30), h = bar - 2 * pad;
  int x = pad;
  MoveWindow(g_browse.back, x, pad, button, h, TRUE);
  x += button + pad;
  MoveWindow(g_browse.forward, x, pad, button, h, TRUE);
  x += button + pad;
  MoveWindow(g_browse.up, x, pad, button, h, TRUE);
  x += button + pad;
  const int sortWidth = Px(110);
  MoveWindow(g_browse.sort, r.right - pad - sortWidth, pad, sortWidth, Px(200), TRUE);
  MoveWindow(g_browse.path, x + pad, pad + Px(3), std::max(0, static_cast<int>(r.right - 3 * pad - sortWidth - x)), h - Px(3), TRUE);
  const int treeWidth = std::min<int>(Px(200), r.right / 4), previewWidth = std::min<int>(Px(280), r.right / 3);
  const int below = std::max<int>(0, r.bottom - bar);
  MoveWindow(g_browse.tree, 0, bar, treeWidth, below, TRUE);
  MoveWindow(g_browse.preview, r.right - previewWidth, bar, previewWidth, below, TRUE);
  MoveWindow(g_browse.grid, treeWidth, bar, std::max<int>(0, r.right - treeWidth - previewWidth), below, TRUE);
}

void ApplyHostTheme() {
  TreeView_SetBkColor(g_browse.tree, Background());
  TreeView_SetTextColor(g_browse.tree, TextColor());
  SetControlDarkMode(g_browse.tree, g_browse.dark);
  SetControlDarkMode(g_browse.grid, g_browse.dark);
  InvalidateRect(g_browse.host, nullptr, TRUE);
  InvalidateRect(g_browse.grid, nullptr, FALSE);
  InvalidateRect(g_browse.preview, nullptr, FALSE);
}

LRESULT CALLBACK HostProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  if (SideButton(msg, wp)) return TRUE;
  switch (msg) {
    case WM_SIZE: LayoutHost(); return 0;
    case WM_ERASEBKGND: {
      RECT r;
      GetClientRect(hwnd, &r);
      Fill(reinterpret_cast<HDC>(wp), r, g_browse.dark ? RGB(0x1E, 0x1F, 0x22) : RGB(0xF3, 0xF3, 0xF3));
      return 1;
    }
    case WM_CTLCOLORSTATIC: {
      HDC dc = reinterpret_cast<HDC>(wp);
      SetTextColor(dc, TextColor());
      SetBkColor(dc, g_browse.dark ? RGB(0x1E, 0x1F, 0x22) : RGB(0xF3, 0xF3, 0xF3));
      SetDCBrushColor(dc, g_browse.dark ? RGB(0x1E, 0x1F, 0x22) : RGB(0xF3, 0xF3, 0xF3));
      return reinterpret_cast<LRESULT>(GetStockObject(DC_BRUSH));
    }
    case WM_CTLCOLORLISTBOX:
    case WM_CTLCOLOREDIT:
      if (HBRUSH b = DialogControlColor(msg, wp)) return reinterpret_cast<LRESULT>(b);
      break;
    case WM_DRAWITEM: {
      const auto* item = reinterpret_cast<const DRAWITEMSTRUCT*>(lp);
      if (item->CtlType == ODT_BUTTON) {
        DrawPushButton(*item, false);
        return TRUE;
      }
      break;
    }
    case WM_COMMAND:
      switch (LOWORD(wp)) {
        case kIdBack: GoBack(); break;
        case kIdForward: GoForward(); break;
        case kIdUp: GoUp(); break;
        case kIdSort:
          if (HIWORD(wp) == CBN_SELCHANGE)
            SetSort(BrowseSortFromInt(SendMessageW(g_browse.sort, CB_GETCURSEL, 0, 0)));
          break;
      }
      if (LOWORD(wp) != kIdSort) SetFocus(g_browse.grid);
      return 0;
    case WM_NOTIFY: {
      const auto* header = reinterpret_cast<const NMHDR*>(lp);
      if (header->hwndFrom == g_browse.tree) return TreeNotify(*header);
      break;
    }
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

HWND Button(HWND parent, HINSTANCE instance, const wchar_t* text, int id) {
  return CreateWindowExW(0, L"BUTTON", text, WS_CHILD | WS_VISIBLE | WS_TABSTOP | PushButtonStyle(false), 0, 0, 10, 10,
                         parent, reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), instance, nullptr);
}

}  // namespace

void RegisterBrowseClasses(HINSTANCE instance) {
  INITCOMMONCONTROLSEX icc{sizeof icc, ICC_TREEVIEW_CLASSES | ICC_STANDARD_CLASSES};
  InitCommonControlsEx(&icc);
  const struct {
    const wchar_t* name;
    WNDPROC proc;
    UINT style;
  } kClasses[] = {{L"KZBrowse", &HostProc, 0},
                  {L"KZBrowseGrid", &GridProc, CS_DBLCLKS},
                  {L"KZBrowsePreview", &PreviewProc, 0}};
  for (const auto& c : kClasses) {
    WNDCLASSEXW wc{sizeof wc};
    wc.style = c.style;
    wc.lpfnWndProc = c.proc;
    wc.hInstance = instance;
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.lpszClassName = c.name;
    RegisterClassExW(&wc);
  }
}

HWND CreateBrowseHost(HWND parent, HINSTANCE instance, const BrowseActions& actions) {
  Browse& b = g_browse;
  b.actions = actions;
  b.dpi = WindowDpi(parent);
  b.order = BrowseSortFromInt(AppSettings().GetInt(u"Browse", u"Sort", 0));
  b.host = CreateWindowExW(0, L"KZBrowse", L"", WS_CHILD | WS_CLIPCHILDREN | WS_CLIPSIBLINGS, 0, 0, 100, 100, parent,
                           nullptr, instance, nullptr);
  if (!b.host) return nullptr;
  b.font = CreateFontW(-MulDiv(9, static_cast<int>(b.dpi), 72), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0,
                       CLEARTYPE_QUALITY, 0, L"Segoe UI");
  b.back = Button(b.host, instance, L"\u2190", kIdBack);
  b.forward = Button(b.host, instance, L"\u2192", kIdForward);
  b.up = Button(b.host, instance, L"\u2191", kIdUp);
  b.path = CreateWindowExW(0, L"STATIC", L"", WS_CHILD | WS_VISIBLE | SS_LEFT | SS_NOPREFIX | SS_PATHELLIPSIS, 0, 0, 10,
                           10, b.host, reinterpret_cast<HMENU>(static_cast<INT_PTR>(kIdPath)), instance, nullptr);
  b.sort = CreateWindowExW(0, L"COMBOBOX", L"", WS_CHILD | WS_VISIBLE | WS_TABSTOP | CBS_DROPDOWNLIST, 0, 0, 10, 10,
                           b.host, reinterpret_cast<HMENU>(static_cast<INT_PTR>(kIdSort)), instance, nullptr);
  for (const wchar_t* text : {L"Name", L"Date", L"Size"})
    SendMessageW(b.sort, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(text));
  SendMessageW(b.sort, CB_SETCURSEL, static_cast<WPARAM>(b.order), 0);
  b.tree = CreateWindowExW(0, WC_TREEVIEWW, L"",
                           WS_CHILD | WS_VISIBLE | WS_TABSTOP | TVS_HASBUTTONS | TVS_LINESATROOT | TVS_SHOWSELALWAYS,
                           0, 0, 10, 10, b.host, reinterpret_cast<HMENU>(static_cast<INT_PTR>(kIdTree)), instance,
                           nullptr);
  b.grid = CreateWindowExW(0, L"KZBrowseGrid", L"", WS_CHILD | WS_VISIBLE | WS_VSCROLL | WS_TABSTOP, 0, 0, 10, 10,
                           b.host, nullptr, instance, nullptr);
  b.preview = CreateWindowExW(0, L"KZBrowsePreview", L"", WS_CHILD | WS_VISIBLE, 0, 0, 10, 10, b.host, nullptr,
                              instance, nullptr);
  for (HWND w : {b.back, b.forward, b.up, b.path, b.sort, b.tree})
    SendMessageW(w, WM_SETFONT, reinterpret_cast<WPARAM>(b.font), FALSE);
  FillTreeRoots();
  ApplyHostTheme();
  LayoutHost();
  UpdateButtons();
  return b.host;
}

void ShowBrowseFolder(HWND host, const std::filesystem::path& folder) {
  if (!host) return;
  std::filesystem::path target = folder;
  if (target.empty()) {
    if (!g_browse.folder.empty()) {
      // Opening the tab again: where it was, with a fresh listing.
      target = g_browse.folder;
    } else {
      wchar_t pictures[MAX_PATH] = L"";
      if (FAILED(SHGetFolderPathW(nullptr, CSIDL_MYPICTURES, nullptr, SHGFP_TYPE_CURRENT, pictures)) &&
          FAILED(SHGetFolderPathW(nullptr, CSIDL_PROFILE, nullptr, SHGFP_TYPE_CURRENT, pictures)))
        GetCurrentDirectoryW(MAX_PATH, pictures);
      target = StartFolder(AppSettings().GetString(u"Browse", u"DefaultDir", u""),
                           AppSettings().GetString(u"Browse", u"Folder", u""), std::filesystem::path(pictures));
    }
  }
  std::error_code ec;
  const std::filesystem::path full = std::filesystem::absolute(target, ec);
  Visit(ec ? target : full.lexically_normal());
}

void FocusBrowse(HWND host) {
  if (host && g_browse.grid) SetFocus(g_browse.grid);
}

void SetBrowseTheme(HWND host, bool dark) {
  g_browse.dark = dark;
  if (host) ApplyHostTheme();
}

bool BrowseKeyDown(HWND host, const MSG& msg) {
  if (!host || !IsWindowVisible(host) || (msg.message != WM_KEYDOWN && msg.message != WM_SYSKEYDOWN)) return false;
  HWND focus = GetFocus();
  if (!focus || (focus != host && !IsChild(host, focus))) return false;
  const bool alt = (GetKeyState(VK_MENU) & 0x8000) != 0;
  const bool ctrl = (GetKeyState(VK_CONTROL) & 0x8000) != 0;
  if (ctrl) return false;  // Ctrl+B, Ctrl+O and the rest stay the program's
  if (alt) return (msg.wParam == VK_LEFT || msg.wParam == VK_RIGHT) && HandleGridKey(msg.wParam, true);
  // The tree and the sort list keep their own arrows and Enter; F5 works anywhere in the tab.
  if (focus != g_browse.grid) return msg.wParam == VK_F5 && HandleGridKey(msg.wParam, false);
  return HandleGridKey(msg.wParam, false);
}

void CloseBrowse(HWND host) {
  if (!host) return;
  KillTimer(g_browse.grid, kSyncTimer);
  g_browse.loader.reset();  // joins the threads; at most the decodes under way finish
  g_browse.request = LoaderRequest{};
  g_browse.shownPreview.reset();
  g_browse.thumbs.clear();
  g_browse.failed.clear();
  g_browse.entries.clear();
  g_browse.selected = -1;
}

}  // namespace tavora

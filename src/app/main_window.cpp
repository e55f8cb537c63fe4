// "TavoraMain": start-up, the main window with its menu bar, the message
// loop with the keyboard routing, command routing and shut-down.
#include <windows.h>
#include <commdlg.h>
#include <objbase.h>
#include <shellapi.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "app/commands.h"
#include "app/key_routing.h"
#include "base/memory.h"
#include "base/settings_store.h"
#include "app/shell.h"
#include "app/view_settings.h"
#include "app/window_placement.h"
#include "auxiliary/capture_window.h"
#include "auxiliary/full_view_window.h"
#include "auxiliary/manual_window.h"
#include "auxiliary/ruler_window.h"
#include "auxiliary/print_window.h"
#include "document/blend.h"
#include "document/composite.h"
#include "document/history.h"
#include "document/layer_commands.h"
#include "document/document_events.h"
#include "document/edit_fill.h"
#include "document/effect_params.h"
#include "document/size_limits.h"
#include "formats/batch_dialog_window.h"
#include "formats/file_association_win32.h"
#include "formats/external_programs.h"
#include "formats/external_programs_win32.h"
#include "formats/clipboard_win32.h"
#include "formats/file_formats.h"
#include "platform/dialog_win32.h"
#include "processing/adjustments.h"
#include "processing/effect_dialog.h"
#include "processing/effect_dialogs.h"
#include "processing/geometry.h"
#include "processing/image_dialogs_window.h"
#include "processing/inpaint.h"
#include "processing/lens_flare.h"
#include "platform/dpi_win32.h"
#include "platform/form_dialog_win32.h"
#include "platform/gdiplus_codecs_win32.h"
#include "platform/gdiplus_drawing_win32.h"
#include "platform/message_box_win32.h"
#include "platform/modal_win32.h"
#include "platform/progress_window_win32.h"
#include "platform/theme_win32.h"
#include "base/system_paths.h"
#include "panels/history_panel.h"
#include "panels/layers_panel.h"
#include "panels/layer_effects_dialog_window.h"
#include "panels/options_bar.h"
#include "panels/status_bar_window.h"
#include "panels/tab_order.h"
#include "panels/tabs_bar_window.h"
#include "panels/toolbar.h"
#include "panels/toolbox.h"
#include "browse/browse_window.h"
#include "tools/canvas.h"
#include "tools/canvas_view.h"
#include "tools/selection.h"
#include "tools/text_dialog_window.h"
#include "tools/tool_input.h"
#include "tools/tool_table.h"

namespace tavora {
namespace {

constexpr UINT_PTR kSplashTimer = 1;
constexpr DWORD kSplashMinimumMs = 2000;

struct Shell {
  HINSTANCE instance = nullptr;
  HWND main = nullptr;
  HWND splash = nullptr;
  HMENU menuBar = nullptr;
  HMENU recentMenu = nullptr;
  HMENU tabsMenu = nullptr;
  int tabsMenuPosition = -1;
  bool tabsMenuEnabled = true;
  HACCEL accelerators = nullptr;
  UINT dpi = 96;
  double scale = 1.0;
  ViewSettings view;
  bool dark = true;
  HBRUSH background = nullptr;
  std::vector<std::unique_ptr<Document>> documents;
  int32_t activeTab = -1;
  bool browseOpen = false;
  HWND browse = nullptr;  // the Browse tab's host, shown in the canvas's place
  HWND canvas = nullptr;
  HWND history = nullptr;
  HWND layers = nullptr;
  bool historyShown = true;
  RecentFiles recent;
  HWND toolbox = nullptr;
  HWND optionsBar = nullptr;
  HWND toolbar = nullptr;
  ShellState toolbarState;  // what the toolbar's buttons were last offered by
  HWND tabs = nullptr;
  HWND status = nullptr;
  ToolSettings tools;
  ToolInput input{tools};
  Document* shown = nullptr;  // the document the canvas and tools work on
};

// Items of File > Open Recent.
constexpr int32_t kCmdRecentFirst = 1020;
Shell g;

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

Document* ActiveDocument() {
  return g.activeTab >= 0 && g.activeTab < static_cast<int32_t>(g.documents.size())
             ? g.documents[g.activeTab].get()
             : nullptr;
}

// The Browse tab is the active one while it is open and no document is.
bool BrowseActive() { return g.browseOpen && !ActiveDocument(); }

// F1's page: the current tool's.
std::u16string HelpTopic() {
  const std::string id = std::to_string(g.tools.CurrentTool());
  return u"tool:" + std::u16string(id.begin(), id.end());
}

void HelpInDialog(HWND modal) { ShowManual(g.main, DialogTopic(modal)); }

// ---------------------------------------------------------------- menus

void BuildMenu(HMENU menu, std::span<const MenuNode> nodes) {
  for (const MenuNode& n : nodes) {
    switch (n.kind) {
      case MenuNode::Kind::Item:
        AppendMenuW(menu, MF_STRING, static_cast<UINT_PTR>(n.id), Wide(n.text).c_str());
        break;
      case MenuNode::Kind::Separator:
        AppendMenuW(menu, MF_SEPARATOR, 0, nullptr);
        break;
      case MenuNode::Kind::Submenu: {
        HMENU sub = CreatePopupMenu();
        BuildMenu(sub, n.children);
        AppendMenuW(menu, MF_POPUP, reinterpret_cast<UINT_PTR>(sub), Wide(n.text).c_str());
        if (n.text == u"Open &Recent") g.recentMenu = sub;
        if (n.text == u"&Tabs") {
          g.tabsMenu = sub;
          g.tabsMenuPosition = GetMenuItemCount(menu) - 1;
        }
        break;
      }
    }
  }
}

void SetItemText(int32_t id, const std::u16string& text) {
  std::wstring w = Wide(text);
  MENUITEMINFOW info{sizeof info};
  info.fMask = MIIM_STRING;
  info.dwTypeData = w.data();
  SetMenuItemInfoW(g.menuBar, static_cast<UINT>(id), FALSE, &info);
}

ShellState CurrentState() {
  ShellState s;
  s.browseOpen = g.browseOpen;
  s.modalToolOperation = g.input.TransformInProgress();
  if (Document* doc = ActiveDocument()) {
    s.documentOpen = true;
    s.canUndo = doc->history.current > 0 || doc->pendingStroke;
    s.canRedo = doc->history.current < static_cast<int32_t>(doc->history.states.size());
    s.hasSelection = doc->selection.has_value();
    s.layerCount = doc->LayerCount();
    s.activeLayer = doc->active;
    s.documentSaved = !doc->path.empty();
    s.isNativeFile = s.documentSaved && !PhotoshopAccepts(doc->path);
    s.upscaylFile = UpscaylAccepts(doc->path);
  }
  s.upscaylConfigured = !AppSettings().GetString(u"External", u"Upscayl").empty();
  s.photoshopConfigured = !AppSettings().GetString(u"External", u"Photoshop").empty();
  return s;
}

void RefreshMenus() {
  const ShellState state = CurrentState();
  Document* doc = ActiveDocument();
  SetItemText(kCmdUndo, UndoRedoItemText(u"&Undo\tCtrl+Z", doc ? UndoLabel(*doc) : u""));
  SetItemText(kCmdRedo, UndoRedoItemText(u"&Redo\tCtrl+Y", doc ? RedoLabel(*doc) : u""));
  for (int32_t id : CommandsWithAvailability()) {
    EnableMenuItem(g.menuBar, static_cast<UINT>(id),
                   MF_BYCOMMAND | (CommandAvailable(id, state) ? MF_ENABLED : MF_GRAYED));
  }
  CheckMenuItem(g.menuBar, kCmdHistory, MF_BYCOMMAND | (g.historyShown ? MF_CHECKED : MF_UNCHECKED));
  CheckMenuItem(g.menuBar, kCmdSmooth, MF_BYCOMMAND | (g.view.smooth ? MF_CHECKED : MF_UNCHECKED));
  CheckMenuItem(g.menuBar, kCmdGrid, MF_BYCOMMAND | (g.view.grid ? MF_CHECKED : MF_UNCHECKED));
  CheckMenuItem(g.menuBar, kCmdRuler, MF_BYCOMMAND | (RulersShown() ? MF_CHECKED : MF_UNCHECKED));
  CheckMenuItem(g.menuBar, kCmdStartBrowse,
                MF_BYCOMMAND | (AppSettings().GetInt(u"View", u"StartBrowse", 1) ? MF_CHECKED : MF_UNCHECKED));
  CheckMenuRadioItem(g.menuBar, kCmdThemeSystem, kCmdThemeDark,
                     kCmdThemeSystem + static_cast<int32_t>(g.view.theme), MF_BYCOMMAND);
  // Open Recent lists the recent files; empty, it is greyed.
  if (g.recentMenu) {
    while (GetMenuItemCount(g.recentMenu) > 0) DeleteMenu(g.recentMenu, 0, MF_BYPOSITION);
    const auto& paths = g.recent.Paths();
    for (std::size_t i = 0; i < paths.size(); ++i) {
      std::u16string text = u"&";
      text.push_back(static_cast<char16_t>(u'1' + i));
      text += u"  ";
      for (char16_t c : paths[i]) {
        text.push_back(c);
        if (c == u'&') text.push_back(u'&');
      }
      AppendMenuW(g.recentMenu, MF_STRING, static_cast<UINT_PTR>(kCmdRecentFirst + i),
                  Wide(text).c_str());
    }
    HMENU file = GetSubMenu(g.menuBar, 0);
    for (int i = 0; i < GetMenuItemCount(file); ++i)
      if (GetSubMenu(file, i) == g.recentMenu)
        EnableMenuItem(file, i, MF_BYPOSITION | (GetMenuItemCount(g.recentMenu) ? MF_ENABLED : MF_GRAYED));
  }
  if (g.tabsMenu) {
    while (GetMenuItemCount(g.tabsMenu) > 0) DeleteMenu(g.tabsMenu, 0, MF_BYPOSITION);
    std::vector<std::u16string> titles;
    for (const auto& d : g.documents) titles.push_back(d->title);
    for (const TabsMenuItem& item : TabsMenu(titles, g.activeTab)) {
      if (item.id == 0) {
        AppendMenuW(g.tabsMenu, MF_SEPARATOR, 0, nullptr);
      } else {
        AppendMenuW(g.tabsMenu, MF_STRING | (item.checked ? MF_CHECKED : 0),
                    static_cast<UINT_PTR>(item.id), Wide(item.text).c_str());
      }
    }
    const bool enabled = (!g.documents.empty() || g.browseOpen) && !state.modalToolOperation;
    if (enabled != g.tabsMenuEnabled) {
      g.tabsMenuEnabled = enabled;
      EnableMenuItem(g.menuBar, static_cast<UINT>(g.tabsMenuPosition),
                     MF_BYPOSITION | (enabled ? MF_ENABLED : MF_GRAYED));
      DrawMenuBar(g.main);
    }
  }
  // The toolbar, the tabs bar and the status bar follow every change the
  // menus do.
  g.toolbarState = state;
  RefreshToolbar(g.toolbar);
  SetTabsBarDocuments(g.tabs, g.documents, g.activeTab, g.browseOpen);
  RefreshStatusBar(g.status);
}

HACCEL BuildAccelerators() {
  std::vector<ACCEL> table;
  for (const Accelerator& a : Accelerators()) {
    BYTE flags = FVIRTKEY;
    if (a.modifiers & kAccelCtrl) flags |= FCONTROL;
    if (a.modifiers & kAccelShift) flags |= FSHIFT;
    if (a.modifiers & kAccelAlt) flags |= FALT;
    table.push_back({flags, a.virtualKey, static_cast<WORD>(a.command)});
  }
  return CreateAcceleratorTableW(table.data(), static_cast<int>(table.size()));
}

// ---------------------------------------------------------------- theme

void ApplyTheme() {
  g.dark = g.view.theme == Theme::Dark ||
           (g.view.theme == Theme::FollowSystem && SystemUsesDarkTheme());
  if (g.background) DeleteObject(g.background);
  g.background = CreateSolidBrush(g.dark ? RGB(0x1E, 0x1F, 0x22) : RGB(0xF3, 0xF3, 0xF3));
  SetDialogTheme(g.dark);
  if (g.main) {
    ApplyFrameTheme(g.main, g.dark);
    InvalidateRect(g.main, nullptr, TRUE);
  }
  if (g.canvas) SetCanvasSettings(g.canvas, {g.view.smooth, g.view.grid, g.dark});
  if (g.history) SetHistoryPanelTheme(g.history, g.dark);
  if (g.layers) SetLayersPanelTheme(g.layers, g.dark);
  if (g.toolbox) SetToolboxTheme(g.toolbox, g.dark);
  if (g.optionsBar) SetOptionsBarTheme(g.optionsBar, g.dark);
  SetToolbarTheme(g.toolbar, g.dark);
  ManualThemeChanged();
  if (g.tabs) SetTabsBarTheme(g.tabs, g.dark);
  if (g.status) SetStatusBarTheme(g.status, g.dark);
  SetBrowseTheme(g.browse, g.dark);
}

// ---------------------------------------------------------------- documents

void LayoutChildren();
void FinishToolWork(Document& doc);
void RunCommand(int32_t id);

void UpdateTitle() {
  Document* doc = ActiveDocument();
  std::u16string title = doc ? doc->title + (doc->modified ? u" *" : u"") + u" - Tavora" : u"Tavora";
  // The engine works out of sight: the title says it is busy.
  if (UpscaylJobRunning()) title += u" (Upscayl running\u2026)";
  SetWindowTextW(g.main, Wide(title).c_str());
}

void ShowActive() {
  // Work under way with a tool belongs to the document it began on.
  if (g.shown && g.shown != ActiveDocument()) FinishToolWork(*g.shown);
  g.shown = ActiveDocument();
  SetCanvasDocument(g.canvas, ActiveDocument());
  LayoutChildren();
  SetHistoryPanelDocument(g.history, ActiveDocument());
  SetLayersPanelDocument(g.layers, ActiveDocument());
  UpdateTitle();
  RefreshMenus();
}

void AddTab(std::unique_ptr<Document> doc) {
  doc->fitMode = 1;
  g.documents.push_back(std::move(doc));
  g.activeTab = static_cast<int32_t>(g.documents.size()) - 1;
  ShowActive();
  FitCanvasDocument(g.canvas, true);
}

void WarnAbout(std::u16string_view text, const std::filesystem::path& path) {
  // A topmost splash must not cover the message.
  if (g.splash) {
    DestroyWindow(g.splash);
    g.splash = nullptr;
  }
  const std::wstring message = Wide(text) + L"\n\n" + path.wstring();
  ShowMessageBox(g.main, message, L"Tavora", MB_OK | MB_ICONWARNING);
}

// Shows the busy cursor for as long as it lives.
class BusyCursor {
 public:
  BusyCursor() : old_(SetCursor(LoadCursorW(nullptr, IDC_WAIT))) {}
  ~BusyCursor() { SetCursor(old_); }

 private:
  HCURSOR old_;
};

void Remember(const std::filesystem::path& path) {
  g.view.lastDir = FolderOf(path);
  g.recent.Add(path, AppSettings());
}

// The Text tool's dialog, previewing on the canvas.
bool AskText(void*, Document& doc, const TextClick& click, TextValues& values) {
  return RunTextToolDialog(g.main, g.canvas, doc, click, values);
}

// "Open HDR Image": the exposure the high dynamic range is mapped at.
bool AskHdrExposure(float& exposure) {
  FormDialog form(L"Open HDR Image", 400);
  form.AddText(L"This file stores high dynamic range data. Choose an exposure to tone-map it to an editable "
               L"8-bit image.");
  const int ev = form.AddNumber(L"Exposure (EV):", exposure, 1);
  form.validate = [ev](FormDialog& f) -> std::wstring {
    const auto v = f.Number(ev);
    if (v && *v >= -6 && *v <= 6) return {};
    return Wide(RangeMessage(-6, 6));
  };
  if (!form.Run(g.main, L"Open")) return false;
  exposure = static_cast<float>(*form.Number(ev));
  return true;
}

bool OpenImageFile(std::filesystem::path path) {
  wchar_t full[32768];
  const DWORD n = GetFullPathNameW(path.c_str(), 32768, full, nullptr);
  if (n > 0 && n < 32768) path = full;
  for (std::size_t i = 0; i < g.documents.size(); ++i) {
    if (SamePathIgnoringCase(g.documents[i]->path, path)) {
      g.activeTab = static_cast<int32_t>(i);  // already open: not read again
      ShowActive();
      return true;
    }
  }
  OpenOptions options;
  if (ClassifyFile(path) == FileClass::RadianceHdr && !AskHdrExposure(options.hdrExposure)) return false;
  std::unique_ptr<Document> doc;
  {
    BusyCursor busy;
    doc = ReadDocumentFile(path, options);
  }
  if (!doc) {
    WarnAbout(kCannotOpen, path);
    return false;
  }
  Remember(path);
  AddTab(std::move(doc));
  return true;
}

std::wstring FilterString(const std::vector<DialogFilter>& filters) {
  std::wstring text;
  for (const DialogFilter& f : filters) {
    text += Wide(f.label);
    text.push_back(L'\0');
    text += Wide(f.pattern);
    text.push_back(L'\0');
  }
  text.push_back(L'\0');
  return text;
}

void ShowOpenDialog() {
  std::wstring names(32768, L'\0');
  const std::wstring filter = FilterString(OpenFilters());
  const std::wstring folder = Wide(g.view.lastDir);
  OPENFILENAMEW ofn{sizeof ofn};
  ofn.hwndOwner = g.main;
  ofn.lpstrFilter = filter.c_str();
  ofn.nFilterIndex = 1;
  ofn.lpstrFile = names.data();
  ofn.nMaxFile = static_cast<DWORD>(names.size());
  ofn.lpstrInitialDir = folder.empty() ? nullptr : folder.c_str();
  ofn.Flags = OFN_EXPLORER | OFN_ALLOWMULTISELECT | OFN_FILEMUSTEXIST | OFN_PATHMUSTEXIST |
              OFN_HIDEREADONLY;
  {
    SystemModalWatch watch;
    if (!GetOpenFileNameW(&ofn)) return;
  }
  // One name is a full path; several are the folder followed by the names.
  std::vector<std::wstring> parts;
  for (const wchar_t* p = names.c_str(); *p; p += wcslen(p) + 1) parts.emplace_back(p);
  if (parts.size() == 1) {
    OpenImageFile(parts[0]);
    return;
  }
  for (std::size_t i = 1; i < parts.size(); ++i)
    OpenImageFile(std::filesystem::path(parts[0]) / parts[i]);
}

std::wstring QualityProblem(const std::vector<DialogField>& fields) {
  const int q = _wtoi(fields[0].value.c_str());
  return q >= 1 && q <= 100 ? std::wstring() : L"Enter a quality between 1 and 100.";
}

bool SaveDocument(Document& doc, bool saveAs) {
  std::filesystem::path path = doc.path;
  bool nameFromDialog = false;
  // A file whose format cannot be written back is saved under a new name.
  if (saveAs || path.empty() || !CanWriteFile(path)) {
    std::wstring name = Wide(ProposedSaveName(doc));
    name.resize(32768, L'\0');
    const std::wstring filter = FilterString(SaveFilters());
    const std::wstring folder = doc.path.empty() ? Wide(g.view.lastDir) : Wide(FolderOf(doc.path));
    OPENFILENAMEW ofn{sizeof ofn};
    ofn.hwndOwner = g.main;
    ofn.lpstrFilter = filter.c_str();
    ofn.nFilterIndex = static_cast<DWORD>(DefaultSaveFilterIndex(doc));
    ofn.lpstrFile = name.data();
    ofn.nMaxFile = static_cast<DWORD>(name.size());
    ofn.lpstrInitialDir = folder.empty() ? nullptr : folder.c_str();
    ofn.Flags = OFN_EXPLORER | OFN_OVERWRITEPROMPT | OFN_PATHMUSTEXIST | OFN_HIDEREADONLY;
    // With a default extension the dialog appends the chosen type's own
    // extension before it checks for an existing file.
    const std::wstring defaultExtension =
        Wide(SaveFilters()[static_cast<std::size_t>(DefaultSaveFilterIndex(doc)) - 1].extension).substr(1);
    ofn.lpstrDefExt = defaultExtension.c_str();
    {
      SystemModalWatch watch;
      if (!GetSaveFileNameW(&ofn)) return false;
    }
    path = WithSaveExtension(std::filesystem::path(name.c_str()),
                             static_cast<int32_t>(ofn.nFilterIndex));
    nameFromDialog = true;
    // A typed extension whose writer is not part of the program.
    if (!CanWriteFile(path)) {
      WarnAbout(kCannotSave, path);
      return false;
    }
  }
  EncodeOptions options = EncodeOptionsFor(path, doc);
  if (ClassifyFile(path) != FileClass::NativeLayered && options.format == SaveFormat::WebP) {
    FormDialog form(L"WebP Options", 360);
    const int quality = form.AddNumber(L"Quality (1-100):", options.quality, 0);
    const int lossless = form.AddCheck(L"Lossless", false);
    form.onChange = [&](FormDialog& f, int id) {
      if (id == lossless) f.Enable(quality, !f.Checked(lossless));
    };
    form.validate = [&](FormDialog& f) -> std::wstring {
      const auto q = f.Number(quality);
      return f.Checked(lossless) || (q && *q >= 1 && *q <= 100) ? std::wstring()
                                                                 : L"Enter a quality between 1 and 100.";
    };
    if (!form.Run(g.main, L"OK")) return false;
    options.lossless = form.Checked(lossless);
    if (const auto q = form.Number(quality)) options.quality = std::clamp(static_cast<int32_t>(*q + 0.5), 1, 100);
  } else if (ClassifyFile(path) != FileClass::NativeLayered && AsksForQuality(options.format)) {
    std::vector<DialogField> fields{{L"Quality (1-100):", std::to_wstring(options.quality), {}}};
    const wchar_t* title = options.format == SaveFormat::Jpeg ? L"JPEG Quality" : L"WebP Quality";
    if (!RunFieldDialog(g.main, title, fields, &QualityProblem)) return false;
    options.quality = _wtoi(fields[0].value.c_str());
  }
  if (NeedsFlattenWarning(doc, path, nameFromDialog) &&
      ShowMessageBox(g.main, Wide(kFlattenWarning), L"Tavora", MB_OKCANCEL | MB_ICONINFORMATION) != IDOK)
    return false;
  bool written;
  {
    BusyCursor busy;
    written = WriteDocumentFile(doc, path, options);
  }
  if (!written) {
    WarnAbout(kCannotSave, path);
    return false;
  }
  doc.path = path;
  SetTitle(doc);
  doc.modified = false;
  Remember(path);
  UpdateTitle();
  RefreshMenus();
  return true;
}

bool ConfirmCloseDocument(Document& doc) {
  if (!doc.modified) return true;
  const std::wstring question = L"Save changes to \"" + Wide(doc.title) + L"\" before closing?";
  switch (ShowMessageBox(g.main, question, L"Tavora", MB_YESNOCANCEL | MB_ICONQUESTION)) {
    case IDYES: return SaveDocument(doc, false);
    case IDNO: return true;
    default: return false;
  }
}

void CloseTab(int32_t index) {
  if (index < 0 || index >= static_cast<int32_t>(g.documents.size())) return;
  if (!ConfirmCloseDocument(*g.documents[index])) return;
  g.input.Forget(*g.documents[index]);
  if (g.shown == g.documents[index].get()) g.shown = nullptr;
  SetCanvasDocument(g.canvas, nullptr);
  SetHistoryPanelDocument(g.history, nullptr);
  SetLayersPanelDocument(g.layers, nullptr);
  g.documents.erase(g.documents.begin() + index);
  if (index < g.activeTab) --g.activeTab;  // a tab closed from the tabs bar need not be the active one
  g.activeTab = std::min<int32_t>(g.activeTab, static_cast<int32_t>(g.documents.size()) - 1);
  ShowActive();
}

std::wstring NewImageProblem(const std::vector<DialogField>& fields) {
  const SizeCheck size = CheckCanvasSize(_wtof(fields[0].value.c_str()),
                                         _wtof(fields[1].value.c_str()), SizeRule::NewImage);
  if (!size.ok) return Wide(size.message);
  const int dpi = _wtoi(fields[2].value.c_str());
  if (dpi < 1 || dpi > 9999) return L"The resolution must be between 1 and 9999 dpi.";
  return {};
}

void NewImage() {
  std::vector<DialogField> fields{{L"Width (pixels):", L"1920", {}},
                                  {L"Height (pixels):", L"1080", {}},
                                  {L"Resolution (dpi):", L"72", {}},
                                  {L"Background:", L"White", {L"White", L"Black", L"Transparent"}}};
  if (!RunFieldDialog(g.main, L"New Image", fields, &NewImageProblem)) return;
  const SizeCheck size = CheckCanvasSize(_wtof(fields[0].value.c_str()),
                                         _wtof(fields[1].value.c_str()), SizeRule::NewImage);
  const uint32_t fill = fields[3].value == L"Black"         ? 0xFF000000u
                        : fields[3].value == L"Transparent" ? 0x00FFFFFFu
                                                            : 0xFFFFFFFFu;
  AddTab(CreateDocument(size.width, size.height, _wtoi(fields[2].value.c_str()), fill, 0));
}

// ---------------------------------------------------------------- tools

// After the tool, its options or the colours changed: every window that
// shows them follows, and the change is remembered.
void ToolChanged() {
  if (g.optionsBar) RebuildOptionsBar(g.optionsBar);
  if (g.toolbox) RefreshToolbox(g.toolbox);
  if (g.canvas) RefreshCanvasTool(g.canvas);
}

// Ends a stroke or a selection drag under way; its overlay goes too.
void FinishToolWork(Document& doc) {
  g.input.Finish(doc);
  if (g.canvas) RefreshCanvasTool(g.canvas);
}

void SelectTool(int32_t id) {
  if (id == g.tools.CurrentTool()) return;
  if (Document* doc = ActiveDocument()) FinishToolWork(*doc);
  g.tools.SetTool(id);
  g.tools.Save(AppSettings());
  ToolChanged();
}

void OptionChanged() {
  if (g.canvas) RefreshCanvasTool(g.canvas);
}

// The colour picker changes the colours at every move: they are shown at
// once and remembered with the next save (tool change, exit).
void PickedColorsChanged() {
  if (g.toolbox) RefreshToolbox(g.toolbox);
}

void ColorsChanged() {
  PickedColorsChanged();
  g.tools.Save(AppSettings());
}

void AfterToolKey() {
  if (g.canvas) RefreshCanvasTool(g.canvas);
  UpdateTitle();
  RefreshMenus();
}

// The options bar's "Apply" and "Cancel" act as Enter and Esc.
void FinishToolFromBar(bool apply) {
  Document* doc = ActiveDocument();
  if (doc && g.input.Key(*doc, apply ? ToolKey::Enter : ToolKey::Escape, 0)) AfterToolKey();
}

// Letters pick tools; X swaps the colours and D resets them; Backspace and
// Esc go to a polygon under way. Whether the key was used. A held key's
// repeats pick nothing more (a shared key would spin through its tools).
bool ToolKeyDown(WPARAM key, LPARAM flags) {
  const bool shift = (GetKeyState(VK_SHIFT) & 0x8000) != 0;
  static constexpr std::pair<WPARAM, ToolKey> kToolKeys[] = {
      {VK_BACK, ToolKey::Backspace}, {VK_ESCAPE, ToolKey::Escape}, {VK_RETURN, ToolKey::Enter},
      {VK_LEFT, ToolKey::Left},      {VK_RIGHT, ToolKey::Right},   {VK_UP, ToolKey::Up},
      {VK_DOWN, ToolKey::Down}};
  for (const auto& [vk, toolKey] : kToolKeys) {
    if (key != vk) continue;
    Document* doc = ActiveDocument();
    if (!doc || !g.input.Key(*doc, toolKey, shift ? kModShift : 0)) return false;
    AfterToolKey();
    return true;
  }
  // Delete clears the selection (it has no accelerator of its own).
  if (key == VK_DELETE) {
    if (!ActiveDocument()) return false;
    RunCommand(kCmdClear);
    return true;
  }
  if (key < 'A' || key > 'Z') return false;
  const bool repeat = (flags & (LPARAM{1} << 30)) != 0;
  if (repeat) return ToolForKey(static_cast<char16_t>(key), shift, g.tools.CurrentTool()) >= 0 ||
                     (!shift && (key == 'X' || key == 'D'));
  if (!shift && key == 'X') {
    std::swap(g.tools.colors.left, g.tools.colors.right);
    ColorsChanged();
    return true;
  }
  if (!shift && key == 'D') {
    g.tools.colors = ColorBoxes{};
    ColorsChanged();
    return true;
  }
  const int32_t tool = ToolForKey(static_cast<char16_t>(key), shift, g.tools.CurrentTool());
  if (tool < 0) return false;
  SelectTool(tool);
  return true;
}

// The Select menu's values are asked for with the single-value prompt.
void SelectionCommand(Document& doc, int32_t id) {
  switch (id) {
    case kCmdSelectAll: SelectAll(doc); break;
    case kCmdSelectNone: SelectNone(doc); break;
    case kCmdSelectInvert: InvertSelection(doc); break;
    case kCmdFromLayerAlpha: SelectionFromLayerAlpha(doc); break;
    case kCmdFeather: {
      double radius = 5;
      if (PromptValue(g.main, u"Feather Selection", u"Feather radius (px):", radius, 0.5, 100, 1, true))
        FeatherSelectionCommand(doc, radius);
      break;
    }
    case kCmdGrow:
    case kCmdShrink: {
      const bool grow = id == kCmdGrow;
      double pixels = 5;
      if (PromptValue(g.main, grow ? u"Grow Selection" : u"Shrink Selection",
                      grow ? u"Grow selection by (px):" : u"Shrink selection by (px):", pixels, 1,
                      500, 0, true)) {
        const int32_t n = static_cast<int32_t>(pixels + 0.5);
        grow ? GrowSelection(doc, n) : ShrinkSelection(doc, n);
      }
      break;
    }
  }
}

// ---------------------------------------------------------------- settings

struct SettingsValue {
  const char16_t* section;
  const char16_t* key;
  const wchar_t* label;
  bool yesNo;
  int32_t yesNoDefault;
  bool program = false;  // a program's path, with a Browse button
};
// The seven values the Settings window owns.
constexpr SettingsValue kSettingsValues[] = {
    {u"Browse", u"DefaultDir", L"Browse opens in:", false, 0},
    {u"Browse", u"ShowHidden", L"Show hidden files:", true, 1},
    {u"View", u"StartBrowse", L"Open Browse at start:", true, 1},
    {u"View", u"Ruler", L"Show the ruler:", true, 0},
    {u"View", u"Grid", L"Show the pixel grid when zoomed in:", true, 0},
    {u"External", u"Upscayl", L"Upscayl engine:", false, 0, true},
    {u"External", u"Photoshop", L"Photoshop:", false, 0, true},
};

void ApplyFirstLaunchView() {
  g.view = ReadViewSettings(AppSettings());
  g.tools.Load(AppSettings());
  g.historyShown = true;
  ApplyTheme();
  SetCanvasSettings(g.canvas, {g.view.smooth, g.view.grid, g.dark});
  SetHistoryPanelTheme(g.history, g.dark);
  LayoutChildren();
  RefreshMenus();
}

bool ResetAllSettings(HWND dialog) {
  const wchar_t* question =
      L"Reset every remembered value to its first-launch default?\n\nThis covers all tool "
      L"options (brush sizes, hardness, and so on), the values remembered by every effect, layer "
      L"effect and dialog, colors, theme, slideshow, print, batch, Browse view and the History "
      L"panel.\n\nThe settings in this Settings window and your recent files are kept. This "
      L"cannot be undone.";
  if (ShowMessageBox(dialog, question, L"Reset all settings", MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2) !=
      IDYES)
    return false;
  AppSettings().ResetAll();
  ResetRulerUnit();
  g.tools.Reset();
  ToolChanged();
  ApplyFirstLaunchView();
  ShowMessageBox(dialog, L"All settings are back to their first-launch values.", L"Reset all settings",
                 MB_OK | MB_ICONINFORMATION);
  return true;
}

// The file association lives in the registry, not in the settings file:
// the row shows what Windows has now and changes it only when changed.
void ApplyAssociationChoice(bool wanted, bool registered) {
  if (wanted == registered) return;
  if (wanted ? RegisterThisProgram() : RemoveThisProgram()) return;
  ShowMessageBox(g.main,
                 wanted ? L"Windows could not be told to open .tvl and .kzl files with Tavora."
                        : L"The registration of .tvl and .kzl files could not be removed completely.",
                 L"Tavora", MB_OK | MB_ICONWARNING);
}

void ShowSettings() {
  std::vector<DialogField> fields;
  for (const SettingsValue& v : kSettingsValues) {
    if (v.yesNo) {
      const bool on = AppSettings().GetInt(v.section, v.key, v.yesNoDefault) != 0;
      fields.push_back({v.label, on ? L"Yes" : L"No", {L"Yes", L"No"}});
    } else {
      static constexpr wchar_t kPrograms[] = L"Programs (*.exe)\0*.exe\0All files (*.*)\0*.*\0";
      fields.push_back({v.label, Wide(AppSettings().GetString(v.section, v.key)), {}, false,
                        v.program ? std::wstring(kPrograms, std::size(kPrograms) - 1) : std::wstring()});
    }
  }
  const bool registered = ThisProgramAssociation() == AssociationState::ThisProgram;
  fields.push_back({L"Open .tvl and .kzl files with Tavora:", registered ? L"Yes" : L"No", {L"Yes", L"No"}});
  fields.push_back({L"Also offers Tavora under \"Open with\" for images; only your account is changed.", L"", {},
                    true});
  const DialogExtraButton reset{L"Reset all settings…", &ResetAllSettings};
  if (!RunFieldDialog(g.main, L"Settings", fields, nullptr, &reset)) return;
  ApplyAssociationChoice(fields[std::size(kSettingsValues)].value == L"Yes", registered);
  for (std::size_t i = 0; i < std::size(kSettingsValues); ++i) {
    const SettingsValue& v = kSettingsValues[i];
    if (v.yesNo) {
      AppSettings().SetInt(v.section, v.key, fields[i].value == L"Yes" ? 1 : 0);
    } else {
      // A path copied from Explorer comes in quotes.
      std::wstring text = fields[i].value;
      while (!text.empty() && text.back() == L' ') text.pop_back();
      while (!text.empty() && text.front() == L' ') text.erase(0, 1);
      if (text.size() >= 2 && text.front() == L'"' && text.back() == L'"') text = text.substr(1, text.size() - 2);
      AppSettings().SetString(v.section, v.key, std::u16string(text.begin(), text.end()));
    }
  }
  RefreshMenus();
}

// Tabs past the ninth, offered as a pop-up list.
void ShowMoreTabs() {
  HMENU menu = CreatePopupMenu();
  for (std::size_t i = 0; i < g.documents.size(); ++i) {
    std::u16string text;
    for (char16_t c : g.documents[i]->title) {
      text.push_back(c);
      if (c == u'&') text.push_back(u'&');
    }
    AppendMenuW(menu, MF_STRING | (static_cast<int32_t>(i) == g.activeTab ? MF_CHECKED : 0),
                i + 1, Wide(text).c_str());
  }
  POINT p;
  GetCursorPos(&p);
  SystemModalWatch watch;
  const int chosen = TrackPopupMenu(menu, TPM_RETURNCMD | TPM_NONOTIFY, p.x, p.y, 0, g.main, nullptr);
  DestroyMenu(menu);
  if (chosen > 0) {
    g.activeTab = chosen - 1;
    ShowActive();
  }
}

// The canvas follows the Properties and Effects dialog's preview.
void RepaintCanvas(void*) {
  if (!g.canvas) return;
  InvalidateCanvas(g.canvas);
  UpdateWindow(g.canvas);
}

// The commands that open an effect dialog, by the dialog's title.
void RunEffectCommand(Document& doc, int32_t id) {
  static constexpr std::pair<int32_t, std::u16string_view> kDialogs[] = {
      {kCmdBrightnessContrast, u"Brightness / Contrast"}, {kCmdGamma, u"Gamma"},
      {kCmdHueSaturation, u"Hue / Saturation / Lightness"}, {kCmdColorize, u"Colorize"},
      {kCmdPosterize, u"Posterize"}, {kCmdThreshold, u"Threshold"}, {kCmdBlur, u"Blur"},
      {kCmdGaussianBlur, u"Gaussian Blur"}, {kCmdLensBlur, u"Lens Blur"},
      {kCmdMotionBlur, u"Motion Blur"}, {kCmdSharpen, u"Sharpen"}, {kCmdAddNoise, u"Add Noise"},
      {kCmdPixelate, u"Pixelate"}, {kCmdSpiral, u"Spiral"}, {kCmdHdrToneMap, u"HDR Tone Map"},
      {kCmdWhitenArea, u"Whiten Area"}};
  if (id == kCmdLensFlare) {
    RunEffectDialog(g.main, doc, LensFlareEffect(), g.tools.colors.Primary(), g.tools.colors.Secondary());
    return;
  }
  for (const auto& [command, title] : kDialogs)
    if (command == id)
      if (const EffectDef* def = FindEffect(title))
        RunEffectDialog(g.main, doc, *def, g.tools.colors.Primary(), g.tools.colors.Secondary());
}

// The adjustments and filters that act at once.
void RunImmediateAdjustment(Document& doc, int32_t id) {
  for (const ImmediateOp& op : ImmediateOps()) {
    if (op.command != id) continue;
    BusyCursor busy;
    ApplyToSelection(doc, op.historyName, op.operation, nullptr, op.margin);
  }
}

// "Fill Selection from Surroundings…": how far to grow the selection, then
// the synthesis with a progress bar; a cancelled fill changes nothing.
void FillSurroundingsCommand(Document& doc) {
  double grow = kFillGrowDefault;
  if (!PromptValue(g.main, u"Fill Selection from Surroundings", u"Grow selection by (px):", grow, 0,
                   kFillGrowMaximum, 0, true))
    return;
  RunWithProgress(g.main, L"Fill from Surroundings",
                  [&doc, grow] { FillFromSurroundings(doc, static_cast<int32_t>(grow)); });
}

// The Image, Edit and Layers menus' geometry, fills and colour depth.
void DocumentCommand(Document& doc, int32_t id) {
  BusyCursor busy;
  switch (id) {
    case kCmdResize: RunResizeImageDialog(g.main, doc); break;
    case kCmdCanvasSize: RunCanvasSizeDialog(g.main, doc, g.tools.colors.Secondary()); break;
    case kCmdCropToSelection: CropToSelection(doc); break;
    case kCmdRotateCw: RotateImage90(doc, true); break;
    case kCmdRotateCcw: RotateImage90(doc, false); break;
    case kCmdRotate180: RotateImage180(doc); break;
    case kCmdFreeRotate: RunFreeRotateDialog(g.main, doc); break;
    case kCmdFlipVertical: FlipImage(doc); break;
    case kCmdMirror: MirrorImage(doc); break;
    case kCmdColorDepth: RunColorDepthDialog(g.main, doc); break;
    case kCmdFillForeground: FillSelectionCommand(doc, g.tools.colors.Primary()); break;
    case kCmdFillBackground: FillSelectionCommand(doc, g.tools.colors.Secondary()); break;
    case kCmdClear: ClearCommand(doc, g.tools.colors.Secondary()); break;
    case kCmdLayerFromSelection: LayerFromSelection(doc); break;
    case kCmdRotateLayerCw: RotateLayer90(doc, true); break;
    case kCmdRotateLayerCcw: RotateLayer90(doc, false); break;
    case kCmdRotateLayer180: RotateLayer180(doc); break;
    case kCmdFreeRotateLayer: RunFreeRotateLayerPrompt(g.main, doc); break;
    case kCmdFlipLayerVertical: FlipLayer(doc); break;
    case kCmdMirrorLayer: MirrorLayer(doc); break;
    case kCmdResizeLayer: RunResizeLayerDialog(g.main, doc); break;
    case kCmdFillSurroundings: FillSurroundingsCommand(doc); break;
    default: return;
  }
  if (g.canvas) FitCanvasDocument(g.canvas, true);
}

// The shot opens as a new tab; an abandoned capture leaves the tabs alone.
void CaptureCommand(CaptureKind kind, int32_t delayMs, bool includeCursor) {
  if (auto doc = CaptureScreen(g.main, kind, delayMs, includeCursor)) AddTab(std::move(doc));
}

// The open tabs as the full-screen view reads them.
FullViewTabs ViewTabs() {
  return {[](void*) { return static_cast<int32_t>(g.documents.size()); },
          [](int32_t i, void*) -> Document* {
            return i >= 0 && i < static_cast<int32_t>(g.documents.size()) ? g.documents[i].get() : nullptr;
          },
          nullptr};
}

// ---------------------------------------------------------------- browse

// Opens the Browse tab and makes it the active one: on `folder`, or, when
// empty, where it was (or where it starts when it was closed).
void OpenBrowse(const std::filesystem::path& folder) {
  const bool wasOpen = g.browseOpen;
  g.browseOpen = true;
  g.activeTab = -1;
  ShowActive();
  if (!folder.empty() || !wasOpen) ShowBrowseFolder(g.browse, folder);
  FocusBrowse(g.browse);
}

void CloseBrowseTab() {
  if (!g.browseOpen) return;
  const bool wasActive = BrowseActive();
  g.browseOpen = false;
  CloseBrowse(g.browse);
  if (wasActive && !g.documents.empty()) g.activeTab = 0;
  ShowActive();
}

bool OpenFromBrowse(const std::filesystem::path& path) {
  const bool opened = OpenImageFile(path);
  if (opened && g.canvas) SetFocus(g.canvas);
  RefreshMenus();
  return opened;
}

// ---------------------------------------------------------------- commands

// The toolbar's buttons are menu commands, offered when the menus offer them.
void CommandFromToolbar(int32_t id) { SendMessageW(g.main, WM_COMMAND, static_cast<WPARAM>(id), 0); }
bool ToolbarCommandAvailable(int32_t id) { return CommandAvailable(id, g.toolbarState); }

void RunCommand(int32_t id) {
  if (id >= kCmdRecentFirst && id < kCmdRecentFirst + RecentFiles::kMax) {
    const std::size_t i = static_cast<std::size_t>(id - kCmdRecentFirst);
    if (i < g.recent.Paths().size()) OpenImageFile(std::filesystem::path(g.recent.Paths()[i]));
    RefreshMenus();
    return;
  }
  if (id >= kCmdFirstTab && id < kCmdFirstTab + 9) {
    if (id - kCmdFirstTab < static_cast<int32_t>(g.documents.size())) {
      g.activeTab = id - kCmdFirstTab;
      ShowActive();
    }
    return;
  }
  if (id == kCmdMoreTabs) {
    ShowMoreTabs();
    return;
  }
  if (!CommandAvailable(id, CurrentState())) return;  // greyed: an accelerator must not bypass it
  Document* doc = ActiveDocument();
  // A command acts on finished work: a stroke or a selection drag under way
  // ends first. Looking around (zoom, panels, theme) leaves it alone.
  const bool viewOnly = (id >= kCmdZoomIn && id <= kCmdHistory) || id == kCmdSettings || id == kCmdManual;
  if (doc && !viewOnly) FinishToolWork(*doc);
  switch (id) {
    case kCmdExit:
      SendMessageW(g.main, WM_CLOSE, 0, 0);
      return;  // the window may be gone now
    case kCmdManual:
      ShowManual(g.main, HelpTopic());
      break;
    case kCmdAbout:
      ShowMessageBox(g.main, L"Tavora 0.1.0\n\nA small, fast raster image editor for Windows.",
                     L"About Tavora", MB_OK | MB_ICONINFORMATION);
      break;
    case kCmdThemeSystem:
    case kCmdThemeLight:
    case kCmdThemeDark:
      g.view.theme = static_cast<Theme>(id - kCmdThemeSystem);
      AppSettings().SetInt(u"View", u"Theme", id - kCmdThemeSystem);
      ApplyTheme();
      SetCanvasSettings(g.canvas, {g.view.smooth, g.view.grid, g.dark});
      SetHistoryPanelTheme(g.history, g.dark);
      break;
    case kCmdNew:
      NewImage();
      break;
    case kCmdOpen:
      ShowOpenDialog();
      break;
    case kCmdBrowseFolder:
      OpenBrowse({});
      break;
    case kCmdStartBrowse:
      AppSettings().SetInt(u"View", u"StartBrowse", AppSettings().GetInt(u"View", u"StartBrowse", 1) ? 0 : 1);
      break;
    case kCmdSave:
    case kCmdSaveAs:
      if (doc) SaveDocument(*doc, id == kCmdSaveAs);
      break;
    case kCmdClose:
      CloseTab(g.activeTab);
      break;
    case kCmdZoomIn:
    case kCmdZoomOut:
      ZoomCanvas(g.canvas, id == kCmdZoomIn ? 1 : -1);
      break;
    case kCmdFit:
      FitCanvasDocument(g.canvas, false);
      break;
    case kCmdZoom100:
    case kCmdActualPixels:
      ZoomCanvasTo(g.canvas, id == kCmdActualPixels);
      break;
    case kCmdSettings:
      ShowSettings();
      break;
    case kCmdBatch:
      RunBatchDialog(g.main);
      break;
    case kCmdCaptureScreen:
    case kCmdCaptureRegion:
      CaptureCommand(id == kCmdCaptureScreen ? CaptureKind::FullScreen : CaptureKind::Region, 0, false);
      break;
    case kCmdCaptureDelay:
      if (const auto request = AskCaptureRequest(g.main))
        CaptureCommand(request->kind, request->delayMs, request->includeCursor);
      break;
    case kCmdFullScreen:
      ShowFullScreen(g.main, ViewTabs(), g.activeTab, false, 0, SlideTransition::None);
      break;
    case kCmdSlideshow:
      StartSlideshow(g.main, ViewTabs(), g.activeTab);
      break;
    case kCmdRuler:
      SetRulersShown(!RulersShown());
      LayoutChildren();
      break;
    case kCmdUpscayl:
      if (doc) UpscaylCommand(g.main, *doc);
      break;
    case kCmdPhotoshop:
      if (doc) PhotoshopCommand(g.main, *doc);
      break;
    case kCmdPrint:
      if (doc) RunPrintWindow(g.main, *doc);
      break;
    case kCmdHistory:
      g.historyShown = !g.historyShown;
      AppSettings().SetInt(u"History", u"Panel", g.historyShown ? 1 : 0);
      LayoutChildren();
      break;
    case kCmdSmooth:
      g.view.smooth = !g.view.smooth;
      AppSettings().SetInt(u"View", u"Smooth", g.view.smooth ? 1 : 0);
      SetCanvasSettings(g.canvas, {g.view.smooth, g.view.grid, g.dark});
      break;
    case kCmdGrid:
      // Lasts until exit; the remembered start value is the Settings window's.
      g.view.grid = !g.view.grid;
      SetCanvasSettings(g.canvas, {g.view.smooth, g.view.grid, g.dark});
      break;
    case kCmdGrayscale:
    case kCmdSepia:
    case kCmdInvert:
    case kCmdAutoTone:
    case kCmdAutoContrast:
    case kCmdAutoColor:
    case kCmdEmboss:
    case kCmdEdgeDetect:
      if (doc) RunImmediateAdjustment(*doc, id);
      break;
    case kCmdBrightnessContrast:
    case kCmdGamma:
    case kCmdHueSaturation:
    case kCmdColorize:
    case kCmdPosterize:
    case kCmdThreshold:
    case kCmdBlur:
    case kCmdGaussianBlur:
    case kCmdLensBlur:
    case kCmdMotionBlur:
    case kCmdSharpen:
    case kCmdAddNoise:
    case kCmdPixelate:
    case kCmdSpiral:
    case kCmdHdrToneMap:
    case kCmdWhitenArea:
    case kCmdLensFlare:
      if (doc) RunEffectCommand(*doc, id);
      break;
    case kCmdCut:
    case kCmdCopy:
      if (doc) {
        bool copied;
        {
          BusyCursor busy;
          copied = CopyToClipboard(g.main, *doc);
        }
        // Cut erases only what is safely on the clipboard, as a step of its own.
        if (copied && id == kCmdCut) RunCommand(kCmdClear);
      }
      break;
    case kCmdPaste:
    case kCmdPasteNew: {
      std::unique_ptr<Document> fresh;
      {
        BusyCursor busy;
        fresh = PasteFromClipboard(g.main, doc,
                                   id == kCmdPasteNew ? PasteTarget::NewImage : PasteTarget::ActiveDocument);
      }
      if (fresh) AddTab(std::move(fresh));
      break;
    }
    case kCmdUndo:
      if (doc) Undo(*doc);
      break;
    case kCmdRedo:
      if (doc) Redo(*doc);
      break;
    case kCmdFlattenImage:
    case kCmdFlattenLayers:
      if (doc) FlattenCommand(*doc);
      break;
    case kCmdNewLayer:
      if (doc) {
        const LayerEffects defaults = LoadEffectDefaults(AppSettings().Snapshot());
        NewLayerCommand(*doc, &defaults);
      }
      break;
    case kCmdDuplicateLayer:
      if (doc) DuplicateLayerCommand(*doc);
      break;
    case kCmdDeleteLayer:
      if (doc) DeleteLayerCommand(*doc);
      break;
    case kCmdMergeDown:
      if (doc) MergeDownCommand(*doc);
      break;
    case kCmdLayerProperties:
      if (doc && ActiveLayer(doc)) RunLayerEffectsDialog(g.main, *doc, doc->active, &RepaintCanvas, nullptr);
      break;
    case kCmdLayerUp:
    case kCmdLayerDown:
      if (doc) MoveLayerCommand(*doc, id == kCmdLayerUp ? 1 : -1);
      break;
    case kCmdSelectAll:
    case kCmdSelectNone:
    case kCmdSelectInvert:
    case kCmdFeather:
    case kCmdGrow:
    case kCmdShrink:
    case kCmdFromLayerAlpha:
      if (doc) SelectionCommand(*doc, id);
      break;
    default:
      if (doc) DocumentCommand(*doc, id);
      break;
  }
  UpdateTitle();
  RefreshMenus();
}

// ---------------------------------------------------------------- tabs bar

void ActivateFromTabsBar(int32_t document) {
  if (document == kBrowseTab && g.browseOpen) {
    if (BrowseActive()) return;
    g.activeTab = -1;
    ShowActive();
    FocusBrowse(g.browse);
    return;
  }
  if (document < 0 || document >= static_cast<int32_t>(g.documents.size()) || document == g.activeTab) return;
  g.activeTab = document;
  ShowActive();
}
bool CloseFromTabsBar(int32_t document) {
  if (document == kBrowseTab) {
    CloseBrowseTab();
    return true;
  }
  const std::size_t before = g.documents.size();
  CloseTab(document);
  return g.documents.size() < before;
}
void ReorderFromTabsBar(std::span<const int32_t> order) {
  if (ApplyTabOrder(g.documents, order, g.activeTab)) RefreshMenus();
}

// ---------------------------------------------------------------- window

// The model tells the windows what changed.
void OnAreaChanged(Document& doc, const Rect& area) {
  if (&doc == ActiveDocument()) InvalidateCanvasImage(g.canvas, area);
}
void OnHistoryChanged(Document& doc) {
  if (&doc != ActiveDocument()) return;
  UpdateTitle();
  RefreshHistoryPanel(g.history);
  RefreshLayersPanel(g.layers);
  RefreshMenus();
}
void OnWholeDocumentChanged(Document& doc) {
  if (&doc != ActiveDocument()) return;
  SetCanvasDocument(g.canvas, &doc);
  RefreshLayersPanel(g.layers);
  RefreshMenus();
}
const DocumentObserver kObserver{&OnAreaChanged, &OnHistoryChanged, &OnWholeDocumentChanged,
                                 &OnWholeDocumentChanged, &OnWholeDocumentChanged};

void LayoutChildren() {
  RECT r;
  GetClientRect(g.main, &r);
  const int width = r.right - r.left;
  // The status bar runs along the bottom, under everything else.
  const int statusHeight = g.status ? std::min<int>(StatusBarHeight(g.dpi), r.bottom - r.top) : 0;
  const int height = r.bottom - r.top - statusHeight;
  if (g.status) MoveWindow(g.status, 0, height, width, statusHeight, TRUE);
  // The toolbar and under it the options bar run along the top; below them
  // the toolbox at the left, the canvas, and a column at the right with
  // History above Layers.
  const int toolbarHeight = g.toolbar ? std::min(ToolbarHeight(g.dpi), height) : 0;
  if (g.toolbar) MoveWindow(g.toolbar, 0, 0, width, toolbarHeight, TRUE);
  const int top = toolbarHeight + (g.optionsBar ? std::min(OptionsBarHeight(g.dpi), height - toolbarHeight) : 0);
  if (g.optionsBar) MoveWindow(g.optionsBar, 0, toolbarHeight, width, top - toolbarHeight, TRUE);
  const int tools = g.toolbox ? std::min(ToolboxWidth(g.dpi, height - top), width / 3) : 0;
  if (g.toolbox) MoveWindow(g.toolbox, 0, top, tools, height - top, TRUE);
  const int panel = std::min(HistoryPanelWidth(g.dpi), width / 2);
  const int below = height - top;
  const int historyHeight = g.historyShown ? below * 2 / 5 : 0;
  if (g.history) {
    MoveWindow(g.history, width - panel, top, panel, historyHeight, TRUE);
    ShowWindow(g.history, g.historyShown ? SW_SHOWNA : SW_HIDE);
  }
  if (g.layers) {
    MoveWindow(g.layers, width - panel, top + historyHeight, panel, below - historyHeight, TRUE);
    ShowWindow(g.layers, SW_SHOWNA);
  }
  // The tabs bar sits over the canvas, between the toolbox and the panels.
  const int tabsHeight = g.tabs ? std::min(TabsBarHeight(g.dpi), below) : 0;
  if (g.tabs) MoveWindow(g.tabs, tools, top, std::max(0, width - panel - tools), tabsHeight, TRUE);
  if (g.canvas) PlaceCanvas(g.canvas, PlaceRulers({tools, top + tabsHeight, std::max(tools, width - panel), height}));
  // The Browse tab takes the canvas's place, rulers included.
  if (g.browse) {
    const bool browsing = BrowseActive();
    if (browsing) {
      SetWindowPos(g.browse, HWND_TOP, tools, top + tabsHeight, std::max(0, width - panel - tools),
                   std::max(0, height - top - tabsHeight), SWP_SHOWWINDOW);
    } else {
      ShowWindow(g.browse, SW_HIDE);
    }
  }
}

void PaintClient(HWND hwnd) {
  PAINTSTRUCT ps;
  HDC dc = BeginPaint(hwnd, &ps);
  RECT r;
  GetClientRect(hwnd, &r);
  FillRect(dc, &r, g.background);
  if (!ActiveDocument()) {
    HFONT font = CreateFontW(-MulDiv(15, static_cast<int>(g.dpi), 96), 0, 0, 0, FW_NORMAL, 0, 0, 0,
                             DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0, L"Segoe UI");
    HGDIOBJ old = SelectObject(dc, font);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, g.dark ? RGB(0x9A, 0x9D, 0xA3) : RGB(0x60, 0x63, 0x69));
    DrawTextW(dc, L"No image open", -1, &r, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
    SelectObject(dc, old);
    DeleteObject(font);
  }
  EndPaint(hwnd, &ps);
}

void SavePlacement() {
  WINDOWPLACEMENT wp{sizeof wp};
  if (!GetWindowPlacement(g.main, &wp)) return;
  // The normal rectangle is in work-area coordinates; the stored one is in
  // screen coordinates, as the window is created with it.
  RECT r = wp.rcNormalPosition;
  MONITORINFO info{sizeof info};
  if (GetMonitorInfoW(MonitorFromRect(&r, MONITOR_DEFAULTTONEAREST), &info))
    OffsetRect(&r, info.rcWork.left - info.rcMonitor.left, info.rcWork.top - info.rcMonitor.top);
  const bool maximized = wp.showCmd == SW_SHOWMAXIMIZED || IsZoomed(g.main) ||
                         (IsIconic(g.main) && (wp.flags & WPF_RESTORETOMAXIMIZED));
  SaveWindowPlacement(AppSettings(),
                      {true, r.left, r.top, r.right - r.left, r.bottom - r.top, maximized});
}

// An Upscayl job came back: its image opens as a new document.
void UpscaylFinished(const std::filesystem::path& image) {
  if (!image.empty()) OpenImageFile(image);
  UpdateTitle();
  RefreshMenus();
}

LRESULT CALLBACK MainProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  if (HandleUpscaylMessage(hwnd, msg, wp, lp, &UpscaylFinished)) return 0;
  switch (msg) {
    case WM_COMMAND:
      if (HIWORD(wp) == 0 || HIWORD(wp) == 1) RunCommand(LOWORD(wp));
      return 0;
    case WM_SETFOCUS:
      if (BrowseActive()) FocusBrowse(g.browse);
      else if (g.canvas) SetFocus(g.canvas);
      return 0;
    case WM_INITMENUPOPUP:
      RefreshMenus();
      return 0;
    case WM_EXITMENULOOP:
      // A menu is modal too: a click still queued when it closes was aimed at it.
      NoteModalEnded();
      return 0;
    case WM_PAINT:
      PaintClient(hwnd);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_SIZE:
      LayoutChildren();
      return 0;
    case WM_DROPFILES: {
      HDROP drop = reinterpret_cast<HDROP>(wp);
      const UINT count = DragQueryFileW(drop, 0xFFFFFFFF, nullptr, 0);
      std::vector<std::filesystem::path> files;
      for (UINT i = 0; i < count; ++i) {
        std::wstring name(DragQueryFileW(drop, i, nullptr, 0) + 1, L'\0');
        DragQueryFileW(drop, i, name.data(), static_cast<UINT>(name.size()));
        files.emplace_back(name.c_str());
      }
      DragFinish(drop);
      for (const auto& f : files) OpenImageFile(f);
      return 0;
    }
    case WM_TIMER:
      if (wp == kSplashTimer) {
        KillTimer(hwnd, kSplashTimer);
        if (g.splash) DestroyWindow(g.splash);
        g.splash = nullptr;
      }
      return 0;
    case WM_GETMINMAXINFO: {
      // Small enough for any screen, large enough that the bars and panels
      // keep their controls in view.
      auto* info = reinterpret_cast<MINMAXINFO*>(lp);
      info->ptMinTrackSize = {MulDiv(720, static_cast<int>(g.dpi ? g.dpi : 96), 96),
                              MulDiv(480, static_cast<int>(g.dpi ? g.dpi : 96), 96)};
      return 0;
    }
    case WM_DPICHANGED: {
      g.dpi = HIWORD(wp);
      g.scale = g.dpi / 96.0;
      const RECT* r = reinterpret_cast<const RECT*>(lp);
      SetWindowPos(hwnd, nullptr, r->left, r->top, r->right - r->left, r->bottom - r->top,
                   SWP_NOZORDER | SWP_NOACTIVATE);
      InvalidateRect(hwnd, nullptr, TRUE);
      return 0;
    }
    case WM_SETTINGCHANGE:
      if (g.view.theme == Theme::FollowSystem && lp &&
          lstrcmpW(reinterpret_cast<LPCWSTR>(lp), L"ImmersiveColorSet") == 0)
        ApplyTheme();
      break;
    case WM_CLOSE:
      for (std::size_t i = 0; i < g.documents.size(); ++i) {
        g.activeTab = static_cast<int32_t>(i);
        ShowActive();
        if (!ConfirmCloseDocument(*g.documents[i])) return 0;  // Cancel keeps the program open
      }
      SavePlacement();
      DestroyWindow(hwnd);
      return 0;
    case WM_DESTROY:
      PostQuitMessage(0);
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

void RegisterMainClass() {
  WNDCLASSEXW wc{sizeof wc};
  wc.lpfnWndProc = MainProc;
  wc.hInstance = g.instance;
  wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  wc.hIcon = static_cast<HICON>(LoadImageW(g.instance, MAKEINTRESOURCEW(1), IMAGE_ICON,
                                           GetSystemMetrics(SM_CXICON),
                                           GetSystemMetrics(SM_CYICON), LR_DEFAULTCOLOR));
  wc.hIconSm = static_cast<HICON>(LoadImageW(g.instance, MAKEINTRESOURCEW(1), IMAGE_ICON,
                                             GetSystemMetrics(SM_CXSMICON),
                                             GetSystemMetrics(SM_CYSMICON), LR_DEFAULTCOLOR));
  wc.lpszClassName = L"TavoraMain";
  RegisterClassExW(&wc);
}

// The stored rectangle when it lies on a connected monitor, else centred in
// the work area of the primary monitor, no larger than it.
RECT InitialRect(const WindowPlacement& p) {
  RECT r{p.x, p.y, p.x + p.width, p.y + p.height};
  if (p.hasPosition && MonitorFromRect(&r, MONITOR_DEFAULTTONULL)) return r;
  MONITORINFO info{sizeof info};
  GetMonitorInfoW(MonitorFromPoint({0, 0}, MONITOR_DEFAULTTOPRIMARY), &info);
  const RECT& work = info.rcWork;
  const int w = std::min<int>(p.width, work.right - work.left);
  const int h = std::min<int>(p.height, work.bottom - work.top);
  const int x = work.left + (work.right - work.left - w) / 2;
  const int y = work.top + (work.bottom - work.top - h) / 2;
  return {x, y, x + w, y + h};
}

int MessageLoop() {
  MSG msg;
  while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
    // A click made on a modal window that has gone meanwhile belongs to it.
    if (IsLeftoverModalClick(msg)) continue;
    // F1 anywhere: the manual, at the current tool's page when pressed in
    // the main window (modal dialogs answer it in their own loop).
    if (msg.message == WM_KEYDOWN && msg.wParam == VK_F1) {
      ShowManual(g.main, GetAncestor(msg.hwnd, GA_ROOT) == g.main ? HelpTopic() : u"");
      continue;
    }
    // The wheel scrolls what is under the pointer (the History panel, the
    // canvas), not the window with the keyboard focus.
    if (msg.message == WM_MOUSEWHEEL) {
      HWND under = WindowFromPoint(msg.pt);
      if (under && under != msg.hwnd && IsChild(g.main, under)) msg.hwnd = under;
    }
    // The Browse tab's own keys (arrows, Enter, Delete, F5, Alt+arrows) come first.
    if (BrowseKeyDown(g.browse, msg)) continue;
    if (msg.message == WM_KEYDOWN || msg.message == WM_SYSKEYDOWN) {
      HWND focus = GetFocus();
      wchar_t cls[64] = {};
      if (focus) GetClassNameW(focus, cls, 64);
      const std::u16string focusClass(cls, cls + lstrlenW(cls));
      KeyPress key;
      key.plainKeyDown = msg.message == WM_KEYDOWN;
      key.arrowKey = msg.wParam >= VK_LEFT && msg.wParam <= VK_DOWN;
      key.focusClass = focusClass;
      key.focusIsCanvas = focusClass == u"KZCanvas";
      key.focusInMainWindow = focus && (focus == g.main || IsChild(g.main, focus));
      key.moveToolActive = g.tools.CurrentTool() == kToolMove;
      key.documentActive = ActiveDocument() != nullptr;
      key.topLevelIsMain = GetAncestor(msg.hwnd, GA_ROOT) == g.main;
      key.ctrlOrAlt = (GetKeyState(VK_CONTROL) & 0x8000) || (GetKeyState(VK_MENU) & 0x8000);
      const KeyRoute route = RouteKey(key);
      // Arrow nudges go to the Move tool, which takes none yet; letters and
      // Backspace/Esc go to the tool keys.
      if ((route.offerToTool || route.offerToolKey) && ToolKeyDown(msg.wParam, msg.lParam)) continue;
      if (route.useAccelerators && TranslateAcceleratorW(g.main, g.accelerators, &msg)) continue;
    }
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
  return static_cast<int>(msg.wParam);
}

}  // namespace

int RunTavora(HINSTANCE instance, int showFlag) {
  InstallMemoryGuards();
  g.instance = instance;
  g.splash = ShowSplash(instance);
  const DWORD splashShown = GetTickCount();

  AppSettings().Open(ProgramFolder());
  const HRESULT com = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  g.view = ReadViewSettings(AppSettings());
  g.tools.Load(AppSettings());
  g.recent.Load(AppSettings());
  const bool codecs = StartGdiplusCodecs();
  if (codecs) SetSystemCodec(&GdiplusCodecs());
  // Shapes and text are drawn by GDI+ too.
  if (codecs) SetSystemDrawing(&GdiplusDrawing());
  g.input.SetTextDialog(&AskText, nullptr);
  SetDocumentObserver(&kObserver);
  SetHelpKeyHandler(&HelpInDialog);

  g.dpi = SystemDpi();
  g.scale = g.dpi / 96.0;
  ApplyTheme();
  RegisterMainClass();
  RegisterCanvasClasses(instance);
  RegisterHistoryPanelClass(instance);
  RegisterLayersPanelClass(instance);
  RegisterToolboxClass(instance);
  RegisterOptionsBarClass(instance);
  RegisterToolbarClass(instance);
  RegisterTabsBarClass(instance);
  RegisterStatusBarClass(instance);
  RegisterBrowseClasses(instance);
  const WindowPlacement placement = LoadWindowPlacement(AppSettings(), g.scale);
  g.menuBar = CreateMenu();
  BuildMenu(g.menuBar, MenuBar());

  const RECT r = InitialRect(placement);
  g.main = CreateWindowExW(0, L"TavoraMain", L"Tavora", WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN,
                           r.left, r.top, r.right - r.left, r.bottom - r.top, nullptr, g.menuBar,
                           instance, nullptr);
  if (!g.main) return 1;
  const UINT monitorDpi = WindowDpi(g.main);
  if (monitorDpi != g.dpi) {
    g.dpi = monitorDpi;
    g.scale = g.dpi / 96.0;
  }
  ApplyTheme();
  DragAcceptFiles(g.main, TRUE);
  g.canvas = CreateCanvas(g.main, instance);
  CreateRulers(g.main, g.canvas, [] { return g.shown; });
  SetCanvasSettings(g.canvas, {g.view.smooth, g.view.grid, g.dark});
  g.history = CreateHistoryPanel(g.main, instance);
  g.layers = CreateLayersPanel(g.main, instance);
  g.toolbox = CreateToolbox(g.main, instance, &g.tools, {&SelectTool, &ColorsChanged});
  g.optionsBar = CreateOptionsBar(g.main, instance, &g.tools, &OptionChanged);
  SetOptionsBarFinish(&FinishToolFromBar);
  g.toolbar = CreateToolbar(g.main, instance, g.canvas, {&CommandFromToolbar, &ToolbarCommandAvailable, &RefreshMenus});
  SetToolbarTheme(g.toolbar, g.dark);
  g.tabs = CreateTabsBar(g.main, instance, {&ActivateFromTabsBar, &CloseFromTabsBar, &ReorderFromTabsBar});
  g.status = CreateStatusBar(g.main, instance, g.canvas);
  g.browse = CreateBrowseHost(g.main, instance, {&OpenFromBrowse});
  SetBrowseTheme(g.browse, g.dark);
  SetTabsBarTheme(g.tabs, g.dark);
  SetStatusBarTheme(g.status, g.dark);
  SetCanvasTools(g.canvas, &g.tools, &g.input, &PickedColorsChanged);
  SetToolboxTheme(g.toolbox, g.dark);
  SetOptionsBarTheme(g.optionsBar, g.dark);
  g.historyShown = AppSettings().GetInt(u"History", u"Panel", 1) != 0;
  SetHistoryPanelTheme(g.history, g.dark);
  SetLayersPanelTheme(g.layers, g.dark);
  LayoutChildren();
  g.accelerators = BuildAccelerators();

  if (placement.maximized) {
    ShowWindow(g.main, SW_SHOWMAXIMIZED);
  } else {
    ShowWindow(g.main, showFlag != 0 ? showFlag : SW_SHOW);
  }
  UpdateWindow(g.main);
  // The splash stays in front of the new window until its time is up.
  if (g.splash) {
    constexpr UINT kKeep = SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | SWP_SHOWWINDOW;
    SetWindowPos(g.splash, HWND_NOTOPMOST, 0, 0, 0, 0, kKeep);
    SetWindowPos(g.splash, HWND_TOPMOST, 0, 0, 0, 0, kKeep);
  }

  // The command line in order: folders open in Browse, files as documents,
  // anything else is ignored.
  int argc = 0;
  if (LPWSTR* argv = CommandLineToArgvW(GetCommandLineW(), &argc)) {
    for (int i = 1; i < argc; ++i) {
      std::error_code ec;
      if (std::filesystem::is_directory(argv[i], ec)) OpenBrowse(argv[i]);
      else if (std::filesystem::is_regular_file(argv[i], ec)) OpenImageFile(argv[i]);
    }
    LocalFree(argv);
  }
  if (g.documents.empty() && !g.browseOpen && AppSettings().GetInt(u"View", u"StartBrowse", 1) != 0)
    OpenBrowse({});

  RefreshMenus();
  const DWORD shown = GetTickCount() - splashShown;
  if (shown >= kSplashMinimumMs) {
    if (g.splash) DestroyWindow(g.splash);
    g.splash = nullptr;
  } else {
    SetTimer(g.main, kSplashTimer, kSplashMinimumMs - shown, nullptr);
  }
  const int exitCode = MessageLoop();

  AppSettings().SetString(u"Paths", u"LastDir", g.view.lastDir);
  g.tools.Save(AppSettings());
  for (auto& doc : g.documents) g.input.Forget(*doc);
  g.shown = nullptr;
  g.documents.clear();
  // The loading threads decode through the codecs: they stop first.
  CloseBrowse(g.browse);
  SetDocumentObserver(nullptr);
  SetSystemCodec(nullptr);
  SetSystemDrawing(nullptr);
  if (codecs) StopGdiplusCodecs();
  if (g.accelerators) DestroyAcceleratorTable(g.accelerators);
  if (SUCCEEDED(com)) CoUninitialize();
  return exitCode;
}

}  // namespace tavora

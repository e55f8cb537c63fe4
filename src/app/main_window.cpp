// "TavoraMain": start-up, the main window with its menu bar, the message
// loop with the keyboard routing, command routing and shut-down.
#include <windows.h>
#include <objbase.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "app/commands.h"
#include "app/key_routing.h"
#include "app/memory.h"
#include "app/settings_store.h"
#include "app/shell.h"
#include "app/view_settings.h"
#include "app/window_placement.h"
#include "document/composite.h"
#include "document/history.h"
#include "document/layer_commands.h"
#include "platform/dpi_win32.h"
#include "platform/system_paths.h"

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
};
Shell g;

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

Document* ActiveDocument() {
  return g.activeTab >= 0 && g.activeTab < static_cast<int32_t>(g.documents.size())
             ? g.documents[g.activeTab].get()
             : nullptr;
}

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
  if (Document* doc = ActiveDocument()) {
    s.documentOpen = true;
    s.canUndo = doc->history.current > 0 || doc->pendingStroke;
    s.canRedo = doc->history.current < static_cast<int32_t>(doc->history.states.size());
    s.hasSelection = doc->selection.has_value();
    s.layerCount = doc->LayerCount();
    s.activeLayer = doc->active;
    s.documentSaved = !doc->path.empty();
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
  CheckMenuRadioItem(g.menuBar, kCmdThemeSystem, kCmdThemeDark,
                     kCmdThemeSystem + static_cast<int32_t>(g.view.theme), MF_BYCOMMAND);
  // Open Recent is filled by the open and save flow; empty, it is greyed.
  if (g.recentMenu) {
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
    const bool enabled = (!g.documents.empty() || g.browseOpen);
    if (enabled != g.tabsMenuEnabled) {
      g.tabsMenuEnabled = enabled;
      EnableMenuItem(g.menuBar, static_cast<UINT>(g.tabsMenuPosition),
                     MF_BYPOSITION | (enabled ? MF_ENABLED : MF_GRAYED));
      DrawMenuBar(g.main);
    }
  }
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
  if (g.main) {
    ApplyFrameTheme(g.main, g.dark);
    InvalidateRect(g.main, nullptr, TRUE);
  }
}

// ---------------------------------------------------------------- commands

void RunCommand(int32_t id) {
  if (!CommandAvailable(id, CurrentState())) return;  // greyed: an accelerator must not bypass it
  Document* doc = ActiveDocument();
  switch (id) {
    case kCmdExit:
      SendMessageW(g.main, WM_CLOSE, 0, 0);
      break;
    case kCmdAbout:
      MessageBoxW(g.main,
                  L"Tavora 0.1.0\n\nA small, fast raster image editor for Windows.",
                  L"About Tavora", MB_OK | MB_ICONINFORMATION);
      break;
    case kCmdThemeSystem:
    case kCmdThemeLight:
    case kCmdThemeDark:
      g.view.theme = static_cast<Theme>(id - kCmdThemeSystem);
      AppSettings().SetInt(u"View", u"Theme", id - kCmdThemeSystem);
      ApplyTheme();
      break;
    case kCmdUndo:
      if (doc) Undo(*doc);
      break;
    case kCmdRedo:
      if (doc) Redo(*doc);
      break;
    case kCmdFlattenImage:
    case kCmdFlattenLayers:
      if (doc) {
        PushWholeDocument(*doc, u"Flatten Image");
        FlattenLayers(*doc);
        Invalidate(*doc, -1, doc->Bounds());
      }
      break;
    default:
      break;
  }
  RefreshMenus();
}

// ---------------------------------------------------------------- window

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
  const RECT& r = wp.rcNormalPosition;
  SaveWindowPlacement(AppSettings(), {true, r.left, r.top, r.right - r.left, r.bottom - r.top,
                                      wp.showCmd == SW_SHOWMAXIMIZED || IsZoomed(g.main)});
}

LRESULT CALLBACK MainProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_COMMAND:
      if (HIWORD(wp) == 0 || HIWORD(wp) == 1) RunCommand(LOWORD(wp));
      return 0;
    case WM_INITMENUPOPUP:
      RefreshMenus();
      return 0;
    case WM_PAINT:
      PaintClient(hwnd);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_SIZE:
      InvalidateRect(hwnd, nullptr, FALSE);
      return 0;
    case WM_TIMER:
      if (wp == kSplashTimer) {
        KillTimer(hwnd, kSplashTimer);
        if (g.splash) DestroyWindow(g.splash);
        g.splash = nullptr;
      }
      return 0;
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
      // The save-changes prompt for each modified document comes with the
      // open and save flow; there are no documents to ask about yet.
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
      key.moveToolActive = false;  // the tools arrive with their own step
      key.documentActive = ActiveDocument() != nullptr;
      key.topLevelIsMain = GetAncestor(msg.hwnd, GA_ROOT) == g.main;
      const KeyRoute route = RouteKey(key);
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

  g.dpi = SystemDpi();
  g.scale = g.dpi / 96.0;
  ApplyTheme();
  RegisterMainClass();
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
  g.documents.clear();
  if (g.accelerators) DestroyAcceleratorTable(g.accelerators);
  if (SUCCEEDED(com)) CoUninitialize();
  return exitCode;
}

}  // namespace tavora

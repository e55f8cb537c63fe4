#include "platform/message_box_win32.h"

#include <algorithm>
#include <string>
#include <vector>

#include "platform/dpi_win32.h"
#include "platform/message_box.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"

namespace tavora {
namespace {

static_assert(kAnswerOk == IDOK && kAnswerCancel == IDCANCEL && kAnswerYes == IDYES && kAnswerNo == IDNO);

struct BoxState {
  MessageKind kind;
  std::vector<std::wstring> lines;
  MessageBoxLayout layout;
  int32_t lineHeight = 0;
  HICON icon = nullptr;
  HFONT font = nullptr;
  int defaultId = IDOK;
  HWND focus = nullptr;  // the button with the focus when the box was last active
  int answer = 0;
  bool done = false;
};

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }
std::u16string Narrow(std::wstring_view s) { return std::u16string(s.begin(), s.end()); }

void Paint(HWND hwnd, const BoxState& b) {
  PAINTSTRUCT ps;
  HDC dc = BeginPaint(hwnd, &ps);
  const ThemeColors& c = DialogThemeColors();
  RECT body{0, 0, b.layout.width, b.layout.bandTop};
  RECT band{0, b.layout.bandTop, b.layout.width, b.layout.height};
  FillRect(dc, &body, DialogWindowBrush());
  FillRect(dc, &band, DialogBandBrush());
  if (b.icon)
    DrawIconEx(dc, b.layout.icon.x0, b.layout.icon.y0, b.icon, b.layout.icon.Width(), b.layout.icon.Height(), 0,
               nullptr, DI_NORMAL);
  HGDIOBJ old = SelectObject(dc, b.font);
  SetBkMode(dc, TRANSPARENT);
  SetTextColor(dc, c.text);
  for (std::size_t i = 0; i < b.lines.size(); ++i) {
    const int y = b.layout.text.y0 + static_cast<int>(i) * b.lineHeight;
    RECT line{b.layout.text.x0, y, b.layout.text.x1, y + b.lineHeight};
    DrawTextW(dc, b.lines[i].c_str(), static_cast<int>(b.lines[i].size()), &line,
              DT_LEFT | DT_SINGLELINE | DT_NOPREFIX | DT_VCENTER);
  }
  SelectObject(dc, old);
  EndPaint(hwnd, &ps);
}

void Answer(BoxState& b, int answer) {
  if (answer == 0) return;  // Yes or No must be chosen
  b.answer = answer;
  b.done = true;
}

LRESULT CALLBACK BoxProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  auto* b = reinterpret_cast<BoxState*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
  if (msg == WM_NCCREATE) {
    SetWindowLongPtrW(hwnd, GWLP_USERDATA,
                      reinterpret_cast<LONG_PTR>(reinterpret_cast<CREATESTRUCTW*>(lp)->lpCreateParams));
    return DefWindowProcW(hwnd, msg, wp, lp);
  }
  if (!b) return DefWindowProcW(hwnd, msg, wp, lp);
  switch (msg) {
    case WM_PAINT:
      Paint(hwnd, *b);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_CTLCOLORBTN:
      // Around the buttons is the band.
      SetBkColor(reinterpret_cast<HDC>(wp), DialogThemeColors().band);
      return reinterpret_cast<LRESULT>(DialogBandBrush());
    case WM_DRAWITEM: {
      const auto& item = *reinterpret_cast<const DRAWITEMSTRUCT*>(lp);
      DrawPushButton(item, static_cast<int>(item.CtlID) == b->defaultId);
      return TRUE;
    }
    case DM_GETDEFID:
      return DefaultButtonAnswer(hwnd, b->defaultId);
    case WM_ACTIVATE:
      // As a dialog does: the focus goes back to the button that had it.
      if (LOWORD(wp) == WA_INACTIVE) {
        if (IsChild(hwnd, GetFocus())) b->focus = GetFocus();
      } else if (b->focus) {
        SetFocus(b->focus);
        return 0;
      }
      break;
    case WM_COMMAND: {
      const int id = LOWORD(wp);
      const auto buttons = ButtonsOf(b->kind.buttons);
      const bool isButton = std::any_of(buttons.begin(), buttons.end(),
                                        [id](const MessageButton& m) { return m.answer == id; });
      // Esc arrives as IDCANCEL whether there is a Cancel button or not.
      Answer(*b, isButton ? id : id == IDCANCEL ? EscapeAnswer(b->kind.buttons) : 0);
      return 0;
    }
    case WM_CLOSE:
      Answer(*b, EscapeAnswer(b->kind.buttons));
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

// The system's icons at the size asked for (OIC_NOTE, OIC_BANG, OIC_QUES and
// OIC_HAND), so they are sharp at any dpi.
HICON LoadMessageIcon(MessageIcon icon, int size) {
  WORD id = 0;
  switch (icon) {
    case MessageIcon::Information: id = 32516; break;
    case MessageIcon::Warning: id = 32515; break;
    case MessageIcon::Question: id = 32514; break;
    case MessageIcon::Error: id = 32513; break;
    case MessageIcon::None: return nullptr;
  }
  return static_cast<HICON>(LoadImageW(nullptr, MAKEINTRESOURCEW(id), IMAGE_ICON, size, size, 0));
}

UINT SoundOf(MessageIcon icon) {
  switch (icon) {
    case MessageIcon::Information: return MB_ICONINFORMATION;
    case MessageIcon::Warning: return MB_ICONWARNING;
    case MessageIcon::Question: return MB_ICONQUESTION;
    case MessageIcon::Error: return MB_ICONERROR;
    case MessageIcon::None: break;
  }
  return MB_OK;
}

// The rectangle of the window to centre on: the owner's, else the work
// area of the monitor under the pointer.
RECT CentreOn(HWND owner) {
  RECT r{};
  if (owner && IsWindowVisible(owner) && GetWindowRect(owner, &r)) return r;
  POINT p{};
  GetCursorPos(&p);
  MONITORINFO info{sizeof info};
  GetMonitorInfoW(MonitorFromPoint(p, MONITOR_DEFAULTTOPRIMARY), &info);
  return info.rcWork;
}

}  // namespace

int ShowMessageBox(HWND owner, std::wstring_view text, std::wstring_view caption, UINT flags) {
  static bool registered = false;
  if (!registered) {
    WNDCLASSEXW wc{sizeof wc};
    wc.lpfnWndProc = BoxProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.lpszClassName = L"KZMsgBox";
    RegisterClassExW(&wc);
    registered = true;
  }
  if (owner) owner = GetAncestor(owner, GA_ROOT);
  BoxState b;
  b.kind = MessageKindFromFlags(flags);
  const auto buttons = ButtonsOf(b.kind.buttons);
  b.defaultId = buttons[static_cast<std::size_t>(b.kind.defaultButton)].answer;

  const int dpi = static_cast<int>(owner ? WindowDpi(owner) : SystemDpi());
  auto S = [dpi](int v) { return MulDiv(v, dpi, 96); };
  b.font = CreateFontW(-S(12), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0,
                       L"Segoe UI");
  HDC screen = GetDC(nullptr);
  HGDIOBJ oldFont = SelectObject(screen, b.font);
  auto width = [screen](std::u16string_view s) {
    SIZE size{};
    const std::wstring w = Wide(s);
    GetTextExtentPoint32W(screen, w.c_str(), static_cast<int>(w.size()), &size);
    return static_cast<int32_t>(size.cx);
  };
  TEXTMETRICW tm{};
  GetTextMetricsW(screen, &tm);
  b.lineHeight = tm.tmHeight + tm.tmExternalLeading;
  int32_t textWidth = 0;
  for (const std::u16string& line : WrapText(Narrow(text), S(420), width)) {
    textWidth = std::max(textWidth, width(line));
    b.lines.push_back(Wide(line));
  }
  int32_t buttonWidth = S(88);
  for (const MessageButton& m : buttons) {
    std::u16string label(m.label);
    std::erase(label, u'&');
    buttonWidth = std::max(buttonWidth, width(label) + S(24));
  }
  SelectObject(screen, oldFont);
  ReleaseDC(nullptr, screen);

  MessageBoxMetrics m;
  m.margin = S(20);
  m.iconSize = b.kind.icon == MessageIcon::None ? 0 : S(32);
  m.iconGap = S(14);
  m.lineHeight = b.lineHeight;
  m.minWidth = S(260);
  m.buttonWidth = buttonWidth;
  m.buttonHeight = S(28);
  m.buttonGap = S(8);
  m.bandPadding = S(12);
  b.layout = LayOutMessageBox(m, textWidth, static_cast<int32_t>(b.lines.size()),
                              static_cast<int32_t>(buttons.size()));
  b.icon = LoadMessageIcon(b.kind.icon, m.iconSize);

  const DWORD style = WS_POPUP | WS_CAPTION | WS_SYSMENU, exStyle = WS_EX_DLGMODALFRAME;
  RECT frame{0, 0, b.layout.width, b.layout.height};
  AdjustWindowRectEx(&frame, style, FALSE, exStyle);
  const int w = frame.right - frame.left, h = frame.bottom - frame.top;
  const RECT on = CentreOn(owner);
  HWND box = CreateWindowExW(exStyle, L"KZMsgBox", std::wstring(caption).c_str(), style,
                             (on.left + on.right - w) / 2, (on.top + on.bottom - h) / 2, w, h, owner, nullptr,
                             GetModuleHandleW(nullptr), &b);
  if (!box) {
    if (b.icon) DestroyIcon(b.icon);
    DeleteObject(b.font);
    return 0;
  }
  for (std::size_t i = 0; i < buttons.size(); ++i) {
    const Rect& r = b.layout.buttons[i];
    const bool isDefault = buttons[i].answer == b.defaultId;
    HWND button = CreateWindowExW(0, L"Button", Wide(buttons[i].label).c_str(),
                                  WS_CHILD | WS_VISIBLE | WS_TABSTOP | PushButtonStyle(isDefault), r.x0, r.y0,
                                  r.Width(), r.Height(), box,
                                  reinterpret_cast<HMENU>(static_cast<INT_PTR>(buttons[i].answer)),
                                  GetModuleHandleW(nullptr), nullptr);
    SendMessageW(button, WM_SETFONT, reinterpret_cast<WPARAM>(b.font), FALSE);
  }
  if (EscapeAnswer(b.kind.buttons) == 0) EnableMenuItem(GetSystemMenu(box, FALSE), SC_CLOSE, MF_BYCOMMAND | MF_GRAYED);
  ThemeDialog(box);
  MessageBeep(SoundOf(b.kind.icon));
  b.focus = GetDlgItem(box, b.defaultId);
  ModalWindow(box, owner).Run(b.done, b.focus);
  if (b.icon) DestroyIcon(b.icon);
  DeleteObject(b.font);
  return b.answer;
}

}  // namespace tavora

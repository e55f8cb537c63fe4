// "KZTextDlg": the Text tool's dialog, in the look of the effect dialogs;
// the preview runs on timer 78, a moment after the last change.
#include "tools/text_dialog_window.h"

#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "platform/dialog_win32.h"
#include "platform/dpi_win32.h"
#include "platform/drawing_bridge.h"
#include "platform/message_box_win32.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"
#include "tools/canvas.h"
#include "tools/canvas_view.h"

namespace tavora {
namespace {

constexpr UINT_PTR kPreviewTimer = 78;
constexpr UINT kPreviewDelay = 150;
constexpr int kTextId = 100, kFontId = 101, kSizeId = 102, kBoldId = 103, kItalicId = 104, kUnderlineId = 105,
              kColorId = 106;

struct DialogState {
  HWND window = nullptr;
  HWND text = nullptr, font = nullptr, size = nullptr, bold = nullptr, italic = nullptr, underline = nullptr,
       color = nullptr;
  uint32_t colorValue = 0xFF000000;
  TextPreviewCallback preview = nullptr;
  void* context = nullptr;
  bool done = false, accepted = false;
  TextValues result;
};
DialogState* g_dialog = nullptr;  // one text dialog at a time

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

std::u16string WindowText(HWND h) {
  std::wstring s(static_cast<std::size_t>(GetWindowTextLengthW(h)) + 1, L'\0');
  s.resize(static_cast<std::size_t>(GetWindowTextW(h, s.data(), static_cast<int>(s.size()))));
  return std::u16string(s.begin(), s.end());
}

// The edit box shows line breaks as "\r\n".
std::wstring ForEditBox(std::u16string_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (char16_t c : NormalizeLineBreaks(text)) {
    if (c == u'\n') out.push_back(L'\r');
    out.push_back(static_cast<wchar_t>(c));
  }
  return out;
}

bool Checked(HWND h) { return SendMessageW(h, BM_GETCHECK, 0, 0) == BST_CHECKED; }

// The values on screen; a size that is not a whole number in range is the
// problem reported, and the values hold 0 for it.
TextValues ReadValues(const DialogState& d, TextProblem& problem) {
  TextValues v;
  v.text = NormalizeLineBreaks(WindowText(d.text));
  v.fontName = WindowText(d.font);
  const auto size = ParseFontSize(WindowText(d.size));
  v.fontSize = size.value_or(0);
  v.bold = Checked(d.bold);
  v.italic = Checked(d.italic);
  v.underline = Checked(d.underline);
  v.color = d.colorValue;
  problem = CheckTextValues(v);
  return v;
}

void Restart(DialogState& d) { SetTimer(d.window, kPreviewTimer, kPreviewDelay, nullptr); }

void Preview(DialogState& d) {
  if (!d.preview) return;
  TextProblem problem;
  const TextValues v = ReadValues(d, problem);
  if (!problem.message.empty()) return;  // half-typed: the last preview stays
  d.preview(&v, d.context);
}

void Accept(DialogState& d) {
  TextProblem problem;
  const TextValues v = ReadValues(d, problem);
  if (!problem.message.empty()) {
    ShowMessageBox(d.window, Wide(problem.message), L"Tavora", MB_OK | MB_ICONINFORMATION);
    HWND field = problem.field == TextField::Size ? d.size : problem.field == TextField::Font ? d.font : d.text;
    SetFocus(field);
    if (field != d.font) SendMessageW(field, EM_SETSEL, 0, -1);
    return;
  }
  d.result = v;
  d.done = d.accepted = true;
}

void DrawColorButton(const DialogState& d, const DRAWITEMSTRUCT& item) {
  const uint32_t c = d.colorValue;
  RECT r = item.rcItem;
  DrawEdge(item.hDC, &r, (item.itemState & ODS_SELECTED) ? EDGE_SUNKEN : EDGE_RAISED, BF_RECT | BF_ADJUST);
  HBRUSH brush = CreateSolidBrush(RGB((c >> 16) & 255, (c >> 8) & 255, c & 255));
  FillRect(item.hDC, &r, brush);
  DeleteObject(brush);
  if (item.itemState & ODS_FOCUS) {
    InflateRect(&r, -2, -2);
    DrawFocusRect(item.hDC, &r);
  }
}

LRESULT CALLBACK DialogProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  DialogState* d = g_dialog;
  if (!d) return DefWindowProcW(hwnd, msg, wp, lp);
  switch (msg) {
    case WM_TIMER:
      if (wp == kPreviewTimer) {
        KillTimer(hwnd, kPreviewTimer);
        Preview(*d);
      }
      return 0;
    case WM_COMMAND: {
      const int id = LOWORD(wp), code = HIWORD(wp);
      if (id == IDOK) Accept(*d);
      else if (id == IDCANCEL) d->done = true;
      else if (id == kColorId && code == BN_CLICKED) {
        if (ChooseColorDialog(hwnd, d->colorValue)) {
          InvalidateRect(d->color, nullptr, FALSE);
          Restart(*d);
        }
      } else if (((id == kTextId || id == kSizeId) && code == EN_CHANGE) ||
                 (id == kFontId && (code == CBN_EDITCHANGE || code == CBN_SELCHANGE)) ||
                 ((id == kBoldId || id == kItalicId || id == kUnderlineId) && code == BN_CLICKED)) {
        Restart(*d);
      }
      return 0;
    }
    case WM_NEXTDLGCTL:
      // Tab in the multi-line text box asks its parent to move on.
      if (!LOWORD(lp)) SetFocus(GetNextDlgTabItem(hwnd, GetFocus(), wp != 0));
      else SetFocus(reinterpret_cast<HWND>(wp));
      return 0;
    case WM_DRAWITEM: {
      const auto& item = *reinterpret_cast<const DRAWITEMSTRUCT*>(lp);
      if (item.CtlID == static_cast<UINT>(kColorId)) DrawColorButton(*d, item);
      else DrawPushButton(item, item.CtlID == IDOK);
      return TRUE;
    }
    case DM_GETDEFID:
      return DefaultButtonAnswer(hwnd, IDOK);
    case WM_ERASEBKGND: {
      RECT r;
      GetClientRect(hwnd, &r);
      FillRect(reinterpret_cast<HDC>(wp), &r,
               DialogBackgroundBrush());
      return 1;
    }
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLORBTN:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
      if (HBRUSH brush = DialogControlColor(msg, wp)) return reinterpret_cast<LRESULT>(brush);
      break;
    case WM_CLOSE:  // the close box, and Esc in the text box
      d->done = true;
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

void FillFonts(HWND combo, const std::u16string& current) {
  std::vector<std::u16string> families;
  if (const SystemDrawing* drawing = CurrentSystemDrawing(); drawing && drawing->fontFamilies)
    families = drawing->fontFamilies();
  for (const std::u16string& name : families)
    SendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(Wide(name).c_str()));
  const std::wstring wide = Wide(current);
  const LRESULT at = SendMessageW(combo, CB_FINDSTRINGEXACT, static_cast<WPARAM>(-1),
                                  reinterpret_cast<LPARAM>(wide.c_str()));
  if (at != CB_ERR) SendMessageW(combo, CB_SETCURSEL, static_cast<WPARAM>(at), 0);
  else SetWindowTextW(combo, wide.c_str());  // not installed: kept as typed, drawn in a stand-in
}

}  // namespace

bool RunTextDialog(HWND owner, TextValues& values, TextPreviewCallback preview, void* context) {
  if (g_dialog) return false;
  static bool registered = false;
  if (!registered) {
    WNDCLASSEXW wc{sizeof wc};
    wc.lpfnWndProc = DialogProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    wc.lpszClassName = L"KZTextDlg";
    RegisterClassExW(&wc);
    registered = true;
  }
  DialogState d;
  d.preview = preview;
  d.context = context;
  d.colorValue = values.color | 0xFF000000u;

  const UINT dpi = WindowDpi(owner);
  auto S = [dpi](int v) { return MulDiv(v, static_cast<int>(dpi), 96); };
  const int width = S(480), height = S(330);
  RECT ownerRect{};
  GetWindowRect(owner, &ownerRect);
  g_dialog = &d;
  d.window = CreateWindowExW(WS_EX_DLGMODALFRAME, L"KZTextDlg", L"Text", WS_POPUP | WS_CAPTION | WS_SYSMENU,
                             (ownerRect.left + ownerRect.right - width) / 2,
                             (ownerRect.top + ownerRect.bottom - height) / 2, width, height, owner, nullptr,
                             GetModuleHandleW(nullptr), nullptr);
  if (!d.window) {
    g_dialog = nullptr;
    return false;
  }
  HFONT font = CreateFontW(-S(12), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0,
                           L"Segoe UI");
  RECT client;
  GetClientRect(d.window, &client);
  const int inner = client.right - S(28);
  int y = S(12);
  CreateControl(d.window, L"Static", L"&Text:", SS_LEFT, S(14), y, inner, S(18), -1, font);
  y += S(20);
  d.text = CreateControl(d.window, L"Edit", ForEditBox(values.text),
                   ES_MULTILINE | ES_WANTRETURN | ES_AUTOVSCROLL | WS_VSCROLL | WS_TABSTOP, S(14), y, inner, S(110),
                   kTextId, font);
  // Room for every line break as "\r\n"; the length is checked on OK.
  SendMessageW(d.text, EM_SETLIMITTEXT, 2 * TextRecord::kMaxText, 0);
  y += S(122);
  CreateControl(d.window, L"Static", L"&Font:", SS_LEFT, S(14), y + S(3), S(50), S(20), -1, font);
  d.font = CreateControl(d.window, L"ComboBox", L"", CBS_DROPDOWN | CBS_AUTOHSCROLL | WS_VSCROLL | WS_TABSTOP, S(66), y,
                   S(220), S(260), kFontId, font);
  SendMessageW(d.font, CB_LIMITTEXT, TextRecord::kMaxFontName, 0);
  FillFonts(d.font, values.fontName);
  CreateControl(d.window, L"Static", L"&Size:", SS_LEFT, S(300), y + S(3), S(40), S(20), -1, font);
  d.size = CreateControl(d.window, L"Edit", std::to_wstring(values.fontSize), ES_AUTOHSCROLL | WS_TABSTOP, S(342), y,
                   S(64), S(24), kSizeId, font);
  CreateControl(d.window, L"Static", L"px", SS_LEFT, S(412), y + S(3), S(30), S(20), -1, font);
  y += S(36);
  d.bold = CreateControl(d.window, L"Button", L"&Bold", BS_AUTOCHECKBOX | WS_TABSTOP, S(14), y, S(80), S(24), kBoldId, font);
  d.italic =
      CreateControl(d.window, L"Button", L"&Italic", BS_AUTOCHECKBOX | WS_TABSTOP, S(100), y, S(80), S(24), kItalicId, font);
  d.underline = CreateControl(d.window, L"Button", L"&Underline", BS_AUTOCHECKBOX | WS_TABSTOP, S(186), y, S(100), S(24),
                        kUnderlineId, font);
  SendMessageW(d.bold, BM_SETCHECK, values.bold ? BST_CHECKED : BST_UNCHECKED, 0);
  SendMessageW(d.italic, BM_SETCHECK, values.italic ? BST_CHECKED : BST_UNCHECKED, 0);
  SendMessageW(d.underline, BM_SETCHECK, values.underline ? BST_CHECKED : BST_UNCHECKED, 0);
  CreateControl(d.window, L"Static", L"&Color:", SS_LEFT, S(300), y + S(3), S(50), S(20), -1, font);
  d.color = CreateControl(d.window, L"Button", L"", BS_OWNERDRAW | WS_TABSTOP, S(352), y, S(70), S(24), kColorId, font);
  y += S(40);
  CreateControl(d.window, L"Button", L"OK", PushButtonStyle(true) | WS_TABSTOP, client.right - S(200), y, S(88), S(28), IDOK,
          font);
  CreateControl(d.window, L"Button", L"Cancel", PushButtonStyle(false) | WS_TABSTOP, client.right - S(104), y, S(88), S(28),
          IDCANCEL, font);
  const int extra = (y + S(44)) - client.bottom;
  SetWindowPos(d.window, nullptr, 0, 0, width, height + extra, SWP_NOMOVE | SWP_NOZORDER);
  ThemeDialog(d.window);
  SendMessageW(d.text, EM_SETSEL, 0, -1);
  Restart(d);

  {
    // Modal: the owner is disabled until the dialog ends.
    ModalWindow modal(d.window, owner);
    modal.Run(d.done, d.text);
    KillTimer(d.window, kPreviewTimer);
  }
  if (preview) preview(nullptr, context);
  DeleteObject(font);
  g_dialog = nullptr;
  if (d.accepted) values = d.result;
  return d.accepted;
}

namespace {

struct CanvasTextPreview {
  HWND canvas = nullptr;
  const Document* doc = nullptr;
  TextClick click;
  std::optional<TextPreview> shown;
};

// The preview's pixels over the picture, scaled with the view.
void DrawTextPreview(HDC dc, const CanvasLayout& layout, void* context) {
  const auto* state = static_cast<const CanvasTextPreview*>(context);
  if (!state->shown) return;
  const Surface& pixels = state->shown->pixels;
  const int32_t w = pixels.Width(), h = pixels.Height();
  if (w <= 0 || h <= 0) return;
  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof(info.bmiHeader);
  info.bmiHeader.biWidth = w;
  info.bmiHeader.biHeight = -h;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  info.bmiHeader.biCompression = BI_RGB;
  void* bits = nullptr;
  HBITMAP bitmap = CreateDIBSection(dc, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  if (!bitmap) return;
  // AlphaBlend wants premultiplied pixels.
  auto* out = static_cast<uint32_t*>(bits);
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      const uint32_t p = pixels.At(x, y);
      const uint32_t a = p >> 24;
      auto mul = [a](uint32_t c) { return (c * a + 127) / 255; };
      out[static_cast<std::size_t>(y) * w + x] =
          (a << 24) | (mul((p >> 16) & 0xFF) << 16) | (mul((p >> 8) & 0xFF) << 8) | mul(p & 0xFF);
    }
  }
  HDC memory = CreateCompatibleDC(dc);
  HGDIOBJ old = SelectObject(memory, bitmap);
  const BLENDFUNCTION blend{AC_SRC_OVER, 0, 255, AC_SRC_ALPHA};
  const int left = static_cast<int>(std::lround(layout.originX + state->shown->x * layout.scale));
  const int top = static_cast<int>(std::lround(layout.originY + state->shown->y * layout.scale));
  const int right = static_cast<int>(std::lround(layout.originX + (state->shown->x + w) * layout.scale));
  const int bottom = static_cast<int>(std::lround(layout.originY + (state->shown->y + h) * layout.scale));
  if (right > left && bottom > top)
    AlphaBlend(dc, left, top, right - left, bottom - top, memory, 0, 0, w, h, blend);
  SelectObject(memory, old);
  DeleteDC(memory);
  DeleteObject(bitmap);
}

void UpdateTextPreview(const TextValues* values, void* context) {
  auto* state = static_cast<CanvasTextPreview*>(context);
  state->shown.reset();
  if (values && !values->text.empty()) state->shown = RenderTextPreview(*state->doc, state->click, *values);
  if (state->canvas) InvalidateCanvas(state->canvas);
}

}  // namespace

bool RunTextToolDialog(HWND owner, HWND canvas, const Document& doc, const TextClick& click,
                       TextValues& values) {
  CanvasTextPreview state{canvas, &doc, click, std::nullopt};
  if (canvas) SetCanvasOverlay(canvas, &DrawTextPreview, &state);
  const bool ok = RunTextDialog(owner, values, &UpdateTextPreview, &state);
  if (canvas) {
    SetCanvasOverlay(canvas, nullptr, nullptr);
    InvalidateCanvas(canvas);
  }
  return ok;
}

}  // namespace tavora

#include "platform/form_dialog_win32.h"

#include <cmath>
#include <cwchar>

#include "platform/dialog_win32.h"
#include "platform/dpi_win32.h"
#include "platform/message_box_win32.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"

namespace tavora {

struct FormDialog::Row {
  enum class Kind { Text, Number, Choice, Check, Color } kind = Kind::Text;
  int id = 0;
  std::wstring label, value;
  std::vector<std::wstring> items;
  int selected = 0;
  bool checked = false, enabled = true;
  uint32_t color = 0xFF000000u;
  HWND labelWindow = nullptr, control = nullptr;
};

namespace {

constexpr int kFirstId = 1000;

std::wstring FormatValue(double value, uint32_t decimals) {
  wchar_t text[64];
  std::swprintf(text, 64, L"%.*f", static_cast<int>(decimals), value);
  return text;
}

std::wstring WindowText(HWND h) {
  std::wstring s(static_cast<std::size_t>(GetWindowTextLengthW(h)) + 1, L'\0');
  s.resize(static_cast<std::size_t>(GetWindowTextW(h, s.data(), static_cast<int>(s.size()))));
  return s;
}

}  // namespace

FormDialog::FormDialog(std::wstring title, int baseWidth) : title_(std::move(title)), baseWidth_(baseWidth) {}

FormDialog::~FormDialog() {
  if (font_) DeleteObject(font_);
}

int FormDialog::AddText(std::wstring text) {
  Row r;
  r.kind = Row::Kind::Text;
  r.label = std::move(text);
  r.id = kFirstId + static_cast<int>(rows_.size());
  rows_.push_back(std::move(r));
  return rows_.back().id;
}

int FormDialog::AddNumber(std::wstring label, double value, uint32_t decimals) {
  Row r;
  r.kind = Row::Kind::Number;
  r.label = std::move(label);
  r.value = FormatValue(value, decimals);
  r.id = kFirstId + static_cast<int>(rows_.size());
  rows_.push_back(std::move(r));
  return rows_.back().id;
}

int FormDialog::AddChoice(std::wstring label, std::vector<std::wstring> items, int selected) {
  Row r;
  r.kind = Row::Kind::Choice;
  r.label = std::move(label);
  r.items = std::move(items);
  r.selected = selected;
  r.id = kFirstId + static_cast<int>(rows_.size());
  rows_.push_back(std::move(r));
  return rows_.back().id;
}

int FormDialog::AddCheck(std::wstring label, bool checked) {
  Row r;
  r.kind = Row::Kind::Check;
  r.label = std::move(label);
  r.checked = checked;
  r.id = kFirstId + static_cast<int>(rows_.size());
  rows_.push_back(std::move(r));
  return rows_.back().id;
}

int FormDialog::AddColor(std::wstring label, uint32_t color) {
  Row r;
  r.kind = Row::Kind::Color;
  r.label = std::move(label);
  r.color = color | 0xFF000000u;
  r.id = kFirstId + static_cast<int>(rows_.size());
  rows_.push_back(std::move(r));
  return rows_.back().id;
}

FormDialog::Row* FormDialog::Find(int id) {
  const int i = id - kFirstId;
  return i >= 0 && i < static_cast<int>(rows_.size()) ? &rows_[static_cast<std::size_t>(i)] : nullptr;
}

const FormDialog::Row* FormDialog::Find(int id) const { return const_cast<FormDialog*>(this)->Find(id); }

std::optional<double> FormDialog::Number(int id) const {
  const Row* r = Find(id);
  if (!r) return std::nullopt;
  const std::wstring text = r->control ? WindowText(r->control) : r->value;
  wchar_t* end = nullptr;
  const double v = std::wcstod(text.c_str(), &end);
  while (end && (*end == L' ' || *end == L'\t')) ++end;
  if (text.empty() || end == text.c_str() || (end && *end) || !std::isfinite(v)) return std::nullopt;
  return v;
}

void FormDialog::SetNumber(int id, double value, uint32_t decimals) {
  Row* r = Find(id);
  if (!r) return;
  r->value = FormatValue(value, decimals);
  // Setting the same text again would still put the caret back to the start.
  if (r->control && WindowText(r->control) != r->value) {
    syncing_ = true;
    SetWindowTextW(r->control, r->value.c_str());
    syncing_ = false;
  }
}

int FormDialog::Choice(int id) const {
  const Row* r = Find(id);
  if (!r) return 0;
  if (!r->control) return r->selected;
  const LRESULT i = SendMessageW(r->control, CB_GETCURSEL, 0, 0);
  return i < 0 ? 0 : static_cast<int>(i);
}

void FormDialog::SetChoice(int id, int index) {
  Row* r = Find(id);
  if (!r) return;
  r->selected = index;
  if (r->control) SendMessageW(r->control, CB_SETCURSEL, static_cast<WPARAM>(index), 0);
}

bool FormDialog::Checked(int id) const {
  const Row* r = Find(id);
  if (!r) return false;
  return r->control ? SendMessageW(r->control, BM_GETCHECK, 0, 0) == BST_CHECKED : r->checked;
}

void FormDialog::SetChecked(int id, bool checked) {
  Row* r = Find(id);
  if (!r) return;
  r->checked = checked;
  if (r->control) SendMessageW(r->control, BM_SETCHECK, checked ? BST_CHECKED : BST_UNCHECKED, 0);
}

uint32_t FormDialog::Color(int id) const {
  const Row* r = Find(id);
  return r ? r->color : 0xFF000000u;
}

void FormDialog::SetText(int id, std::wstring text) {
  Row* r = Find(id);
  if (!r) return;
  r->label = std::move(text);
  if (r->labelWindow) SetWindowTextW(r->labelWindow, r->label.c_str());
}

void FormDialog::Enable(int id, bool enabled) {
  Row* r = Find(id);
  if (!r) return;
  r->enabled = enabled;
  if (r->control) EnableWindow(r->control, enabled);
  if (r->labelWindow) EnableWindow(r->labelWindow, enabled);
}

LRESULT CALLBACK FormDialog::Proc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  if (msg == WM_NCCREATE)
    SetWindowLongPtrW(hwnd, GWLP_USERDATA,
                      reinterpret_cast<LONG_PTR>(reinterpret_cast<CREATESTRUCTW*>(lp)->lpCreateParams));
  auto* self = reinterpret_cast<FormDialog*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
  return self ? self->Handle(hwnd, msg, wp, lp) : DefWindowProcW(hwnd, msg, wp, lp);
}

LRESULT FormDialog::Handle(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_COMMAND: {
      const int id = LOWORD(wp), code = HIWORD(wp);
      if (id == IDOK) {
        const std::wstring problem = validate ? validate(*this) : std::wstring();
        if (!problem.empty()) {
          ShowMessageBox(hwnd, problem, L"Tavora", MB_OK | MB_ICONINFORMATION);
          return 0;
        }
        done_ = accepted_ = true;
        return 0;
      }
      if (id == IDCANCEL) {
        done_ = true;
        return 0;
      }
      Row* r = Find(id);
      if (!r || syncing_) return 0;
      bool changed = false;
      if (r->kind == Row::Kind::Number && code == EN_CHANGE) changed = true;
      if (r->kind == Row::Kind::Choice && code == CBN_SELCHANGE) changed = true;
      if (r->kind == Row::Kind::Check && code == BN_CLICKED) changed = true;
      if (r->kind == Row::Kind::Color && code == BN_CLICKED && ChooseColorDialog(hwnd, r->color)) {
        InvalidateRect(r->control, nullptr, FALSE);
        changed = true;
      }
      if (changed && onChange) onChange(*this, id);
      return 0;
    }
    case WM_DRAWITEM: {
      const auto& item = *reinterpret_cast<const DRAWITEMSTRUCT*>(lp);
      if (const Row* r = Find(static_cast<int>(item.CtlID)); r && r->kind == Row::Kind::Color) {
        RECT box = item.rcItem;
        DrawEdge(item.hDC, &box, (item.itemState & ODS_SELECTED) ? EDGE_SUNKEN : EDGE_RAISED, BF_RECT | BF_ADJUST);
        HBRUSH brush = CreateSolidBrush(RGB((r->color >> 16) & 255, (r->color >> 8) & 255, r->color & 255));
        FillRect(item.hDC, &box, brush);
        DeleteObject(brush);
        if (item.itemState & ODS_FOCUS) {
          InflateRect(&box, -2, -2);
          DrawFocusRect(item.hDC, &box);
        }
      } else {
        DrawPushButton(item, item.CtlID == IDOK);
      }
      return TRUE;
    }
    case DM_GETDEFID:
      return DefaultButtonAnswer(hwnd, IDOK);
    case WM_CTLCOLORDLG:
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLORBTN:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
      if (HBRUSH brush = DialogControlColor(msg, wp)) return reinterpret_cast<LRESULT>(brush);
      break;
    case WM_ERASEBKGND:
      if (DialogThemeDark()) {
        RECT client;
        GetClientRect(hwnd, &client);
        FillRect(reinterpret_cast<HDC>(wp), &client, DialogWindowBrush());
        return 1;
      }
      break;
    case WM_CLOSE:
      done_ = true;
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

bool FormDialog::Run(HWND owner, const std::wstring& defaultLabel) {
  static bool registered = false;
  if (!registered) {
    WNDCLASSEXW wc{sizeof wc};
    wc.lpfnWndProc = &FormDialog::Proc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    wc.lpszClassName = L"KZForm";
    RegisterClassExW(&wc);
    registered = true;
  }
  const UINT dpi = owner ? WindowDpi(owner) : SystemDpi();
  auto S = [dpi](int v) { return MulDiv(v, static_cast<int>(dpi), 96); };
  const int width = S(baseWidth_);
  RECT ownerRect{0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
  if (owner) GetWindowRect(owner, &ownerRect);
  window_ = CreateWindowExW(WS_EX_DLGMODALFRAME | WS_EX_CONTROLPARENT, L"KZForm", title_.c_str(),
                            WS_POPUP | WS_CAPTION | WS_SYSMENU, 0, 0, width, S(200), owner, nullptr,
                            GetModuleHandleW(nullptr), this);
  if (!window_) return false;
  font_ = CreateFontW(-S(12), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0, L"Segoe UI");
  auto control = [&](const wchar_t* cls, const std::wstring& text, DWORD style, int x, int y, int w, int h, int id) {
    HWND c = CreateWindowExW(std::wstring(cls) == L"Edit" ? WS_EX_CLIENTEDGE : 0, cls, text.c_str(),
                             WS_CHILD | WS_VISIBLE | style, x, y, w, h, window_,
                             reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr), nullptr);
    SendMessageW(c, WM_SETFONT, reinterpret_cast<WPARAM>(font_), TRUE);
    return c;
  };
  const int margin = S(14), labelWidth = S(150), fieldX = margin + labelWidth + S(8);
  int y = S(12);
  HWND firstField = nullptr;
  for (Row& r : rows_) {
    switch (r.kind) {
      case Row::Kind::Text: {
        // As many lines as the text needs at the dialog's width.
        HDC dc = GetDC(window_);
        HGDIOBJ old = SelectObject(dc, font_);
        RECT box{0, 0, width - 2 * margin, 0};
        DrawTextW(dc, r.label.c_str(), -1, &box, DT_CALCRECT | DT_WORDBREAK | DT_NOPREFIX);
        SelectObject(dc, old);
        ReleaseDC(window_, dc);
        r.labelWindow = control(L"Static", r.label, SS_LEFT | SS_NOPREFIX, margin, y, width - 2 * margin,
                                box.bottom + S(2), r.id);
        y += box.bottom + S(10);
        continue;
      }
      case Row::Kind::Number:
        r.labelWindow = control(L"Static", r.label, SS_LEFT, margin, y + S(3), labelWidth, S(20), -1);
        r.control = control(L"Edit", r.value, ES_AUTOHSCROLL | WS_TABSTOP, fieldX, y, S(96), S(24), r.id);
        break;
      case Row::Kind::Choice: {
        r.labelWindow = control(L"Static", r.label, SS_LEFT, margin, y + S(3), labelWidth, S(20), -1);
        r.control = control(L"ComboBox", L"", CBS_DROPDOWNLIST | WS_TABSTOP | WS_VSCROLL, fieldX, y,
                            width - fieldX - margin - S(16), S(240), r.id);
        for (const std::wstring& item : r.items)
          SendMessageW(r.control, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(item.c_str()));
        FitDroppedWidth(r.control);
        SendMessageW(r.control, CB_SETCURSEL, static_cast<WPARAM>(r.selected), 0);
        break;
      }
      case Row::Kind::Check:
        r.control = control(L"Button", r.label, BS_AUTOCHECKBOX | WS_TABSTOP, margin, y, width - 2 * margin - S(16),
                            S(24), r.id);
        SendMessageW(r.control, BM_SETCHECK, r.checked ? BST_CHECKED : BST_UNCHECKED, 0);
        break;
      case Row::Kind::Color:
        r.labelWindow = control(L"Static", r.label, SS_LEFT, margin, y + S(3), labelWidth, S(20), -1);
        r.control = control(L"Button", L"", BS_OWNERDRAW | WS_TABSTOP, fieldX, y, S(70), S(24), r.id);
        break;
    }
    if (!firstField) firstField = r.control;
    if (!r.enabled) Enable(r.id, false);
    y += S(30);
  }
  y += S(6);
  control(L"Button", defaultLabel, PushButtonStyle(true) | WS_TABSTOP, width - S(216), y, S(96), S(28), IDOK);
  control(L"Button", L"Cancel", PushButtonStyle(false) | WS_TABSTOP, width - S(112), y, S(96), S(28), IDCANCEL);
  RECT client;
  GetClientRect(window_, &client);
  RECT frame;
  GetWindowRect(window_, &frame);
  const int height = (frame.bottom - frame.top) - client.bottom + y + S(44);
  SetWindowPos(window_, nullptr, (ownerRect.left + ownerRect.right - width) / 2,
               (ownerRect.top + ownerRect.bottom - height) / 2, width, height, SWP_NOZORDER);
  ThemeDialog(window_);
  done_ = accepted_ = false;
  ModalWindow modal(window_, owner);
  modal.Run(done_, firstField);
  // Keep the values of the controls before they go.
  for (Row& r : rows_) {
    if (!r.control) continue;
    if (r.kind == Row::Kind::Number) r.value = WindowText(r.control);
    if (r.kind == Row::Kind::Choice) r.selected = Choice(r.id);
    if (r.kind == Row::Kind::Check) r.checked = Checked(r.id);
    r.control = r.labelWindow = nullptr;
  }
  modal.Close();
  window_ = nullptr;
  return accepted_;
}

}  // namespace tavora

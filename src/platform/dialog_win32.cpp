#include "platform/dialog_win32.h"

#include <commdlg.h>

#include <algorithm>
#include <cstring>

#include "platform/dpi_win32.h"
#include "platform/message_box_win32.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"

namespace tavora {
namespace {

constexpr WORD kFirstField = 100, kExtraButton = 99, kFirstBrowse = 300;
constexpr int kLabelWidth = 150, kFieldWidth = 150, kRowHeight = 18, kMargin = 7;
// Paths need room: a dialog with a Browse button has wider fields.
constexpr int kPathFieldWidth = 230, kBrowseWidth = 44;

// DLGTEMPLATE and DLGITEMTEMPLATE records are packed words, each item
// aligned to 4 bytes.
class TemplateBuilder {
 public:
  void Align() {
    while (bytes_.size() % 4) bytes_.push_back(0);
  }
  void Word(WORD w) {
    bytes_.push_back(static_cast<BYTE>(w));
    bytes_.push_back(static_cast<BYTE>(w >> 8));
  }
  void Dword(DWORD d) {
    Word(LOWORD(d));
    Word(HIWORD(d));
  }
  void Text(const std::wstring& s) {
    for (wchar_t c : s) Word(static_cast<WORD>(c));
    Word(0);
  }
  void Item(DWORD style, short x, short y, short cx, short cy, WORD id, WORD cls,
            const std::wstring& text) {
    Align();
    Dword(style | WS_CHILD | WS_VISIBLE);
    Dword(0);
    Word(static_cast<WORD>(x));
    Word(static_cast<WORD>(y));
    Word(static_cast<WORD>(cx));
    Word(static_cast<WORD>(cy));
    Word(id);
    Word(0xFFFF);
    Word(cls);
    Text(text);
    Word(0);  // no creation data
  }
  std::vector<BYTE>& Bytes() { return bytes_; }

 private:
  std::vector<BYTE> bytes_;
};

struct DialogContext {
  std::vector<DialogField>* fields;
  DialogValidator validate;
  const DialogExtraButton* extra;
  bool done = false;
  bool accepted = false;
};

void Finish(DialogContext& ctx, bool accepted) {
  ctx.accepted = accepted;
  ctx.done = true;
}

// A DLGPROC gives a message's value through DWLP_MSGRESULT.
INT_PTR Result(HWND dlg, LRESULT value) {
  SetWindowLongPtrW(dlg, DWLP_MSGRESULT, value);
  return TRUE;
}

std::wstring WindowText(HWND h) {
  std::wstring s(static_cast<std::size_t>(GetWindowTextLengthW(h)) + 1, L'\0');
  s.resize(static_cast<std::size_t>(GetWindowTextW(h, s.data(), static_cast<int>(s.size()))));
  return s;
}

// The file chooser of a Browse button, starting at the file already named.
void BrowseForFile(HWND dlg, HWND edit, const std::wstring& filter) {
  std::wstring name = WindowText(edit);
  std::wstring folder;
  if (const std::size_t slash = name.find_last_of(L"\\/"); slash != std::wstring::npos) folder = name.substr(0, slash);
  if (GetFileAttributesW(name.c_str()) == INVALID_FILE_ATTRIBUTES) name.clear();
  name.resize(32768, L'\0');
  std::wstring filters = filter;
  filters.push_back(L'\0');
  OPENFILENAMEW ofn{sizeof ofn};
  ofn.hwndOwner = dlg;
  ofn.lpstrFilter = filters.c_str();
  ofn.nFilterIndex = 1;
  ofn.lpstrFile = name.data();
  ofn.nMaxFile = static_cast<DWORD>(name.size());
  ofn.lpstrInitialDir = folder.empty() ? nullptr : folder.c_str();
  ofn.Flags = OFN_EXPLORER | OFN_FILEMUSTEXIST | OFN_PATHMUSTEXIST | OFN_HIDEREADONLY | OFN_NOCHANGEDIR;
  SystemModalWatch watch;
  if (GetOpenFileNameW(&ofn)) SetWindowTextW(edit, name.c_str());
}

INT_PTR CALLBACK DialogProc(HWND dlg, UINT msg, WPARAM wp, LPARAM lp) {
  auto* ctx = reinterpret_cast<DialogContext*>(GetWindowLongPtrW(dlg, DWLP_USER));
  switch (msg) {
    case WM_INITDIALOG: {
      SetWindowLongPtrW(dlg, DWLP_USER, lp);
      ctx = reinterpret_cast<DialogContext*>(lp);
      for (std::size_t i = 0; i < ctx->fields->size(); ++i) {
        const DialogField& f = (*ctx->fields)[i];
        HWND control = GetDlgItem(dlg, kFirstField + static_cast<int>(i));
        if (f.note) continue;
        if (f.choices.empty()) {
          SetWindowTextW(control, f.value.c_str());
          continue;
        }
        for (const std::wstring& c : f.choices)
          SendMessageW(control, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(c.c_str()));
        FitDroppedWidth(control);
        LRESULT chosen = SendMessageW(control, CB_FINDSTRINGEXACT, static_cast<WPARAM>(-1),
                                      reinterpret_cast<LPARAM>(f.value.c_str()));
        SendMessageW(control, CB_SETCURSEL, chosen == CB_ERR ? 0 : chosen, 0);
      }
      return TRUE;
    }
    case WM_COMMAND:
      if (LOWORD(wp) == IDOK) {
        std::vector<DialogField> edited = *ctx->fields;
        for (std::size_t i = 0; i < edited.size(); ++i)
          if (!edited[i].note) edited[i].value = WindowText(GetDlgItem(dlg, kFirstField + static_cast<int>(i)));
        if (ctx->validate) {
          const std::wstring problem = ctx->validate(edited);
          if (!problem.empty()) {
            ShowMessageBox(dlg, problem, L"Tavora", MB_OK | MB_ICONINFORMATION);
            return TRUE;
          }
        }
        *ctx->fields = std::move(edited);
        Finish(*ctx, true);
        return TRUE;
      }
      if (const std::size_t i = static_cast<std::size_t>(LOWORD(wp)) - kFirstBrowse;
          LOWORD(wp) >= kFirstBrowse && i < ctx->fields->size()) {
        BrowseForFile(dlg, GetDlgItem(dlg, kFirstField + static_cast<int>(i)), (*ctx->fields)[i].browseFilter);
        return TRUE;
      }
      if (LOWORD(wp) == kExtraButton && ctx->extra && ctx->extra->action) {
        if (ctx->extra->action(dlg)) Finish(*ctx, false);
        return TRUE;
      }
      if (LOWORD(wp) == IDCANCEL) {
        Finish(*ctx, false);
        return TRUE;
      }
      break;
    case WM_CLOSE:
      if (ctx) Finish(*ctx, false);
      return TRUE;
    case WM_DRAWITEM: {
      const auto& item = *reinterpret_cast<const DRAWITEMSTRUCT*>(lp);
      DrawPushButton(item, item.CtlID == IDOK);
      return TRUE;
    }
    case DM_GETDEFID:
      // The system's push buttons of the light theme keep the dialog
      // manager's own answer.
      if (!DialogThemeDark()) break;
      return Result(dlg, DefaultButtonAnswer(dlg, IDOK));
    case WM_CTLCOLORDLG:
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLORBTN:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
      return reinterpret_cast<INT_PTR>(DialogControlColor(msg, wp));
  }
  return FALSE;
}

}  // namespace

bool RunFieldDialog(HWND owner, const std::wstring& title, std::vector<DialogField>& fields,
                    DialogValidator validate, const DialogExtraButton* extra) {
  TemplateBuilder t;
  bool browsing = false;
  for (const DialogField& f : fields) browsing = browsing || !f.browseFilter.empty();
  const int fieldWidth = browsing ? kPathFieldWidth : kFieldWidth;
  const short width = static_cast<short>(kMargin * 2 + kLabelWidth + fieldWidth + 4);
  const short height =
      static_cast<short>(kMargin * 2 + kRowHeight * static_cast<int>(fields.size()) + 22);
  t.Dword(DS_MODALFRAME | DS_SETFONT | DS_CENTER | WS_POPUP | WS_CAPTION | WS_SYSMENU);
  t.Dword(0);
  // A note row is one control, any other row a label and its field.
  std::size_t items = 2 + (extra ? 1 : 0);
  for (const DialogField& f : fields) items += f.note ? 1 : f.browseFilter.empty() ? 2 : 3;
  t.Word(static_cast<WORD>(items));
  t.Word(0);
  t.Word(0);
  t.Word(static_cast<WORD>(width));
  t.Word(static_cast<WORD>(height));
  t.Word(0);  // no menu
  t.Word(0);  // the standard dialog class
  t.Text(title);
  t.Word(9);
  t.Text(L"Segoe UI");
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const short y = static_cast<short>(kMargin + kRowHeight * static_cast<int>(i));
    const WORD id = static_cast<WORD>(kFirstField + i);
    if (fields[i].note) {
      // The row still has an id so that reading the fields stays in step.
      t.Item(SS_LEFT, kMargin, y + 2, kLabelWidth + fieldWidth, 10, id, 0x0082, fields[i].label);
      continue;
    }
    t.Item(SS_LEFT, kMargin, y + 2, kLabelWidth, 10, 0xFFFF, 0x0082, fields[i].label);
    if (!fields[i].browseFilter.empty()) {
      const short editWidth = static_cast<short>(fieldWidth - kBrowseWidth - 4);
      t.Item(WS_BORDER | WS_TABSTOP | ES_AUTOHSCROLL, kMargin + kLabelWidth, y, editWidth, 13, id, 0x0081, L"");
      t.Item(PushButtonStyle(false) | WS_TABSTOP, static_cast<short>(kMargin + kLabelWidth + editWidth + 4), y,
             kBrowseWidth, 13, static_cast<WORD>(kFirstBrowse + i), 0x0080, L"Browse…");
    } else if (fields[i].choices.empty()) {
      t.Item(WS_BORDER | WS_TABSTOP | ES_AUTOHSCROLL, kMargin + kLabelWidth, y, static_cast<short>(fieldWidth), 13,
             id, 0x0081, L"");
    } else {
      t.Item(WS_TABSTOP | CBS_DROPDOWNLIST | WS_VSCROLL, kMargin + kLabelWidth, y, static_cast<short>(fieldWidth),
             80, id, 0x0085, L"");
    }
  }
  const short buttons = static_cast<short>(height - kMargin - 14);
  t.Item(PushButtonStyle(true) | WS_TABSTOP, width - kMargin - 100, buttons, 48, 14, IDOK, 0x0080, L"OK");
  t.Item(PushButtonStyle(false) | WS_TABSTOP, width - kMargin - 48, buttons, 48, 14, IDCANCEL, 0x0080,
         L"Cancel");
  if (extra)
    t.Item(PushButtonStyle(false) | WS_TABSTOP, kMargin, buttons, 90, 14, kExtraButton, 0x0080, extra->label);
  t.Align();
  DialogContext ctx{&fields, validate, extra};
  // Built hidden and run by the program's modal loop, as its other dialogs.
  HWND dialog = CreateDialogIndirectParamW(GetModuleHandleW(nullptr),
                                           reinterpret_cast<LPCDLGTEMPLATEW>(t.Bytes().data()), owner,
                                           DialogProc, reinterpret_cast<LPARAM>(&ctx));
  if (!dialog) return false;
  ThemeDialog(dialog);
  HWND focus = GetFocus();
  if (!IsChild(dialog, focus)) focus = GetNextDlgTabItem(dialog, nullptr, FALSE);
  ModalWindow(dialog, owner).Run(ctx.done, focus);
  return ctx.accepted;
}

bool ChooseColorDialog(HWND owner, uint32_t& color) {
  static COLORREF custom[16] = {};
  CHOOSECOLORW cc{};
  cc.lStructSize = sizeof cc;
  cc.hwndOwner = owner;
  cc.rgbResult = RGB((color >> 16) & 255, (color >> 8) & 255, color & 255);
  cc.lpCustColors = custom;
  cc.Flags = CC_RGBINIT | CC_FULLOPEN;
  SystemModalWatch watch;
  if (!ChooseColorW(&cc)) return false;
  color = 0xFF000000u | (uint32_t{GetRValue(cc.rgbResult)} << 16) |
          (uint32_t{GetGValue(cc.rgbResult)} << 8) | GetBValue(cc.rgbResult);
  return true;
}

HWND CreateControl(HWND parent, const wchar_t* cls, const std::wstring& text, DWORD style, int x, int y, int w, int h,
                   int id, HFONT font) {
  const DWORD ex = std::wstring(cls) == L"Edit" ? WS_EX_CLIENTEDGE : 0;
  HWND c = CreateWindowExW(ex, cls, text.c_str(), WS_CHILD | WS_VISIBLE | style, x, y, w, h, parent,
                           reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr), nullptr);
  SendMessageW(c, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
  return c;
}

void FitDroppedWidth(HWND combo) {
  if (!combo) return;
  HDC dc = GetDC(combo);
  HGDIOBJ old = SelectObject(dc, reinterpret_cast<HFONT>(SendMessageW(combo, WM_GETFONT, 0, 0)));
  int widest = 0;
  const LRESULT count = SendMessageW(combo, CB_GETCOUNT, 0, 0);
  for (LRESULT i = 0; i < count; ++i) {
    const LRESULT length = SendMessageW(combo, CB_GETLBTEXTLEN, static_cast<WPARAM>(i), 0);
    if (length <= 0) continue;
    std::wstring text(static_cast<std::size_t>(length) + 1, L'\0');
    SendMessageW(combo, CB_GETLBTEXT, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(text.data()));
    SIZE size{};
    GetTextExtentPoint32W(dc, text.c_str(), static_cast<int>(length), &size);
    widest = std::max(widest, static_cast<int>(size.cx));
  }
  SelectObject(dc, old);
  ReleaseDC(combo, dc);
  RECT box;
  GetWindowRect(combo, &box);
  // Room for the list's scroll bar and the item margins.
  const int extra = GetSystemMetrics(SM_CXVSCROLL) + MulDiv(10, static_cast<int>(WindowDpi(combo)), 96);
  SendMessageW(combo, CB_SETDROPPEDWIDTH, static_cast<WPARAM>(std::max<int>(box.right - box.left, widest + extra)), 0);
}

LRESULT AnswerGetText(const std::wstring& text, WPARAM size, LPARAM buffer) {
  if (size == 0) return 0;
  const std::size_t n = std::min<std::size_t>(text.size(), size - 1);
  auto* out = reinterpret_cast<wchar_t*>(buffer);
  std::copy_n(text.c_str(), n, out);
  out[n] = L'\0';
  return static_cast<LRESULT>(n);
}

}  // namespace tavora

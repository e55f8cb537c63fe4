// "KZDlg": rows of labelled values (with sliders where the table asks for
// them), the option, the choice and "Live preview"; previews run on timer 77.
#include <windows.h>
#include <commctrl.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "base/memory.h"
#include "base/settings_store.h"
#include "document/composite.h"
#include "platform/dialog_win32.h"
#include "platform/dpi_win32.h"
#include "platform/message_box_win32.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"
#include "processing/adjustments.h"
#include "processing/effect_dialog.h"

namespace tavora {
namespace {

constexpr UINT_PTR kPreviewTimer = 77;
constexpr int kRowId = 100, kSliderId = 200, kColor1Id = 20, kColor2Id = 21, kChoiceId = 22,
              kPanelColorsId = 23, kSwapColorsId = 24, kPreviewId = 50, kOptionId = 51;

struct DialogState {
  Document* doc = nullptr;
  const EffectDef* def = nullptr;
  Rect target, work;
  std::unique_ptr<uint32_t[], FreeDeleter> saved;  // the work rectangle as it was
  bool previewShown = false;
  bool syncing = false;
  bool done = false, applied = false;
  HWND window = nullptr;
  std::vector<HWND> edits, sliders;
  HWND choice = nullptr, option = nullptr, preview = nullptr;
  HWND focus = nullptr;  // the control with the focus when the dialog was last active
  bool hasColors = false;
  uint32_t colors[2] = {0xFF000000, 0xFFFFFFFF};
  uint32_t panel[2] = {0xFF000000, 0xFFFFFFFF};  // the colour boxes' primary and secondary
  HWND colorButtons[2] = {nullptr, nullptr};
};
DialogState* g_dialog = nullptr;  // one effect dialog at a time

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

std::wstring Format(double v, uint32_t decimals) {
  wchar_t text[64];
  swprintf(text, 64, L"%.*f", static_cast<int>(decimals), v);
  return text;
}

// The values on screen. A row whose text is not a number in its range
// (empty, "nan", out of range) is named in `badRow` and keeps its default.
EffectValues ReadValues(const DialogState& d, int* badRow = nullptr) {
  EffectValues v;
  if (badRow) *badRow = -1;
  for (std::size_t i = 0; i < d.def->rows.size(); ++i) {
    const ParamRow& row = d.def->rows[i];
    wchar_t text[64] = {};
    GetWindowTextW(d.edits[i], text, 64);
    const std::wstring_view typed(text);
    const auto value = ParseTypedValue(std::u16string(typed.begin(), typed.end()), row);
    if (!value && badRow && *badRow < 0) *badRow = static_cast<int>(i);
    v.rows.push_back(value.value_or(row.fallback));
  }
  v.option = d.option && SendMessageW(d.option, BM_GETCHECK, 0, 0) == BST_CHECKED;
  v.choice = d.choice ? static_cast<int32_t>(SendMessageW(d.choice, CB_GETCURSEL, 0, 0)) : 0;
  if (v.choice < 0) v.choice = 0;
  v.color1 = d.colors[0];
  v.color2 = d.colors[1];
  return v;
}

void WriteRegion(DialogState& d, const uint32_t* work, bool redraw) {
  Surface& pixels = ActiveLayer(d.doc)->pixels;
  const int32_t ww = d.work.Width();
  for (int32_t y = d.target.y0; y < d.target.y1; ++y) {
    uint32_t* row = pixels.Row(y);
    const uint32_t* src = work + std::size_t(y - d.work.y0) * ww - d.work.x0;
    const uint32_t* before = d.saved.get() + std::size_t(y - d.work.y0) * ww - d.work.x0;
    const uint8_t* mask = d.doc->selection ? d.doc->selection->Row(y) : nullptr;
    for (int32_t x = d.target.x0; x < d.target.x1; ++x) {
      const uint32_t cover = mask ? mask[x] : 255;
      row[x] = cover == 255 ? src[x] : cover == 0 ? before[x] : LerpPixel(before[x], src[x], cover);
    }
  }
  if (redraw) Invalidate(*d.doc, d.doc->active, d.target);
}

void RestoreSaved(DialogState& d, bool redraw) {
  if (!d.previewShown) return;
  WriteRegion(d, d.saved.get(), redraw);  // coverage of the saved pixels is the pixels themselves
  d.previewShown = false;
}

void Preview(DialogState& d) {
  const bool live = SendMessageW(d.preview, BM_GETCHECK, 0, 0) == BST_CHECKED;
  if (!live) {
    RestoreSaved(d, true);
    return;
  }
  int bad = -1;
  const EffectValues values = ReadValues(d, &bad);
  if (bad >= 0) return;  // half-typed: the last preview stays until the value is whole
  const std::size_t n = std::size_t(d.work.Width()) * std::size_t(d.work.Height());
  std::unique_ptr<uint32_t[], FreeDeleter> copy(static_cast<uint32_t*>(CheckedAlloc(n * 4)));
  std::memcpy(copy.get(), d.saved.get(), n * 4);
  alignas(8) unsigned char block[64] = {};
  d.def->packer(values, block);
  HCURSOR old = SetCursor(LoadCursorW(nullptr, IDC_WAIT));
  d.def->operation(copy.get(), d.work.Width(), d.work.Height(), block);
  SetCursor(old);
  WriteRegion(d, copy.get(), true);
  d.previewShown = true;
}

void Restart(DialogState& d, UINT ms) { SetTimer(d.window, kPreviewTimer, ms, nullptr); }

void Remember(const DialogState& d, const EffectValues& v) {
  const std::u16string section = RememberSection(*d.def);
  std::vector<std::pair<std::u16string, std::u16string>> values;
  auto key = [](int n) {
    const std::string s = "c" + std::to_string(n);
    return std::u16string(s.begin(), s.end());
  };
  for (std::size_t i = 0; i < v.rows.size(); ++i) values.emplace_back(key(int(i) + 1), FormatNumber(v.rows[i]));
  const bool live = SendMessageW(d.preview, BM_GETCHECK, 0, 0) == BST_CHECKED;
  values.emplace_back(key(kPreviewId), live ? u"1" : u"0");
  if (d.option) values.emplace_back(key(kOptionId), v.option ? u"1" : u"0");
  if (d.choice) values.emplace_back(key(kChoiceId), FormatNumber(v.choice));
  if (d.hasColors) {
    values.emplace_back(key(kColor1Id), FormatColor(v.color1));
    values.emplace_back(key(kColor2Id), FormatColor(v.color2));
  }
  AppSettings().SetStrings(section, values);
}

void ColorsChanged(DialogState& d) {
  for (HWND b : d.colorButtons) InvalidateRect(b, nullptr, FALSE);
  Restart(d, 90);
}

void ChooseColorOf(DialogState& d, int index) {
  if (ChooseColorDialog(d.window, d.colors[index])) ColorsChanged(d);
}

// A colour button is its colour in a frame, with the focus shown inside.
void DrawColorButton(const DialogState& d, const DRAWITEMSTRUCT& item) {
  const int index = item.CtlID == kColor1Id ? 0 : 1;
  const uint32_t c = d.colors[index];
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
    case WM_HSCROLL: {
      const auto it = std::find(d->sliders.begin(), d->sliders.end(), reinterpret_cast<HWND>(lp));
      if (it == d->sliders.end() || !*it) return 0;
      const std::size_t i = static_cast<std::size_t>(it - d->sliders.begin());
      const ParamRow& row = d->def->rows[i];
      const int32_t pos = static_cast<int32_t>(SendMessageW(*it, TBM_GETPOS, 0, 0));
      d->syncing = true;
      SetWindowTextW(d->edits[i], Format(RoundToDecimals(SliderValue(row, pos), row.decimals), row.decimals).c_str());
      d->syncing = false;
      Restart(*d, 90);
      return 0;
    }
    case WM_COMMAND: {
      const int id = LOWORD(wp);
      if (id == IDOK) {
        int bad = -1;
        ReadValues(*d, &bad);
        if (bad >= 0) {
          const ParamRow& row = d->def->rows[static_cast<std::size_t>(bad)];
          const std::u16string message = RangeMessage(row.minimum, row.maximum);
          ShowMessageBox(hwnd, Wide(message), L"Tavora", MB_OK | MB_ICONINFORMATION);
          SetFocus(d->edits[static_cast<std::size_t>(bad)]);
          SendMessageW(d->edits[static_cast<std::size_t>(bad)], EM_SETSEL, 0, -1);
          return 0;
        }
        d->done = d->applied = true;
        return 0;
      }
      if (id == IDCANCEL) {
        d->done = true;
        return 0;
      }
      if (id == kPreviewId) {
        Restart(*d, 1);
        return 0;
      }
      if ((id == kColor1Id || id == kColor2Id) && HIWORD(wp) == BN_CLICKED) {
        ChooseColorOf(*d, id == kColor1Id ? 0 : 1);
        return 0;
      }
      if (id == kPanelColorsId && HIWORD(wp) == BN_CLICKED) {
        d->colors[0] = d->panel[0];
        d->colors[1] = d->panel[1];
        ColorsChanged(*d);
        return 0;
      }
      if (id == kSwapColorsId && HIWORD(wp) == BN_CLICKED) {
        std::swap(d->colors[0], d->colors[1]);
        ColorsChanged(*d);
        return 0;
      }
      if (id >= kRowId && id < kRowId + 6 && HIWORD(wp) == EN_CHANGE && !d->syncing) {
        const std::size_t i = static_cast<std::size_t>(id - kRowId);
        wchar_t text[64] = {};
        GetWindowTextW(d->edits[i], text, 64);
        const std::wstring_view typed(text);
        const auto value = ParseTypedValue(std::u16string(typed.begin(), typed.end()), d->def->rows[i]);
        if (d->sliders[i] && value)
          SendMessageW(d->sliders[i], TBM_SETPOS, TRUE, SliderPosition(d->def->rows[i], *value));
        Restart(*d, 90);
        return 0;
      }
      if ((id == kOptionId && HIWORD(wp) == BN_CLICKED) || (id == kChoiceId && HIWORD(wp) == CBN_SELCHANGE))
        Restart(*d, 90);
      return 0;
    }
    case WM_DRAWITEM: {
      const auto& item = *reinterpret_cast<const DRAWITEMSTRUCT*>(lp);
      if (item.CtlID == kColor1Id || item.CtlID == kColor2Id) DrawColorButton(*d, item);
      else DrawPushButton(item, item.CtlID == IDOK);
      return TRUE;
    }
    case DM_GETDEFID:
      return DefaultButtonAnswer(hwnd, IDOK);
    case WM_ACTIVATE:
      // As a dialog does: the focus goes back to the control that had it.
      if (LOWORD(wp) == WA_INACTIVE) {
        if (IsChild(hwnd, GetFocus())) d->focus = GetFocus();
      } else if (d->focus && IsWindow(d->focus)) {
        SetFocus(d->focus);
        return 0;
      }
      break;
    case WM_NOTIFY:
      return DrawSliderPart(*reinterpret_cast<const NMHDR*>(lp));
    case WM_ERASEBKGND: {
      RECT r;
      GetClientRect(hwnd, &r);
      HBRUSH back = DialogThemeDark() ? DialogWindowBrush() : GetSysColorBrush(COLOR_BTNFACE);
      FillRect(reinterpret_cast<HDC>(wp), &r, back);
      return 1;
    }
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLORBTN:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
      if (HBRUSH brush = DialogControlColor(msg, wp)) return reinterpret_cast<LRESULT>(brush);
      break;
    case WM_CLOSE:
      d->done = true;
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

HWND Control(HWND parent, const wchar_t* cls, const std::wstring& text, DWORD style, int x, int y,
             int w, int h, int id, HFONT font) {
  HWND c = CreateWindowExW(cls == std::wstring(L"Edit") ? WS_EX_CLIENTEDGE : 0, cls, text.c_str(),
                           WS_CHILD | WS_VISIBLE | style, x, y, w, h, parent,
                           reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr), nullptr);
  SendMessageW(c, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
  return c;
}

}  // namespace

bool RunEffectDialog(HWND owner, Document& doc, const EffectDef& def, uint32_t primary,
                     uint32_t secondary) {
  if (!def.operation || g_dialog) return false;
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return false;
  DialogState d;
  d.doc = &doc;
  d.def = &def;
  d.hasColors = !def.color1Label.empty();
  d.panel[0] = primary | 0xFF000000u;
  d.panel[1] = secondary | 0xFF000000u;
  const Rect layerRect{0, 0, layer->Width(), layer->Height()};
  d.target = Intersect(doc.selection ? doc.selectionBounds : doc.Bounds(), layerRect);
  if (d.target.Empty()) return false;
  // Room for every value the preview may try.
  const int32_t m = EffectDialogMargin(def, def.rows.empty() ? 0 : def.rows[0].maximum);
  d.work = Intersect({d.target.x0 - m, d.target.y0 - m, d.target.x1 + m, d.target.y1 + m}, layerRect);
  const int32_t ww = d.work.Width(), wh = d.work.Height();
  d.saved.reset(static_cast<uint32_t*>(CheckedAlloc(std::size_t(ww) * std::size_t(wh) * 4)));
  for (int32_t y = 0; y < wh; ++y)
    std::memcpy(d.saved.get() + std::size_t(y) * ww, layer->pixels.Row(d.work.y0 + y) + d.work.x0,
                std::size_t(ww) * 4);

  static bool registered = false;
  if (!registered) {
    INITCOMMONCONTROLSEX icc{sizeof icc, ICC_BAR_CLASSES};
    InitCommonControlsEx(&icc);
    WNDCLASSEXW wc{sizeof wc};
    wc.lpfnWndProc = DialogProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    wc.lpszClassName = L"KZDlg";
    RegisterClassExW(&wc);
    registered = true;
  }
  const UINT dpi = WindowDpi(owner);
  auto S = [dpi](int v) { return MulDiv(v, static_cast<int>(dpi), 96); };
  const int rows = static_cast<int>(def.rows.size()) + (def.choices.empty() ? 0 : 1) +
                   (def.optionLabel.empty() ? 0 : 1) + (d.hasColors ? 2 : 0);
  const int width = S(440), height = S(130) + S(30) * rows;
  RECT ownerRect;
  GetWindowRect(owner, &ownerRect);
  g_dialog = &d;
  d.window = CreateWindowExW(WS_EX_DLGMODALFRAME, L"KZDlg", Wide(def.title).c_str(),
                             WS_POPUP | WS_CAPTION | WS_SYSMENU,
                             (ownerRect.left + ownerRect.right - width) / 2,
                             (ownerRect.top + ownerRect.bottom - height) / 2, width, height, owner,
                             nullptr, GetModuleHandleW(nullptr), nullptr);
  HFONT font = CreateFontW(-S(12), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0,
                           CLEARTYPE_QUALITY, 0, L"Segoe UI");
  // Remembered values, each checked against its row.
  const std::u16string section = RememberSection(def);
  auto key = [](int n) {
    const std::string s = "c" + std::to_string(n);
    return std::u16string(s.begin(), s.end());
  };
  int y = S(14);
  for (std::size_t i = 0; i < def.rows.size(); ++i) {
    const ParamRow& row = def.rows[i];
    const double value =
        ParseRemembered(AppSettings().GetString(section, key(int(i) + 1)), row).value_or(row.fallback);
    Control(d.window, L"Static", Wide(row.label), SS_LEFT, S(14), y + S(3), S(140), S(20), -1, font);
    d.edits.push_back(Control(d.window, L"Edit", Format(value, row.decimals), ES_AUTOHSCROLL | WS_TABSTOP,
                              S(158), y, S(70), S(24), kRowId + static_cast<int>(i), font));
    HWND slider = nullptr;
    if (row.kind != RowKind::Edit) {
      slider = Control(d.window, TRACKBAR_CLASSW, L"", TBS_HORZ | TBS_NOTICKS | WS_TABSTOP, S(236), y,
                       S(190), S(26), kSliderId + static_cast<int>(i), font);
      SendMessageW(slider, TBM_SETRANGEMIN, FALSE, 0);
      SendMessageW(slider, TBM_SETRANGEMAX, FALSE, SliderSteps(row));
      SendMessageW(slider, TBM_SETPAGESIZE, 0, SliderSteps(row) / 20);
      SendMessageW(slider, TBM_SETLINESIZE, 0, 1);
      SendMessageW(slider, TBM_SETPOS, TRUE, SliderPosition(row, value));
    }
    d.sliders.push_back(slider);
    y += S(30);
  }
  if (d.hasColors) {
    // Remembered colours, else the colour boxes' primary and secondary.
    for (int i = 0; i < 2; ++i) {
      d.colors[i] = ParseRememberedColor(AppSettings().GetString(section, key(kColor1Id + i))).value_or(d.panel[i]);
      const int x = i == 0 ? S(14) : S(236);
      Control(d.window, L"Static", Wide(i == 0 ? def.color1Label : def.color2Label), SS_LEFT, x, y + S(3),
              S(80), S(20), -1, font);
      d.colorButtons[i] = Control(d.window, L"Button", L"", BS_OWNERDRAW | WS_TABSTOP, x + S(84), y,
                                  S(70), S(24), kColor1Id + i, font);
    }
    y += S(30);
    Control(d.window, L"Button", L"Use primary && secondary", PushButtonStyle(false) | WS_TABSTOP, S(14), y,
            S(200), S(26), kPanelColorsId, font);
    Control(d.window, L"Button", L"Swap colors", PushButtonStyle(false) | WS_TABSTOP, S(236), y, S(154), S(26),
            kSwapColorsId, font);
    y += S(30);
  }
  if (!def.choices.empty()) {
    Control(d.window, L"Static", Wide(def.choiceLabel), SS_LEFT, S(14), y + S(3), S(140), S(20), -1, font);
    d.choice = Control(d.window, L"ComboBox", L"", CBS_DROPDOWNLIST | WS_TABSTOP | WS_VSCROLL, S(158), y,
                       S(150), S(200), kChoiceId, font);
    for (auto c : def.choices) SendMessageW(d.choice, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(Wide(c).c_str()));
    const int32_t last = static_cast<int32_t>(def.choices.size()) - 1;
    SendMessageW(d.choice, CB_SETCURSEL,
                 ParseRememberedIndex(AppSettings().GetString(section, key(kChoiceId)), last).value_or(0), 0);
    y += S(30);
  }
  if (!def.optionLabel.empty()) {
    d.option = Control(d.window, L"Button", Wide(def.optionLabel), BS_AUTOCHECKBOX | WS_TABSTOP, S(14), y,
                       S(400), S(24), kOptionId, font);
    const int32_t stored = ParseRememberedIndex(AppSettings().GetString(section, key(kOptionId)), 1).value_or(0);
    SendMessageW(d.option, BM_SETCHECK, stored == 1 ? BST_CHECKED : BST_UNCHECKED, 0);
    y += S(30);
  }
  d.preview = Control(d.window, L"Button", L"Live preview", BS_AUTOCHECKBOX | WS_TABSTOP, S(14), y + S(6),
                      S(200), S(24), kPreviewId, font);
  const bool live = ParseRememberedIndex(AppSettings().GetString(section, key(kPreviewId)), 1)
                        .value_or(def.livePreview ? 1 : 0) == 1;
  SendMessageW(d.preview, BM_SETCHECK, live ? BST_CHECKED : BST_UNCHECKED, 0);
  Control(d.window, L"Button", L"Apply", PushButtonStyle(true) | WS_TABSTOP, width - S(200), y + S(4), S(88),
          S(28), IDOK, font);
  Control(d.window, L"Button", L"Cancel", PushButtonStyle(false) | WS_TABSTOP, width - S(104), y + S(4), S(88),
          S(28), IDCANCEL, font);
  RECT client;
  GetClientRect(d.window, &client);
  const int extra = (y + S(48)) - client.bottom;
  SetWindowPos(d.window, nullptr, 0, 0, width, height + extra, SWP_NOMOVE | SWP_NOZORDER);
  ThemeDialog(d.window);
  if (live) Restart(d, 10);

  {
    // Modal: the owner is disabled until the dialog ends.
    ModalWindow modal(d.window, owner);
    // The first value is ready to be typed over.
    d.focus = d.edits.empty() ? GetDlgItem(d.window, IDOK) : d.edits[0];
    if (!d.edits.empty()) SendMessageW(d.focus, EM_SETSEL, 0, -1);
    modal.Run(d.done, d.focus);
    KillTimer(d.window, kPreviewTimer);
    const EffectValues values = ReadValues(d);
    if (d.applied) {
      Remember(d, values);
      RestoreSaved(d, false);
      alignas(8) unsigned char block[64] = {};
      def.packer(values, block);
      ApplyToSelection(doc, def.historyName, def.operation, block,
                       EffectDialogMargin(def, values.rows.empty() ? 0 : values.rows[0]));
    } else {
      RestoreSaved(d, true);
    }
  }
  DeleteObject(font);
  g_dialog = nullptr;
  return d.applied;
}

}  // namespace tavora

namespace tavora {
namespace {

ParamRow g_promptRow{};  // the prompt's one row, for its check

std::optional<double> PromptTyped(const std::vector<DialogField>& fields) {
  const std::wstring& typed = fields[0].value;
  return ParseTypedValue(std::u16string(typed.begin(), typed.end()), g_promptRow);
}

std::wstring PromptProblem(const std::vector<DialogField>& fields) {
  if (PromptTyped(fields)) return {};
  return Wide(RangeMessage(g_promptRow.minimum, g_promptRow.maximum));
}

}  // namespace

bool PromptValue(HWND owner, std::u16string_view title, std::u16string_view label, double& value,
                 double minimum, double maximum, uint32_t decimals, bool remember) {
  const std::u16string section = u"Dlg " + std::u16string(title);
  double start = value;
  if (remember) {
    const ParamRow row{label, minimum, maximum, value, decimals, RowKind::Edit};
    start = ParseRemembered(AppSettings().GetString(section, u"c1"), row).value_or(value);
  }
  const std::u16string hint = RangeHint(minimum, maximum);
  std::vector<DialogField> fields{{Wide(label), Format(start, decimals), {}},
                                  {Wide(hint), L"", {}, true}};
  g_promptRow = {label, minimum, maximum, value, decimals, RowKind::Edit};
  if (!RunFieldDialog(owner, Wide(title), fields, &PromptProblem)) return false;
  value = *PromptTyped(fields);
  if (remember) AppSettings().SetString(section, u"c1", FormatNumber(value));
  return true;
}

}  // namespace tavora

// "KZEffectsDlg": Properties and Effects. The layer's own values at the
// top, the eight effects in a list with check boxes at the left, the
// chosen effect's values at the right; every change previews on timer 1.
#include "panels/layer_effects_dialog_window.h"

#include <commctrl.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/settings_store.h"
#include "document/blend.h"
#include "document/effect_params.h"
#include "document/effect_session.h"
#include "platform/dialog_win32.h"
#include "platform/dpi_win32.h"
#include "platform/message_box_win32.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"
#include "processing/effect_dialogs.h"

namespace tavora {
namespace {

constexpr UINT_PTR kPreviewTimer = 1;
constexpr UINT kPreviewDelay = 30;  // ms: a slider drag previews as fast as it renders
constexpr int kListId = 300, kNameId = 310, kOpacityEditId = 311, kOpacitySliderId = 312, kBlendId = 313,
              kVisibleId = 314, kShowEffectsId = 315, kTitleId = 316;
// The controls of parameter i are kParamBase + 4 i + part.
constexpr int kParamBase = 1000;
enum Part { kLabelPart = 0, kFieldPart = 1, kSliderPart = 2, kUnitPart = 3 };

struct ParamControls {
  HWND label = nullptr, field = nullptr, slider = nullptr, unit = nullptr;
};

struct DialogState {
  Document* doc = nullptr;
  std::unique_ptr<LayerPropertiesSession> session;
  LayerProperties values;
  void (*redraw)(void*) = nullptr;
  void* context = nullptr;
  HWND window = nullptr, list = nullptr, name = nullptr, opacityEdit = nullptr, opacitySlider = nullptr,
       blend = nullptr, visible = nullptr, showEffects = nullptr, title = nullptr;
  std::vector<ParamControls> params;  // by index into EffectParams()
  int32_t page = 0;
  bool syncing = false;  // the dialog is setting a control itself
  bool building = true;
  bool done = false, accepted = false;
};
DialogState* g_dialog = nullptr;  // one at a time

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }
std::u16string Narrow(std::wstring_view s) { return std::u16string(s.begin(), s.end()); }

std::wstring WindowText(HWND h) {
  std::wstring s(static_cast<std::size_t>(GetWindowTextLengthW(h)) + 1, L'\0');
  s.resize(static_cast<std::size_t>(GetWindowTextW(h, s.data(), static_cast<int>(s.size()))));
  return s;
}

ParamRow RowOf(const EffectParam& p) {
  return {p.label, double(p.minimum), double(p.maximum), double(p.fallback), 0, RowKind::Edit};
}

// The whole number typed into an edit, when it is one within the range.
std::optional<int32_t> Typed(HWND edit, const ParamRow& row) {
  const auto v = ParseTypedValue(Narrow(WindowText(edit)), row);
  if (!v) return std::nullopt;
  return static_cast<int32_t>(*v);
}

void SetNumber(DialogState& d, HWND edit, int32_t value) {
  d.syncing = true;
  SetWindowTextW(edit, std::to_wstring(value).c_str());
  d.syncing = false;
}

void SetSlider(HWND slider, int32_t value) {
  if (slider) SendMessageW(slider, TBM_SETPOS, TRUE, value);
}

void Schedule(DialogState& d) {
  if (!d.building) SetTimer(d.window, kPreviewTimer, kPreviewDelay, nullptr);
}

void ShowPreview(DialogState& d) {
  d.session->Preview(d.values);
  if (d.redraw) d.redraw(d.context);
}

// Only the chosen effect's values show.
void ShowPage(DialogState& d, int32_t page) {
  d.page = std::clamp(page, 0, kEffectGroupCount - 1);
  const auto params = EffectParams();
  for (std::size_t i = 0; i < params.size(); ++i) {
    const int show = params[i].group == d.page && !IsEffectSwitch(params[i]) ? SW_SHOW : SW_HIDE;
    for (HWND h : {d.params[i].label, d.params[i].field, d.params[i].slider, d.params[i].unit})
      if (h) ShowWindow(h, show);
  }
  SetWindowTextW(d.title, Wide(EffectGroupAt(d.page).title).c_str());
}

// A colour button is its colour in a frame, with the focus shown inside.
void DrawColorButton(const DRAWITEMSTRUCT& item, uint32_t c) {
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

// The parameter whose control has this id, and which part it is.
const EffectParam* ParamOf(int id, std::size_t& index, int& part) {
  if (id < kParamBase) return nullptr;
  index = static_cast<std::size_t>((id - kParamBase) / 4);
  part = (id - kParamBase) % 4;
  const auto params = EffectParams();
  return index < params.size() ? &params[index] : nullptr;
}

void Refuse(DialogState& d, HWND field, const std::wstring& message) {
  ShowMessageBox(d.window, message, L"Tavora", MB_OK | MB_ICONINFORMATION);
  SetFocus(field);
  SendMessageW(field, EM_SETSEL, 0, -1);
}

// OK: every typed value must be whole and in range, and the name not empty.
bool CheckFields(DialogState& d) {
  if (WindowText(d.name).empty()) {
    Refuse(d, d.name, L"Enter a name for the layer.");
    return false;
  }
  if (!Typed(d.opacityEdit, ParamRow{u"", 0, 255, 255, 0, RowKind::Edit})) {
    Refuse(d, d.opacityEdit, Wide(RangeMessage(0, 255)));
    return false;
  }
  const auto params = EffectParams();
  for (std::size_t i = 0; i < params.size(); ++i) {
    if (params[i].type != ParamType::Number || Typed(d.params[i].field, RowOf(params[i]))) continue;
    ShowPage(d, params[i].group);
    ListView_SetItemState(d.list, params[i].group, LVIS_SELECTED | LVIS_FOCUSED, LVIS_SELECTED | LVIS_FOCUSED);
    Refuse(d, d.params[i].field, Wide(RangeMessage(params[i].minimum, params[i].maximum)));
    return false;
  }
  return true;
}

void OnParamCommand(DialogState& d, const EffectParam& p, std::size_t index, int part, WORD code) {
  ParamControls& c = d.params[index];
  if (part != kFieldPart) return;
  switch (p.type) {
    case ParamType::Number:
      if (code == EN_CHANGE && !d.syncing) {
        if (const auto v = Typed(c.field, RowOf(p))) {
          p.set(d.values.effects, *v);
          SetSlider(c.slider, *v);
          Schedule(d);
        }
      }
      break;
    case ParamType::Color:
      if (code == BN_CLICKED) {
        uint32_t color = static_cast<uint32_t>(p.get(d.values.effects));
        if (ChooseColorDialog(d.window, color)) {
          p.set(d.values.effects, static_cast<int32_t>(color & 0xFFFFFFu));
          InvalidateRect(c.field, nullptr, FALSE);
          Schedule(d);
        }
      }
      break;
    case ParamType::Choice:
      if (code == CBN_SELCHANGE) {
        p.set(d.values.effects, static_cast<int32_t>(SendMessageW(c.field, CB_GETCURSEL, 0, 0)));
        Schedule(d);
      }
      break;
    case ParamType::Switch:
      if (code == BN_CLICKED) {
        p.set(d.values.effects, SendMessageW(c.field, BM_GETCHECK, 0, 0) == BST_CHECKED);
        Schedule(d);
      }
      break;
  }
}

LRESULT OnNotify(DialogState& d, const NMHDR& header) {
  if (header.idFrom != kListId) return DrawSliderPart(header);
  if (header.code != LVN_ITEMCHANGED || d.building) return 0;
  const auto& change = reinterpret_cast<const NMLISTVIEW&>(header);
  if (!(change.uChanged & LVIF_STATE) || change.iItem < 0 || change.iItem >= kEffectGroupCount) return 0;
  if ((change.uNewState ^ change.uOldState) & LVIS_STATEIMAGEMASK) {
    SetEffectOn(d.values.effects, change.iItem, ListView_GetCheckState(d.list, change.iItem) != 0);
    Schedule(d);
  }
  if ((change.uNewState & LVIS_SELECTED) && !(change.uOldState & LVIS_SELECTED)) ShowPage(d, change.iItem);
  return 0;
}

LRESULT CALLBACK DialogProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  DialogState* d = g_dialog;
  if (!d) return DefWindowProcW(hwnd, msg, wp, lp);
  switch (msg) {
    case WM_TIMER:
      if (wp == kPreviewTimer) {
        KillTimer(hwnd, kPreviewTimer);
        ShowPreview(*d);
      }
      return 0;
    case WM_HSCROLL: {
      HWND slider = reinterpret_cast<HWND>(lp);
      const int32_t pos = static_cast<int32_t>(SendMessageW(slider, TBM_GETPOS, 0, 0));
      if (slider == d->opacitySlider) {
        d->values.opacity = pos;
        SetNumber(*d, d->opacityEdit, pos);
        Schedule(*d);
        return 0;
      }
      std::size_t index = 0;
      int part = 0;
      if (const EffectParam* p = ParamOf(GetDlgCtrlID(slider), index, part); p && part == kSliderPart) {
        p->set(d->values.effects, pos);
        SetNumber(*d, d->params[index].field, pos);
        Schedule(*d);
      }
      return 0;
    }
    case WM_COMMAND: {
      const int id = LOWORD(wp);
      const WORD code = HIWORD(wp);
      if (id == IDOK) {
        if (CheckFields(*d)) d->done = d->accepted = true;
        return 0;
      }
      if (id == IDCANCEL) {
        d->done = true;
        return 0;
      }
      if (id == kNameId && code == EN_CHANGE) {
        d->values.name = Narrow(WindowText(d->name));
        Schedule(*d);
      } else if (id == kOpacityEditId && code == EN_CHANGE && !d->syncing) {
        if (const auto v = Typed(d->opacityEdit, ParamRow{u"", 0, 255, 255, 0, RowKind::Edit})) {
          d->values.opacity = *v;
          SetSlider(d->opacitySlider, *v);
          Schedule(*d);
        }
      } else if (id == kBlendId && code == CBN_SELCHANGE) {
        d->values.blendMode = static_cast<int32_t>(SendMessageW(d->blend, CB_GETCURSEL, 0, 0));
        Schedule(*d);
      } else if (id == kVisibleId && code == BN_CLICKED) {
        d->values.visible = SendMessageW(d->visible, BM_GETCHECK, 0, 0) == BST_CHECKED;
        Schedule(*d);
      } else if (id == kShowEffectsId && code == BN_CLICKED) {
        d->values.effectsHidden = SendMessageW(d->showEffects, BM_GETCHECK, 0, 0) != BST_CHECKED;
        Schedule(*d);
      } else {
        std::size_t index = 0;
        int part = 0;
        if (const EffectParam* p = ParamOf(id, index, part)) OnParamCommand(*d, *p, index, part, code);
      }
      return 0;
    }
    case WM_NOTIFY:
      return OnNotify(*d, *reinterpret_cast<const NMHDR*>(lp));
    case WM_DRAWITEM: {
      const auto& item = *reinterpret_cast<const DRAWITEMSTRUCT*>(lp);
      std::size_t index = 0;
      int part = 0;
      const EffectParam* p = ParamOf(static_cast<int>(item.CtlID), index, part);
      if (p && p->type == ParamType::Color) DrawColorButton(item, static_cast<uint32_t>(p->get(d->values.effects)));
      else DrawPushButton(item, item.CtlID == IDOK);
      return TRUE;
    }
    case DM_GETDEFID:
      return DefaultButtonAnswer(hwnd, IDOK);
    case WM_ERASEBKGND: {
      RECT r;
      GetClientRect(hwnd, &r);
      FillRect(reinterpret_cast<HDC>(wp), &r, DialogBackgroundBrush());
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

HWND Slider(HWND parent, int x, int y, int w, int h, int id, int32_t lo, int32_t hi, int32_t value, HFONT font) {
  HWND s = CreateControl(parent, TRACKBAR_CLASSW, L"", TBS_HORZ | TBS_NOTICKS | WS_TABSTOP, x, y, w, h, id, font);
  SendMessageW(s, TBM_SETRANGEMIN, FALSE, lo);
  SendMessageW(s, TBM_SETRANGEMAX, FALSE, hi);
  SendMessageW(s, TBM_SETPAGESIZE, 0, std::max(1, (hi - lo) / 20));
  SendMessageW(s, TBM_SETLINESIZE, 0, 1);
  SendMessageW(s, TBM_SETPOS, TRUE, value);
  return s;
}

void Register() {
  static bool registered = false;
  if (registered) return;
  INITCOMMONCONTROLSEX icc{sizeof icc, ICC_BAR_CLASSES | ICC_LISTVIEW_CLASSES};
  InitCommonControlsEx(&icc);
  WNDCLASSEXW wc{sizeof wc};
  wc.lpfnWndProc = DialogProc;
  wc.hInstance = GetModuleHandleW(nullptr);
  wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
  wc.lpszClassName = L"KZEffectsDlg";
  RegisterClassExW(&wc);
  registered = true;
}

}  // namespace

bool RunLayerEffectsDialog(HWND owner, Document& doc, int32_t layerIndex, void (*redraw)(void*), void* context,
                           int32_t page) {
  if (g_dialog) return false;
  DialogState d;
  d.doc = &doc;
  d.session = std::make_unique<LayerPropertiesSession>(doc, layerIndex);
  if (!d.session->Valid()) return false;
  d.values = d.session->Original();
  d.redraw = redraw;
  d.context = context;
  if (page < 0 || page >= kEffectGroupCount) {
    page = 0;
    for (int32_t g = kEffectGroupCount - 1; g >= 0; --g)
      if (EffectOn(d.values.effects, g)) page = g;
  }
  Register();

  const UINT dpi = WindowDpi(owner);
  auto S = [dpi](int v) { return MulDiv(v, static_cast<int>(dpi), 96); };
  const int width = S(660), height = S(440);
  RECT ownerRect;
  GetWindowRect(owner, &ownerRect);
  g_dialog = &d;
  d.window = CreateWindowExW(WS_EX_DLGMODALFRAME, L"KZEffectsDlg", L"Properties and Effects",
                             WS_POPUP | WS_CAPTION | WS_SYSMENU, (ownerRect.left + ownerRect.right - width) / 2,
                             (ownerRect.top + ownerRect.bottom - height) / 2, width, height, owner, nullptr,
                             GetModuleHandleW(nullptr), nullptr);
  HFONT font = CreateFontW(-S(12), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0, L"Segoe UI");
  HFONT bold = CreateFontW(-S(13), 0, 0, 0, FW_SEMIBOLD, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0, L"Segoe UI");
  HWND w = d.window;

  // The layer's own values.
  CreateControl(w, L"Static", L"Name:", SS_LEFT, S(14), S(17), S(62), S(20), -1, font);
  d.name = CreateControl(w, L"Edit", Wide(d.values.name), ES_AUTOHSCROLL | WS_TABSTOP, S(80), S(14), S(260), S(24), kNameId,
                   font);
  SendMessageW(d.name, EM_SETLIMITTEXT, kMaxLayerNameLength, 0);
  CreateControl(w, L"Static", L"Blend mode:", SS_LEFT, S(360), S(17), S(80), S(20), -1, font);
  d.blend = CreateControl(w, L"ComboBox", L"", CBS_DROPDOWNLIST | WS_TABSTOP | WS_VSCROLL, S(444), S(14), S(196), S(300),
                    kBlendId, font);
  for (int32_t m = 0; m < kBlendModeCount; ++m)
    SendMessageW(d.blend, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(Wide(BlendModeName(m)).c_str()));
  FitDroppedWidth(d.blend);
  SendMessageW(d.blend, CB_SETCURSEL, std::clamp(d.values.blendMode, 0, kBlendModeCount - 1), 0);
  CreateControl(w, L"Static", L"Opacity:", SS_LEFT, S(14), S(49), S(62), S(20), -1, font);
  d.opacityEdit = CreateControl(w, L"Edit", std::to_wstring(d.values.opacity), ES_AUTOHSCROLL | WS_TABSTOP, S(80), S(46),
                          S(50), S(24), kOpacityEditId, font);
  d.opacitySlider = Slider(w, S(134), S(46), S(206), S(26), kOpacitySliderId, 0, 255, d.values.opacity, font);
  d.visible = CreateControl(w, L"Button", L"Visible", BS_AUTOCHECKBOX | WS_TABSTOP, S(360), S(46), S(100), S(24),
                      kVisibleId, font);
  SendMessageW(d.visible, BM_SETCHECK, d.values.visible ? BST_CHECKED : BST_UNCHECKED, 0);
  d.showEffects = CreateControl(w, L"Button", L"Show effects", BS_AUTOCHECKBOX | WS_TABSTOP, S(470), S(46), S(160), S(24),
                          kShowEffectsId, font);
  SendMessageW(d.showEffects, BM_SETCHECK, d.values.effectsHidden ? BST_UNCHECKED : BST_CHECKED, 0);

  // The effects: on and off in the list, values on the page.
  const int top = S(90), listHeight = S(280);
  d.list = CreateControl(w, WC_LISTVIEWW, L"",
                   LVS_REPORT | LVS_NOCOLUMNHEADER | LVS_SINGLESEL | LVS_SHOWSELALWAYS | WS_TABSTOP | WS_BORDER,
                   S(14), top, S(180), listHeight, kListId, font);
  ListView_SetExtendedListViewStyle(d.list, LVS_EX_CHECKBOXES | LVS_EX_FULLROWSELECT);
  LVCOLUMNW column{};
  column.mask = LVCF_WIDTH;
  column.cx = S(180) - GetSystemMetrics(SM_CXVSCROLL);
  ListView_InsertColumn(d.list, 0, &column);
  for (int32_t g = 0; g < kEffectGroupCount; ++g) {
    std::wstring text = Wide(EffectGroupAt(g).title);
    LVITEMW item{};
    item.mask = LVIF_TEXT;
    item.iItem = g;
    item.pszText = text.data();
    ListView_InsertItem(d.list, &item);
    ListView_SetCheckState(d.list, g, EffectOn(d.values.effects, g));
  }
  if (DialogThemeDark()) {
    const ThemeColors& c = DialogThemeColors();
    ListView_SetBkColor(d.list, c.field);
    ListView_SetTextBkColor(d.list, c.field);
    ListView_SetTextColor(d.list, c.text);
    SetControlDarkMode(d.list, true);
  }
  d.title = CreateControl(w, L"Static", L"", SS_LEFT, S(210), top, S(300), S(22), kTitleId, bold);

  const auto params = EffectParams();
  d.params.resize(params.size());
  int row = 0, group = -1;
  for (std::size_t i = 0; i < params.size(); ++i) {
    const EffectParam& p = params[i];
    if (IsEffectSwitch(p)) continue;
    if (p.group != group) {
      group = p.group;
      row = 0;
    }
    const int y = top + S(32) + S(32) * row++;
    const int id = kParamBase + 4 * static_cast<int>(i);
    const int32_t value = p.get(d.values.effects);
    ParamControls& c = d.params[i];
    if (p.type != ParamType::Switch)
      c.label = CreateControl(w, L"Static", Wide(p.label), SS_LEFT, S(210), y + S(3), S(112), S(20), id + kLabelPart, font);
    switch (p.type) {
      case ParamType::Number:
        c.field = CreateControl(w, L"Edit", std::to_wstring(value), ES_AUTOHSCROLL | WS_TABSTOP, S(326), y, S(60), S(24),
                          id + kFieldPart, font);
        c.slider = Slider(w, S(390), y, S(206), S(26), id + kSliderPart, p.sliderMinimum, p.sliderMaximum,
                          std::clamp(value, p.sliderMinimum, p.sliderMaximum), font);
        if (!p.unit.empty())
          c.unit = CreateControl(w, L"Static", Wide(p.unit), SS_LEFT, S(600), y + S(3), S(40), S(20), id + kUnitPart, font);
        break;
      case ParamType::Color:
        c.field = CreateControl(w, L"Button", L"", BS_OWNERDRAW | WS_TABSTOP, S(326), y, S(70), S(24), id + kFieldPart, font);
        break;
      case ParamType::Choice:
        c.field = CreateControl(w, L"ComboBox", L"", CBS_DROPDOWNLIST | WS_TABSTOP | WS_VSCROLL, S(326), y, S(200), S(300),
                          id + kFieldPart, font);
        for (const EffectChoice& choice : p.choices)
          SendMessageW(c.field, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(Wide(choice.label).c_str()));
        FitDroppedWidth(c.field);
        SendMessageW(c.field, CB_SETCURSEL, std::clamp(value, p.minimum, p.maximum), 0);
        break;
      case ParamType::Switch:
        c.field = CreateControl(w, L"Button", Wide(p.label), BS_AUTOCHECKBOX | WS_TABSTOP, S(326), y, S(200), S(24),
                          id + kFieldPart, font);
        SendMessageW(c.field, BM_SETCHECK, value ? BST_CHECKED : BST_UNCHECKED, 0);
        break;
    }
  }
  const int buttons = top + listHeight + S(16);
  CreateControl(w, L"Button", L"OK", PushButtonStyle(true) | WS_TABSTOP, width - S(204), buttons, S(88), S(28), IDOK, font);
  CreateControl(w, L"Button", L"Cancel", PushButtonStyle(false) | WS_TABSTOP, width - S(108), buttons, S(88), S(28),
          IDCANCEL, font);
  RECT client;
  GetClientRect(w, &client);
  SetWindowPos(w, nullptr, 0, 0, width, height + (buttons + S(28) + S(14) - client.bottom), SWP_NOMOVE | SWP_NOZORDER);
  ShowPage(d, page);
  ListView_SetItemState(d.list, page, LVIS_SELECTED | LVIS_FOCUSED, LVIS_SELECTED | LVIS_FOCUSED);
  ThemeDialog(w);
  d.building = false;

  bool recorded = false;
  {
    ModalWindow modal(w, owner);
    modal.Run(d.done, d.list);
    KillTimer(w, kPreviewTimer);
    if (d.accepted) {
      d.session->Preview(d.values);
      recorded = d.session->Commit();
      // The values chosen last are what new layers start from.
      SaveEffectDefaults(AppSettings(), d.values.effects);
    } else {
      d.session->Cancel();
    }
    if (d.redraw) d.redraw(d.context);
  }
  DeleteObject(font);
  DeleteObject(bold);
  g_dialog = nullptr;
  return recorded;
}

}  // namespace tavora

// "KZDlg": rows of labelled values (with sliders where the table asks for
// them), the option, the choice and "Live preview". A change waits on timer
// 77 for typing to pause, then the preview runs on a worker (one job at a
// time: a newer change cancels the running one and follows it); its result
// reaches the layer here, on the window's thread, when the job's message
// arrives. OK runs the effect the same way with a progress bar, unless the
// exact preview on show already is the result.
#include <windows.h>
#include <commctrl.h>
#include <windowsx.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/settings_store.h"
#include "platform/dialog_win32.h"
#include "platform/dpi_win32.h"
#include "platform/message_box_win32.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"
#include "processing/effect_dialog.h"
#include "processing/effect_preview.h"
#include "processing/lens_flare.h"

namespace tavora {
namespace {

constexpr UINT_PTR kPreviewTimer = 77, kProgressTimer = 78;
constexpr UINT kJobEnded = WM_APP + 77;  // wParam: the job's serial
constexpr int kRowId = 100, kSliderId = 200, kColor1Id = 20, kColor2Id = 21, kChoiceId = 22,
              kPanelColorsId = 23, kSwapColorsId = 24, kPreviewId = 50, kOptionId = 51, kBarId = 52,
              kBarTextId = 53, kThumbnailId = 54;
// A job quicker than this shows no progress bar.
constexpr DWORD kQuietMs = 300;

// Editing until OK or Cancel; then the effect is applied, or the running
// job stops before the dialog ends.
enum class Phase { Editing, Applying, Closing };

struct DialogState {
  Document* doc = nullptr;
  const EffectDef* def = nullptr;
  std::unique_ptr<EffectPreviewSession> session;
  std::unique_ptr<EffectJob> job;  // at most one
  bool jobApplies = false;
  WPARAM jobSerial = 0;
  DWORD jobStart = 0;
  bool previewWanted = false;        // values changed while the job ran
  EffectValues shownValues;          // of the preview in the layer
  std::optional<EffectResult> exact;  // that preview, when exact: OK takes it as it is
  EffectValues finalValues;          // once OK is pressed
  double screenScale = 1;            // device pixels per image pixel on the canvas
  Phase phase = Phase::Editing;
  bool marquee = false;
  bool syncing = false;
  bool done = false, applied = false;
  HWND window = nullptr;
  std::vector<HWND> edits, sliders;
  HWND choice = nullptr, option = nullptr, preview = nullptr, bar = nullptr, barText = nullptr;
  HWND focus = nullptr;  // the control with the focus when the dialog was last active
  bool hasColors = false;
  uint32_t colors[2] = {0xFF000000, 0xFFFFFFFF};
  uint32_t panel[2] = {0xFF000000, 0xFFFFFFFF};  // the colour boxes' primary and secondary
  HWND colorButtons[2] = {nullptr, nullptr};
  // Lens Flare: the operated area's thumbnail, where a click places the source.
  bool flare = false;
  HWND thumbnail = nullptr;
  ThumbnailSize thumb;
  std::vector<uint32_t> thumbPixels;
  int crossArm = 6;
};
DialogState* g_dialog = nullptr;  // one effect dialog at a time

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

std::wstring Format(double v, uint32_t decimals) {
  wchar_t text[64];
  swprintf(text, 64, L"%.*f", static_cast<int>(decimals), v);
  return text;
}

// A remembered value's key: "c<n>".
std::u16string Key(int n) {
  std::u16string key = u"c";
  for (char c : std::to_string(n)) key += char16_t(c);
  return key;
}

bool SameValues(const EffectValues& a, const EffectValues& b) {
  return a.rows == b.rows && a.option == b.option && a.choice == b.choice && a.color1 == b.color1 &&
         a.color2 == b.color2;
}

std::optional<double> RowValue(const DialogState& d, std::size_t i) {
  wchar_t text[64] = {};
  GetWindowTextW(d.edits[i], text, 64);
  const std::wstring_view typed(text);
  return ParseTypedValue(std::u16string(typed.begin(), typed.end()), d.def->rows[i]);
}

// The values on screen. A row whose text is not a number in its range
// (empty, "nan", out of range) is named in `badRow` and keeps its default.
EffectValues ReadValues(const DialogState& d, int* badRow = nullptr) {
  EffectValues v;
  if (badRow) *badRow = -1;
  for (std::size_t i = 0; i < d.def->rows.size(); ++i) {
    const auto value = RowValue(d, i);
    if (!value && badRow && *badRow < 0) *badRow = static_cast<int>(i);
    v.rows.push_back(value.value_or(d.def->rows[i].fallback));
  }
  v.option = d.option && SendMessageW(d.option, BM_GETCHECK, 0, 0) == BST_CHECKED;
  v.choice = d.choice ? static_cast<int32_t>(SendMessageW(d.choice, CB_GETCURSEL, 0, 0)) : 0;
  if (v.choice < 0) v.choice = 0;
  v.color1 = d.colors[0];
  v.color2 = d.colors[1];
  return v;
}

bool LiveChecked(const DialogState& d) { return SendMessageW(d.preview, BM_GETCHECK, 0, 0) == BST_CHECKED; }

void RefreshThumbnail(DialogState& d) {
  if (!d.thumbnail) return;
  RenderThumbnail(ActiveLayer(d.doc)->pixels, d.session->Target(), d.thumb.width, d.thumb.height,
                  d.thumbPixels.data());
  InvalidateRect(d.thumbnail, nullptr, FALSE);
}

void StartJob(DialogState& d, const EffectValues& values, bool applies) {
  const Rect& t = d.session->Target();
  const double scale = applies ? 1.0 : PreviewScale(*d.def, t.Width(), t.Height(), d.screenScale);
  const WPARAM serial = ++d.jobSerial;
  HWND window = d.window;
  d.job = d.session->Start(values, scale, [window, serial] { PostMessageW(window, kJobEnded, serial, 0); });
  d.jobApplies = applies;
  // A bar already up stays up for the job that follows.
  d.jobStart = GetTickCount() - (IsWindowVisible(d.bar) ? kQuietMs : 0);
  SetTimer(d.window, kProgressTimer, 100, nullptr);
}

void Preview(DialogState& d) {
  if (d.phase != Phase::Editing) return;
  if (!LiveChecked(d)) {
    d.previewWanted = false;
    if (d.job) d.job->Cancel();
    d.session->Restore();
    d.exact.reset();
    RefreshThumbnail(d);
    return;
  }
  int bad = -1;
  const EffectValues values = ReadValues(d, &bad);
  if (bad >= 0) return;  // half-typed: the last preview stays until the value is whole
  if (d.job) {
    // The running job either is this preview already or is thrown away.
    d.previewWanted = d.job->Cancelled() || !SameValues(d.job->Values(), values);
    if (d.previewWanted) d.job->Cancel();
    return;
  }
  if (d.session->Showing() && SameValues(values, d.shownValues)) return;
  d.exact.reset();  // its memory goes to the new job
  StartJob(d, values, false);
}

void ShowProgress(DialogState& d, bool show) {
  if (!show) {
    d.marquee = false;
    SendMessageW(d.bar, PBM_SETMARQUEE, FALSE, 0);
    SetWindowLongPtrW(d.bar, GWL_STYLE, GetWindowLongPtrW(d.bar, GWL_STYLE) & ~LONG_PTR(PBS_MARQUEE));
  }
  ShowWindow(d.bar, show ? SW_SHOWNA : SW_HIDE);
  ShowWindow(d.barText, show ? SW_SHOWNA : SW_HIDE);
}

void UpdateProgress(DialogState& d) {
  if (!d.job) {
    KillTimer(d.window, kProgressTimer);
    ShowProgress(d, false);
    return;
  }
  if (GetTickCount() - d.jobStart < kQuietMs) return;
  const wchar_t* text = d.phase == Phase::Closing    ? L"Stopping…"
                        : d.phase == Phase::Applying ? L"Applying…"
                                                     : L"Rendering preview…";
  wchar_t shown[64] = {};
  GetWindowTextW(d.barText, shown, 64);
  if (std::wcscmp(shown, text) != 0) SetWindowTextW(d.barText, text);
  // Operations that do not count their rows get a bar that only shows work goes on.
  const double fraction = d.job->Fraction();
  const bool marquee = fraction <= 0;
  if (marquee != d.marquee) {
    const LONG_PTR style = GetWindowLongPtrW(d.bar, GWL_STYLE);
    SetWindowLongPtrW(d.bar, GWL_STYLE, marquee ? style | PBS_MARQUEE : style & ~LONG_PTR(PBS_MARQUEE));
    SendMessageW(d.bar, PBM_SETMARQUEE, marquee, 30);
    d.marquee = marquee;
  }
  if (!marquee) SendMessageW(d.bar, PBM_SETPOS, static_cast<WPARAM>(fraction * 1000), 0);
  ShowProgress(d, true);
}

// While the effect is applied or the dialog closes only Cancel answers.
void EnterBusy(DialogState& d) {
  for (HWND c = GetWindow(d.window, GW_CHILD); c; c = GetWindow(c, GW_HWNDNEXT)) {
    const int id = GetDlgCtrlID(c);
    if (id != IDCANCEL && id != kBarId && id != kBarTextId) EnableWindow(c, FALSE);
  }
  HWND cancel = GetDlgItem(d.window, IDCANCEL);
  d.focus = cancel;
  if (d.phase == Phase::Closing) EnableWindow(cancel, FALSE);
  else SetFocus(cancel);
}

void Commit(DialogState& d, const EffectResult& result) {
  d.session->Commit(result);
  d.applied = d.done = true;
}

void JobEnded(DialogState& d, WPARAM serial) {
  if (!d.job || serial != d.jobSerial) return;
  std::optional<EffectResult> result = d.job->Take();
  const bool applies = d.jobApplies, exact = d.job->Exact();
  const EffectValues values = d.job->Values();
  d.job.reset();
  if (d.phase == Phase::Closing) {
    d.done = true;
  } else if (d.phase == Phase::Applying) {
    if (applies) {
      if (result) Commit(d, *result);
      else d.done = true;
    } else if (result && exact && SameValues(values, d.finalValues)) {
      Commit(d, *result);  // the preview OK waited for is the result
    } else {
      StartJob(d, d.finalValues, true);
    }
  } else {
    if (result && !d.previewWanted) {
      d.session->Show(*result);
      d.shownValues = values;
      if (exact) d.exact = std::move(result);
      RefreshThumbnail(d);
    }
    if (d.previewWanted) {
      d.previewWanted = false;
      Preview(d);
    }
  }
  if (!d.job) UpdateProgress(d);
}

void Apply(DialogState& d) {
  if (d.phase != Phase::Editing) return;
  int bad = -1;
  d.finalValues = ReadValues(d, &bad);
  if (bad >= 0) {
    const ParamRow& row = d.def->rows[static_cast<std::size_t>(bad)];
    const std::u16string message = RangeMessage(row.minimum, row.maximum);
    ShowMessageBox(d.window, Wide(message), L"Tavora", MB_OK | MB_ICONINFORMATION);
    SetFocus(d.edits[static_cast<std::size_t>(bad)]);
    SendMessageW(d.edits[static_cast<std::size_t>(bad)], EM_SETSEL, 0, -1);
    return;
  }
  KillTimer(d.window, kPreviewTimer);
  d.phase = Phase::Applying;
  EnterBusy(d);
  if (d.job) {
    // An exact preview of these values is left to end; anything else stops.
    if (d.job->Cancelled() || !d.job->Exact() || !SameValues(d.job->Values(), d.finalValues)) d.job->Cancel();
    d.jobStart = GetTickCount() - kQuietMs;  // the bar shows at once from now on
    return;
  }
  if (d.exact && d.session->Showing() && SameValues(d.shownValues, d.finalValues)) {
    const EffectResult result = std::move(*d.exact);
    d.exact.reset();
    Commit(d, result);
    return;
  }
  StartJob(d, d.finalValues, true);
}

void Cancel(DialogState& d) {
  if (d.phase == Phase::Closing) return;
  d.phase = Phase::Closing;
  KillTimer(d.window, kPreviewTimer);
  if (!d.job) {
    d.done = true;
    return;
  }
  d.job->Cancel();
  EnterBusy(d);
}

void Restart(DialogState& d, UINT ms) {
  if (d.phase == Phase::Editing) SetTimer(d.window, kPreviewTimer, ms, nullptr);
}

void Remember(const DialogState& d, const EffectValues& v) {
  const std::u16string section = RememberSection(*d.def);
  std::vector<std::pair<std::u16string, std::u16string>> values;
  // The flare's source starts at the area's centre each time: its place is not kept.
  for (std::size_t i = d.flare ? 2 : 0; i < v.rows.size(); ++i)
    values.emplace_back(Key(int(i) + 1), FormatNumber(v.rows[i]));
  values.emplace_back(Key(kPreviewId), LiveChecked(d) ? u"1" : u"0");
  if (d.option) values.emplace_back(Key(kOptionId), v.option ? u"1" : u"0");
  if (d.choice) values.emplace_back(Key(kChoiceId), FormatNumber(v.choice));
  if (d.hasColors) {
    values.emplace_back(Key(kColor1Id), FormatColor(v.color1));
    values.emplace_back(Key(kColor2Id), FormatColor(v.color2));
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

// ---- the Lens Flare thumbnail

// A click or drag on the thumbnail: the area pixel under it becomes the centre.
void PlaceSource(DialogState& d, int x, int y) {
  if (d.phase != Phase::Editing) return;
  const Rect& t = d.session->Target();
  const int32_t ax = ThumbnailToArea(x, d.thumb.width, t.Width());
  const int32_t ay = ThumbnailToArea(y, d.thumb.height, t.Height());
  const auto cx = RowValue(d, 0), cy = RowValue(d, 1);
  if (cx && cy && *cx == ax && *cy == ay) return;
  SetWindowTextW(d.edits[0], Format(ax, 0).c_str());  // each change restarts the preview timer
  SetWindowTextW(d.edits[1], Format(ay, 0).c_str());
}

void PaintThumbnail(DialogState& d, HWND hwnd) {
  PAINTSTRUCT ps;
  HDC dc = BeginPaint(hwnd, &ps);
  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = d.thumb.width;
  info.bmiHeader.biHeight = -d.thumb.height;  // top-down
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  info.bmiHeader.biCompression = BI_RGB;
  SetDIBitsToDevice(dc, 0, 0, d.thumb.width, d.thumb.height, 0, 0, 0, d.thumb.height, d.thumbPixels.data(), &info,
                    DIB_RGB_COLORS);
  // The cross: white on a dark outline, readable on any picture.
  const Rect& t = d.session->Target();
  const auto cx = RowValue(d, 0), cy = RowValue(d, 1);
  if (cx && cy) {
    const int x = static_cast<int>(std::floor(AreaToThumbnail(*cx, t.Width(), d.thumb.width)));
    const int y = static_cast<int>(std::floor(AreaToThumbnail(*cy, t.Height(), d.thumb.height)));
    if (x >= 0 && y >= 0 && x < d.thumb.width && y < d.thumb.height) {
      const int a = d.crossArm;
      for (int pass = 0; pass < 2; ++pass) {
        HPEN pen = CreatePen(PS_SOLID, pass == 0 ? 3 : 1, pass == 0 ? RGB(0, 0, 0) : RGB(255, 255, 255));
        HGDIOBJ old = SelectObject(dc, pen);
        MoveToEx(dc, x - a, y, nullptr);
        LineTo(dc, x + a + 1, y);
        MoveToEx(dc, x, y - a, nullptr);
        LineTo(dc, x, y + a + 1);
        SelectObject(dc, old);
        DeleteObject(pen);
      }
    }
  }
  EndPaint(hwnd, &ps);
}

LRESULT CALLBACK ThumbnailProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  DialogState* d = g_dialog;
  if (!d || !d->session) return DefWindowProcW(hwnd, msg, wp, lp);
  switch (msg) {
    case WM_PAINT:
      PaintThumbnail(*d, hwnd);
      return 0;
    case WM_LBUTTONDOWN:
      SetCapture(hwnd);
      PlaceSource(*d, GET_X_LPARAM(lp), GET_Y_LPARAM(lp));
      return 0;
    case WM_MOUSEMOVE:
      if (GetCapture() == hwnd) PlaceSource(*d, GET_X_LPARAM(lp), GET_Y_LPARAM(lp));
      return 0;
    case WM_LBUTTONUP:
      if (GetCapture() == hwnd) ReleaseCapture();
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

LRESULT CALLBACK DialogProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  DialogState* d = g_dialog;
  if (!d) return DefWindowProcW(hwnd, msg, wp, lp);
  switch (msg) {
    case WM_TIMER:
      if (wp == kPreviewTimer) {
        KillTimer(hwnd, kPreviewTimer);
        Preview(*d);
      } else if (wp == kProgressTimer) {
        UpdateProgress(*d);
      }
      return 0;
    case kJobEnded:
      JobEnded(*d, wp);
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
        Apply(*d);
        return 0;
      }
      if (id == IDCANCEL) {
        Cancel(*d);
        return 0;
      }
      if (d->phase != Phase::Editing) return 0;
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
        const auto value = RowValue(*d, i);
        if (d->sliders[i] && value)
          SendMessageW(d->sliders[i], TBM_SETPOS, TRUE, SliderPosition(d->def->rows[i], *value));
        if (d->thumbnail && i < 2) InvalidateRect(d->thumbnail, nullptr, FALSE);  // the cross moves at once
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
      HBRUSH back = DialogBackgroundBrush();
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
      Cancel(*d);
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

void RegisterClasses() {
  static bool registered = false;
  if (registered) return;
  INITCOMMONCONTROLSEX icc{sizeof icc, ICC_BAR_CLASSES | ICC_PROGRESS_CLASS};
  InitCommonControlsEx(&icc);
  WNDCLASSEXW wc{sizeof wc};
  wc.lpfnWndProc = DialogProc;
  wc.hInstance = GetModuleHandleW(nullptr);
  wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
  wc.lpszClassName = L"KZDlg";
  RegisterClassExW(&wc);
  WNDCLASSEXW thumb{sizeof thumb};
  thumb.lpfnWndProc = ThumbnailProc;
  thumb.hInstance = GetModuleHandleW(nullptr);
  thumb.hCursor = LoadCursorW(nullptr, IDC_CROSS);
  thumb.lpszClassName = L"KZThumb";
  RegisterClassExW(&thumb);
  registered = true;
}

}  // namespace

bool RunEffectDialog(HWND owner, Document& doc, const EffectDef& def, uint32_t primary,
                     uint32_t secondary) {
  if (!def.operation || g_dialog) return false;
  auto session = std::make_unique<EffectPreviewSession>(doc, def);
  if (!session->Valid()) return false;
  DialogState d;
  d.doc = &doc;
  d.def = &def;
  d.session = std::move(session);
  d.flare = &def == &LensFlareEffect();
  d.hasColors = !def.color1Label.empty();
  d.panel[0] = primary | 0xFF000000u;
  d.panel[1] = secondary | 0xFF000000u;
  const Rect target = d.session->Target();

  RegisterClasses();
  const UINT dpi = WindowDpi(owner);
  auto S = [dpi](int v) { return MulDiv(v, static_cast<int>(dpi), 96); };
  d.screenScale = doc.zoom * dpi / 96.0;
  const int rows = static_cast<int>(def.rows.size()) + (def.choices.empty() ? 0 : 1) +
                   (def.optionLabel.empty() ? 0 : 1) + (d.hasColors ? 2 : 0);
  const int rowsWidth = S(440), width = rowsWidth + (d.flare ? S(254) : 0);
  const int height = S(130) + S(30) * rows;
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
  // Remembered values, each checked against its row; the flare's source
  // starts at the area's centre.
  const std::u16string section = RememberSection(def);
  const EffectValues flareStart = LensFlareDefaultValues(target.Width(), target.Height());
  int y = S(14);
  for (std::size_t i = 0; i < def.rows.size(); ++i) {
    const ParamRow& row = def.rows[i];
    const double value = d.flare && i < 2 ? flareStart.rows[i]
                                          : ParseRemembered(AppSettings().GetString(section, Key(int(i) + 1)), row)
                                                .value_or(row.fallback);
    CreateControl(d.window, L"Static", Wide(row.label), SS_LEFT, S(14), y + S(3), S(140), S(20), -1, font);
    d.edits.push_back(CreateControl(d.window, L"Edit", Format(value, row.decimals), ES_AUTOHSCROLL | WS_TABSTOP,
                              S(158), y, S(70), S(24), kRowId + static_cast<int>(i), font));
    HWND slider = nullptr;
    if (row.kind != RowKind::Edit) {
      slider = CreateControl(d.window, TRACKBAR_CLASSW, L"", TBS_HORZ | TBS_NOTICKS | WS_TABSTOP, S(236), y,
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
      d.colors[i] = ParseRememberedColor(AppSettings().GetString(section, Key(kColor1Id + i))).value_or(d.panel[i]);
      const int x = i == 0 ? S(14) : S(236);
      CreateControl(d.window, L"Static", Wide(i == 0 ? def.color1Label : def.color2Label), SS_LEFT, x, y + S(3),
              S(80), S(20), -1, font);
      d.colorButtons[i] = CreateControl(d.window, L"Button", L"", BS_OWNERDRAW | WS_TABSTOP, x + S(84), y,
                                  S(70), S(24), kColor1Id + i, font);
    }
    y += S(30);
    CreateControl(d.window, L"Button", L"Use primary && secondary", PushButtonStyle(false) | WS_TABSTOP, S(14), y,
            S(200), S(26), kPanelColorsId, font);
    CreateControl(d.window, L"Button", L"Swap colors", PushButtonStyle(false) | WS_TABSTOP, S(236), y, S(154), S(26),
            kSwapColorsId, font);
    y += S(30);
  }
  if (!def.choices.empty()) {
    CreateControl(d.window, L"Static", Wide(def.choiceLabel), SS_LEFT, S(14), y + S(3), S(140), S(20), -1, font);
    d.choice = CreateControl(d.window, L"ComboBox", L"", CBS_DROPDOWNLIST | WS_TABSTOP | WS_VSCROLL, S(158), y,
                       S(150), S(200), kChoiceId, font);
    for (auto c : def.choices) SendMessageW(d.choice, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(Wide(c).c_str()));
    FitDroppedWidth(d.choice);
    const int32_t last = static_cast<int32_t>(def.choices.size()) - 1;
    SendMessageW(d.choice, CB_SETCURSEL,
                 ParseRememberedIndex(AppSettings().GetString(section, Key(kChoiceId)), last).value_or(0), 0);
    y += S(30);
  }
  if (!def.optionLabel.empty()) {
    d.option = CreateControl(d.window, L"Button", Wide(def.optionLabel), BS_AUTOCHECKBOX | WS_TABSTOP, S(14), y,
                       S(400), S(24), kOptionId, font);
    const int32_t stored = ParseRememberedIndex(AppSettings().GetString(section, Key(kOptionId)), 1).value_or(0);
    SendMessageW(d.option, BM_SETCHECK, stored == 1 ? BST_CHECKED : BST_UNCHECKED, 0);
    y += S(30);
  }
  if (d.flare) {
    // The operated area beside the rows, about 240 pixels on its long side.
    d.thumb = FitThumbnail(target.Width(), target.Height(), S(240));
    d.thumbPixels.assign(std::size_t(d.thumb.width) * std::size_t(d.thumb.height), 0);
    d.crossArm = S(6);
    CreateControl(d.window, L"Static", L"Click the picture to place the flare:", SS_LEFT, rowsWidth, S(14), S(240), S(20),
            -1, font);
    const int top = S(38);
    d.thumbnail = CreateWindowExW(0, L"KZThumb", L"", WS_CHILD | WS_VISIBLE | WS_BORDER,
                                  rowsWidth + (S(240) - d.thumb.width) / 2 - 1, top - 1, d.thumb.width + 2,
                                  d.thumb.height + 2, d.window, reinterpret_cast<HMENU>(INT_PTR{kThumbnailId}),
                                  GetModuleHandleW(nullptr), nullptr);
    RefreshThumbnail(d);
    y = std::max(y, top + d.thumb.height + S(2));
  }
  d.preview = CreateControl(d.window, L"Button", L"Live preview", BS_AUTOCHECKBOX | WS_TABSTOP, S(14), y + S(6),
                      S(200), S(24), kPreviewId, font);
  const bool live = ParseRememberedIndex(AppSettings().GetString(section, Key(kPreviewId)), 1)
                        .value_or(def.livePreview ? 1 : 0) == 1;
  SendMessageW(d.preview, BM_SETCHECK, live ? BST_CHECKED : BST_UNCHECKED, 0);
  CreateControl(d.window, L"Button", L"Apply", PushButtonStyle(true) | WS_TABSTOP, width - S(200), y + S(4), S(88),
          S(28), IDOK, font);
  CreateControl(d.window, L"Button", L"Cancel", PushButtonStyle(false) | WS_TABSTOP, width - S(104), y + S(4), S(88),
          S(28), IDCANCEL, font);
  // The progress of a job that takes a while, under the buttons.
  d.barText = CreateControl(d.window, L"Static", L"", SS_LEFT, S(14), y + S(40), S(140), S(20), kBarTextId, font);
  d.bar = CreateControl(d.window, PROGRESS_CLASSW, L"", 0, S(158), y + S(42), width - S(172), S(14), kBarId, font);
  SendMessageW(d.bar, PBM_SETRANGE32, 0, 1000);
  ShowProgress(d, false);
  RECT client;
  GetClientRect(d.window, &client);
  const int extra = (y + S(68)) - client.bottom;
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
    KillTimer(d.window, kProgressTimer);
    d.job.reset();  // only when the loop ended early (WM_QUIT): cancels and waits
    if (d.applied) Remember(d, d.finalValues);
    else d.session->Restore();
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

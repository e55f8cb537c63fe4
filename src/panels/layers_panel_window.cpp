// "KZLayers": rows drawn from the document's layers; every change goes
// through the history so that it can be undone.
#include <windows.h>
#include <windowsx.h>
#include <commctrl.h>

#include <string>
#include <vector>

#include "base/command_ids.h"
#include "document/blend.h"
#include "document/composite.h"
#include "document/document_events.h"
#include "document/history.h"
#include "panels/layer_thumbnail.h"
#include "panels/layers_panel.h"
#include "platform/dialog_win32.h"
#include "platform/dpi_win32.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"

namespace tavora {
namespace {

constexpr int kHeaderDip = 28, kControlsDip = 34, kRowDip = 40, kButtonsDip = 34, kThumbDip = 32;
constexpr int kOpacityId = 10, kBlendId = 11, kNewId = 12, kDuplicateId = 13, kDeleteId = 14;

struct PanelState {
  Document* doc = nullptr;
  bool dark = true;
  HWND opacity = nullptr, blend = nullptr;
  HWND buttons[3] = {};
  bool opacityDragging = false;
  int32_t dragFrom = -1;  // the layer whose row the button went down on
  int dragStartY = 0;
  bool dragged = false;
  HFONT font = nullptr;
};
PanelState g_layers;  // there is one Layers panel

int S(HWND hwnd, int dip) { return MulDiv(dip, static_cast<int>(WindowDpi(hwnd)), 96); }

int RowsTop(HWND hwnd) { return S(hwnd, kHeaderDip + kControlsDip); }

// The layer at a client y, or -1; rows run from the top layer down.
int32_t LayerAt(HWND hwnd, int y) {
  if (!g_layers.doc || y < RowsTop(hwnd)) return -1;
  const int32_t row = (y - RowsTop(hwnd)) / S(hwnd, kRowDip);
  const int32_t index = g_layers.doc->LayerCount() - 1 - row;
  return index >= 0 && row < g_layers.doc->LayerCount() ? index : -1;
}

// The canvas takes the keys again once a button, the list or the slider has
// done its work, so tool keys and Space do not press or change them again.
void BackToCanvas(HWND panel) { SetFocus(GetAncestor(panel, GA_ROOT)); }

void Changed(Document& doc, int32_t layer) {
  Invalidate(doc, layer, doc.Bounds());
  NotifyLayersChanged(doc);
}

void SyncControls() {
  Document* doc = g_layers.doc;
  const Layer* active = doc ? ActiveLayer(doc) : nullptr;
  for (HWND c : {g_layers.opacity, g_layers.blend}) EnableWindow(c, active != nullptr);
  for (HWND b : g_layers.buttons) EnableWindow(b, doc != nullptr);
  if (g_layers.buttons[2]) EnableWindow(g_layers.buttons[2], doc && doc->LayerCount() > 1);
  if (!active) return;
  SendMessageW(g_layers.opacity, TBM_SETPOS, TRUE, active->opacity);
  SendMessageW(g_layers.blend, CB_SETCURSEL, active->blendMode, 0);
}

void Paint(HWND hwnd) {
  PAINTSTRUCT ps;
  HDC dc = BeginPaint(hwnd, &ps);
  RECT r;
  GetClientRect(hwnd, &r);
  const bool dark = g_layers.dark;
  HBRUSH back = CreateSolidBrush(dark ? RGB(0x25, 0x26, 0x2A) : RGB(0xFA, 0xFA, 0xFA));
  FillRect(dc, &r, back);
  DeleteObject(back);
  HGDIOBJ oldFont = SelectObject(dc, g_layers.font);
  SetBkMode(dc, TRANSPARENT);
  const COLORREF text = dark ? RGB(0xE6, 0xE7, 0xEA) : RGB(0x20, 0x21, 0x24);
  const COLORREF dim = dark ? RGB(0x7A, 0x7D, 0x83) : RGB(0x9A, 0x9D, 0xA3);
  SetTextColor(dc, text);
  RECT header{r.left + S(hwnd, 10), r.top, r.right, r.top + S(hwnd, kHeaderDip)};
  DrawTextW(dc, L"Layers", -1, &header, DT_SINGLELINE | DT_VCENTER);
  Document* doc = g_layers.doc;
  if (doc) {
    const int row = S(hwnd, kRowDip), thumb = S(hwnd, kThumbDip);
    for (int32_t i = doc->LayerCount() - 1, n = 0; i >= 0; --i, ++n) {
      const Layer& layer = doc->layers[i];
      RECT line{r.left, RowsTop(hwnd) + row * n, r.right, RowsTop(hwnd) + row * (n + 1)};
      if (line.top > r.bottom) break;
      if (i == doc->active) {
        HBRUSH mark = CreateSolidBrush(dark ? RGB(0x2F, 0x5D, 0x9E) : RGB(0xCC, 0xE0, 0xFA));
        FillRect(dc, &line, mark);
        DeleteObject(mark);
      }
      // The eye: a filled dot when visible, a ring when hidden.
      const int cx = line.left + S(hwnd, 14), cy = (line.top + line.bottom) / 2, e = S(hwnd, 5);
      HBRUSH eye = CreateSolidBrush(text);
      HGDIOBJ oldBrush = SelectObject(dc, layer.visible ? eye : GetStockObject(NULL_BRUSH));
      HPEN pen = CreatePen(PS_SOLID, 1, text);
      HGDIOBJ oldPen = SelectObject(dc, pen);
      Ellipse(dc, cx - e, cy - e, cx + e + 1, cy + e + 1);
      SelectObject(dc, oldPen);
      SelectObject(dc, oldBrush);
      DeleteObject(pen);
      DeleteObject(eye);
      // The thumbnail.
      const std::vector<uint32_t> pixels = LayerThumbnail(layer, thumb);
      BITMAPINFO bi{};
      bi.bmiHeader.biSize = sizeof bi.bmiHeader;
      bi.bmiHeader.biWidth = thumb;
      bi.bmiHeader.biHeight = -thumb;
      bi.bmiHeader.biPlanes = 1;
      bi.bmiHeader.biBitCount = 32;
      const int tx = line.left + S(hwnd, 28), ty = cy - thumb / 2;
      SetDIBitsToDevice(dc, tx, ty, thumb, thumb, 0, 0, 0, thumb, pixels.data(), &bi, DIB_RGB_COLORS);
      // The name, and "fx" when the layer has effects that can be switched.
      RECT name{tx + thumb + S(hwnd, 8), line.top, line.right - S(hwnd, 34), line.bottom};
      SetTextColor(dc, layer.visible ? text : dim);
      const std::wstring label(layer.Name().begin(), layer.Name().end());
      DrawTextW(dc, label.c_str(), -1, &name, DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX | DT_END_ELLIPSIS);
      if (AnyEffectOn(layer)) {
        RECT fx{line.right - S(hwnd, 30), line.top, line.right - S(hwnd, 6), line.bottom};
        SetTextColor(dc, layer.effectsHidden ? dim : text);
        DrawTextW(dc, L"fx", -1, &fx, DT_SINGLELINE | DT_VCENTER | DT_CENTER);
      }
    }
  }
  SelectObject(dc, oldFont);
  EndPaint(hwnd, &ps);
}

void Rename(HWND hwnd, int32_t index) {
  Document& doc = *g_layers.doc;
  const std::u16string& old = doc.layers[index].Name();
  std::vector<DialogField> fields{{L"Name:", std::wstring(old.begin(), old.end()), {}}};
  if (!RunFieldDialog(GetAncestor(hwnd, GA_ROOT), L"Rename Layer", fields) || fields[0].value.empty())
    return;
  const std::u16string name(fields[0].value.begin(), fields[0].value.end());
  if (name == old) return;
  PushLayer(doc, index, u"Rename Layer");
  doc.layers[index].SetName(name);
  NotifyLayersChanged(doc);
}

void Layout(HWND hwnd) {
  RECT r;
  GetClientRect(hwnd, &r);
  const int pad = S(hwnd, 8), top = S(hwnd, kHeaderDip);
  const int half = (r.right - r.left - 3 * pad) / 2;
  MoveWindow(g_layers.opacity, pad, top, half, S(hwnd, 26), TRUE);
  MoveWindow(g_layers.blend, 2 * pad + half, top, half, S(hwnd, 200), TRUE);
  FitDroppedWidth(g_layers.blend);
  const int bw = (r.right - r.left - 4 * pad) / 3, by = r.bottom - S(hwnd, kButtonsDip) + S(hwnd, 4);
  for (int i = 0; i < 3; ++i)
    MoveWindow(g_layers.buttons[i], pad + i * (bw + pad), by, bw, S(hwnd, 26), TRUE);
}

LRESULT CALLBACK PanelProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_PAINT:
      Paint(hwnd);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_SIZE:
      Layout(hwnd);
      InvalidateRect(hwnd, nullptr, FALSE);
      return 0;
    case WM_LBUTTONDOWN: {
      const int32_t index = LayerAt(hwnd, GET_Y_LPARAM(lp));
      if (index < 0) return 0;
      Document& doc = *g_layers.doc;
      const int x = GET_X_LPARAM(lp);
      RECT r;
      GetClientRect(hwnd, &r);
      if (x < S(hwnd, 26)) {  // the eye
        PushLayer(doc, index, doc.layers[index].visible ? u"Hide Layer" : u"Show Layer");
        doc.layers[index].visible = !doc.layers[index].visible;
        Changed(doc, index);
        return 0;
      }
      if (x > r.right - S(hwnd, 34) && AnyEffectOn(doc.layers[index])) {  // fx
        PushLayer(doc, index, u"Layer Effects");
        doc.layers[index].effectsHidden = !doc.layers[index].effectsHidden;
        Changed(doc, index);
        return 0;
      }
      if (doc.active != index) {
        doc.active = index;
        NotifyLayersChanged(doc);
      }
      g_layers.dragFrom = index;
      g_layers.dragStartY = GET_Y_LPARAM(lp);
      g_layers.dragged = false;
      SetCapture(hwnd);
      return 0;
    }
    case WM_MOUSEMOVE:
      if (g_layers.dragFrom >= 0 && std::abs(GET_Y_LPARAM(lp) - g_layers.dragStartY) > S(hwnd, 6))
        g_layers.dragged = true;
      return 0;
    case WM_LBUTTONUP: {
      const int32_t from = g_layers.dragFrom;
      if (from < 0) return 0;
      g_layers.dragFrom = -1;
      ReleaseCapture();  // sends WM_CAPTURECHANGED, which must find the drag over
      if (!g_layers.dragged || !g_layers.doc) return 0;
      Document& doc = *g_layers.doc;
      if (from >= doc.LayerCount()) return 0;
      int32_t to = LayerAt(hwnd, GET_Y_LPARAM(lp));
      if (to < 0) to = GET_Y_LPARAM(lp) < RowsTop(hwnd) ? doc.LayerCount() - 1 : 0;
      if (to == from) return 0;
      // One history step for the whole move.
      PushWholeDocument(doc, u"Move Layer", ExtendedContentAfterPush::Keep);
      Layer moving = std::move(doc.layers[from]);
      doc.layers.erase(doc.layers.begin() + from);
      doc.layers.insert(doc.layers.begin() + to, std::move(moving));
      doc.active = to;
      doc.modified = true;
      Changed(doc, -1);
      return 0;
    }
    case WM_CAPTURECHANGED:
      g_layers.dragFrom = -1;
      return 0;
    case WM_RBUTTONUP: {
      // The layer's own menu: it becomes the active layer first.
      const int32_t index = LayerAt(hwnd, GET_Y_LPARAM(lp));
      if (index < 0 || !g_layers.doc) return 0;
      Document& doc = *g_layers.doc;
      if (doc.active != index) {
        doc.active = index;
        NotifyLayersChanged(doc);
      }
      HMENU menu = CreatePopupMenu();
      AppendMenuW(menu, MF_STRING, kCmdLayerProperties, L"&Properties and Effects\u2026");
      AppendMenuW(menu, MF_SEPARATOR, 0, nullptr);
      AppendMenuW(menu, MF_STRING, kCmdDuplicateLayer, L"D&uplicate Layer");
      AppendMenuW(menu, MF_STRING | (doc.LayerCount() > 1 ? 0u : MF_GRAYED), kCmdDeleteLayer, L"&Delete Layer");
      AppendMenuW(menu, MF_STRING | (index > 0 ? 0u : MF_GRAYED), kCmdMergeDown, L"&Merge Down");
      POINT at{GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
      ClientToScreen(hwnd, &at);
      int command = 0;
      {
        SystemModalWatch watch;
        command = TrackPopupMenu(menu, TPM_RETURNCMD | TPM_RIGHTBUTTON, at.x, at.y, 0, hwnd, nullptr);
      }
      DestroyMenu(menu);
      if (command) SendMessageW(GetAncestor(hwnd, GA_ROOT), WM_COMMAND, static_cast<WPARAM>(command), 0);
      return 0;
    }
    case WM_LBUTTONDBLCLK: {
      const int32_t index = LayerAt(hwnd, GET_Y_LPARAM(lp));
      if (index >= 0 && GET_X_LPARAM(lp) >= S(hwnd, 26)) Rename(hwnd, index);
      return 0;
    }
    case WM_DRAWITEM:
      DrawPushButton(*reinterpret_cast<const DRAWITEMSTRUCT*>(lp), false);
      return TRUE;
    case WM_NOTIFY:
      return DrawSliderPart(*reinterpret_cast<const NMHDR*>(lp));
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
      if (HBRUSH brush = DialogControlColor(msg, wp)) return reinterpret_cast<LRESULT>(brush);
      break;
    case WM_HSCROLL: {
      Document* doc = g_layers.doc;
      Layer* active = doc ? ActiveLayer(doc) : nullptr;
      if (!active || reinterpret_cast<HWND>(lp) != g_layers.opacity) return 0;
      const int32_t value = static_cast<int32_t>(SendMessageW(g_layers.opacity, TBM_GETPOS, 0, 0));
      // One undo step for a whole drag of the slider.
      if (value != active->opacity) {
        if (!g_layers.opacityDragging) PushLayer(*doc, doc->active, u"Layer Opacity");
        g_layers.opacityDragging = LOWORD(wp) != TB_ENDTRACK && LOWORD(wp) != TB_THUMBPOSITION;
        active = ActiveLayer(doc);
        active->opacity = value;
        Invalidate(*doc, doc->active, doc->Bounds());
      } else if (LOWORD(wp) == TB_ENDTRACK) {
        g_layers.opacityDragging = false;
      }
      if (LOWORD(wp) == TB_ENDTRACK) BackToCanvas(hwnd);
      return 0;
    }
    case WM_COMMAND: {
      HWND main = GetAncestor(hwnd, GA_ROOT);
      switch (LOWORD(wp)) {
        case kNewId:
        case kDuplicateId:
        case kDeleteId: {
          const int32_t command = LOWORD(wp) == kNewId         ? kCmdNewLayer
                                  : LOWORD(wp) == kDuplicateId ? kCmdDuplicateLayer
                                                               : kCmdDeleteLayer;
          BackToCanvas(hwnd);
          SendMessageW(main, WM_COMMAND, static_cast<WPARAM>(command), 0);
          return 0;
        }
        case kBlendId:
          if (HIWORD(wp) == CBN_CLOSEUP) BackToCanvas(hwnd);
          if (HIWORD(wp) == CBN_SELCHANGE && g_layers.doc && ActiveLayer(g_layers.doc)) {
            Document& doc = *g_layers.doc;
            const int32_t mode = static_cast<int32_t>(SendMessageW(g_layers.blend, CB_GETCURSEL, 0, 0));
            if (mode >= 0 && mode != ActiveLayer(&doc)->blendMode) {
              PushLayer(doc, doc.active, u"Blend Mode");
              ActiveLayer(&doc)->blendMode = mode;
              Changed(doc, doc.active);
            }
          }
          return 0;
      }
      return 0;
    }
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

HWND Child(HWND parent, const wchar_t* cls, const wchar_t* text, DWORD style, int id) {
  HWND c = CreateWindowExW(0, cls, text, WS_CHILD | WS_VISIBLE | style, 0, 0, 10, 10, parent,
                           reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr), nullptr);
  SendMessageW(c, WM_SETFONT, reinterpret_cast<WPARAM>(g_layers.font), TRUE);
  return c;
}

}  // namespace

void RegisterLayersPanelClass(HINSTANCE instance) {
  INITCOMMONCONTROLSEX icc{sizeof icc, ICC_BAR_CLASSES};
  InitCommonControlsEx(&icc);
  WNDCLASSEXW wc{sizeof wc};
  wc.style = CS_DBLCLKS;
  wc.lpfnWndProc = PanelProc;
  wc.hInstance = instance;
  wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  wc.lpszClassName = L"KZLayers";
  RegisterClassExW(&wc);
}

HWND CreateLayersPanel(HWND parent, HINSTANCE instance) {
  HWND panel = CreateWindowExW(0, L"KZLayers", L"Layers", WS_CHILD | WS_CLIPSIBLINGS | WS_CLIPCHILDREN,
                               0, 0, 100, 100, parent, nullptr, instance, nullptr);
  g_layers.font = CreateFontW(-S(panel, 12), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0,
                              CLEARTYPE_QUALITY, 0, L"Segoe UI");
  g_layers.opacity = Child(panel, TRACKBAR_CLASSW, L"", TBS_HORZ | TBS_NOTICKS, kOpacityId);
  SendMessageW(g_layers.opacity, TBM_SETRANGE, FALSE, MAKELPARAM(0, 255));
  g_layers.blend = Child(panel, L"ComboBox", L"", CBS_DROPDOWNLIST | WS_VSCROLL, kBlendId);
  for (int32_t m = 0; m < kBlendModeCount; ++m) {
    const std::u16string_view name = BlendModeName(m);
    const std::wstring w(name.begin(), name.end());
    SendMessageW(g_layers.blend, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(w.c_str()));
  }
  g_layers.buttons[0] = Child(panel, L"Button", L"New", BS_PUSHBUTTON, kNewId);
  g_layers.buttons[1] = Child(panel, L"Button", L"Duplicate", BS_PUSHBUTTON, kDuplicateId);
  g_layers.buttons[2] = Child(panel, L"Button", L"Delete", BS_PUSHBUTTON, kDeleteId);
  SyncControls();
  return panel;
}

void SetLayersPanelDocument(HWND panel, Document* doc) {
  g_layers.doc = doc;
  g_layers.dragFrom = -1;
  SyncControls();
  InvalidateRect(panel, nullptr, FALSE);
}

void SetLayersPanelTheme(HWND panel, bool dark) {
  g_layers.dark = dark;
  // The system draws push buttons light whatever their colours: in the dark
  // theme the panel draws them itself.
  for (HWND b : g_layers.buttons) {
    if (!b) continue;
    const LONG_PTR style = GetWindowLongPtrW(b, GWL_STYLE) & ~LONG_PTR{BS_TYPEMASK};
    SetWindowLongPtrW(b, GWL_STYLE, style | static_cast<LONG_PTR>(PushButtonStyle(false)));
    InvalidateRect(b, nullptr, TRUE);
  }
  SetControlDarkMode(g_layers.blend, dark);
  for (HWND c : {g_layers.opacity, g_layers.blend})
    if (c) InvalidateRect(c, nullptr, TRUE);
  InvalidateRect(panel, nullptr, FALSE);
}

void RefreshLayersPanel(HWND panel) {
  SyncControls();
  InvalidateRect(panel, nullptr, FALSE);
}

}  // namespace tavora

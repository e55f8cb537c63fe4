// "KZPrint": the print preview and the printing itself. The sheet's
// arithmetic and the preview's pixels come from print_layout; this file asks
// the printer driver for the sheet and feeds the spooler.
#include "auxiliary/print_window.h"

#include <commctrl.h>
#include <commdlg.h>
#include <winspool.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "auxiliary/print_layout.h"
#include "base/settings_store.h"
#include "document/composite.h"
#include "platform/dialog_win32.h"
#include "platform/dpi_win32.h"
#include "platform/message_box_win32.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"
#include "processing/resample.h"

namespace tavora {
namespace {

constexpr const wchar_t* kTitle = L"Print";
constexpr const wchar_t* kNoPrinter =
    L"No printer is installed.\n\nAdd a printer in the system's settings, then choose File > Print again.";
// The preview works from a copy no larger than this on its long side.
constexpr int32_t kPreviewSide = 1200;
// Pixels sent per page at most (the driver stretches beyond), and per band.
constexpr int64_t kMaxPrintPixels = 48'000'000;
constexpr int64_t kBandBytes = 8 << 20;

enum : int {
  kPrinterId = 200, kSetupId, kOrientationId, kSizingId, kScaleId, kScaleSpinId, kCenteredId, kOffsetXId, kOffsetYId,
  kMarginLeftId, kMarginTopId, kMarginRightId, kMarginBottomId, kCopiesId, kCopiesSpinId, kToFileId,
};

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

// The chosen printer as the common dialogs keep it. The handles belong to
// this record; the dialogs may replace them.
struct PrinterChoice {
  HGLOBAL devMode = nullptr, devNames = nullptr;
  PrinterChoice() = default;
  PrinterChoice(const PrinterChoice&) = delete;
  PrinterChoice& operator=(const PrinterChoice&) = delete;
  ~PrinterChoice() {
    if (devMode) GlobalFree(devMode);
    if (devNames) GlobalFree(devNames);
  }
  bool Present() const { return devNames != nullptr; }
  std::wstring Name(int part) const {  // 0 driver, 1 device, 2 port
    if (!devNames) return {};
    const auto* names = static_cast<const DEVNAMES*>(GlobalLock(devNames));
    if (!names) return {};
    const WORD offsets[] = {names->wDriverOffset, names->wDeviceOffset, names->wOutputOffset};
    std::wstring s = reinterpret_cast<const wchar_t*>(names) + offsets[part];
    GlobalUnlock(devNames);
    return s;
  }
};

struct State {
  HWND window = nullptr;
  Document* doc = nullptr;
  Surface flat;     // the picture as printed: flattened on white
  Surface reduced;  // the same for the preview
  PrintSettings settings;
  PrinterChoice printer;
  PageMetrics page;         // turned to the orientation
  bool pageFromPrinter = false;
  PrintPlacement placement;
  RECT previewRect{};
  HWND printerName = nullptr, status = nullptr, orientation = nullptr, sizing = nullptr;
  HWND scale = nullptr, scaleSpin = nullptr, centered = nullptr, offsetX = nullptr, offsetY = nullptr;
  HWND margins[4] = {}, copies = nullptr, copiesSpin = nullptr, toFile = nullptr;
  bool syncing = false;
  bool done = false;
};
State* g_print = nullptr;  // one print window at a time

// ---- the printer

std::vector<std::wstring> InstalledPrinters() {
  DWORD needed = 0, count = 0;
  const DWORD flags = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;
  EnumPrintersW(flags, nullptr, 4, nullptr, 0, &needed, &count);
  std::vector<std::wstring> names;
  if (needed == 0) return names;
  std::vector<BYTE> buffer(needed);
  if (!EnumPrintersW(flags, nullptr, 4, buffer.data(), needed, &needed, &count)) return names;
  const auto* info = reinterpret_cast<const PRINTER_INFO_4W*>(buffer.data());
  for (DWORD i = 0; i < count; ++i)
    if (info[i].pPrinterName) names.emplace_back(info[i].pPrinterName);
  return names;
}

HGLOBAL GlobalCopy(const void* data, std::size_t bytes) {
  HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, bytes);
  if (!h) return nullptr;
  if (void* p = GlobalLock(h)) {
    std::memcpy(p, data, bytes);
    GlobalUnlock(h);
  }
  return h;
}

// The named printer with its own default settings, made as the common
// dialogs would make them.
bool ChoosePrinterByName(PrinterChoice& choice, const std::wstring& name) {
  HANDLE handle = nullptr;
  if (!OpenPrinterW(const_cast<wchar_t*>(name.c_str()), &handle, nullptr)) return false;
  const LONG size = DocumentPropertiesW(nullptr, handle, const_cast<wchar_t*>(name.c_str()), nullptr, nullptr, 0);
  std::vector<BYTE> mode(size > 0 ? static_cast<std::size_t>(size) : 0);
  const bool gotMode = size > 0 && DocumentPropertiesW(nullptr, handle, const_cast<wchar_t*>(name.c_str()),
                                                       reinterpret_cast<DEVMODEW*>(mode.data()), nullptr,
                                                       DM_OUT_BUFFER) == IDOK;
  DWORD needed = 0;
  GetPrinterW(handle, 2, nullptr, 0, &needed);
  std::wstring port;
  if (needed > 0) {
    std::vector<BYTE> info(needed);
    if (GetPrinterW(handle, 2, info.data(), needed, &needed)) {
      const auto* pi = reinterpret_cast<const PRINTER_INFO_2W*>(info.data());
      if (pi->pPortName) port = pi->pPortName;
    }
  }
  ClosePrinter(handle);
  const std::wstring driver = L"winspool";
  std::vector<wchar_t> names(sizeof(DEVNAMES) / sizeof(wchar_t) + driver.size() + name.size() + port.size() + 3);
  auto* dn = reinterpret_cast<DEVNAMES*>(names.data());
  WORD at = sizeof(DEVNAMES) / sizeof(wchar_t);
  for (auto [text, offset] : {std::pair{&driver, &dn->wDriverOffset}, {&name, &dn->wDeviceOffset},
                              {&port, &dn->wOutputOffset}}) {
    *offset = at;
    std::copy(text->begin(), text->end(), names.begin() + at);
    at = static_cast<WORD>(at + text->size() + 1);
  }
  PrinterChoice fresh;
  fresh.devNames = GlobalCopy(names.data(), names.size() * sizeof(wchar_t));
  if (gotMode) fresh.devMode = GlobalCopy(mode.data(), mode.size());
  if (!fresh.devNames) return false;
  std::swap(choice.devMode, fresh.devMode);
  std::swap(choice.devNames, fresh.devNames);
  return true;
}

// The system's default printer, else the first one installed.
void ChooseDefaultPrinter(PrinterChoice& choice) {
  PRINTDLGW pd{sizeof pd};
  pd.Flags = PD_RETURNDEFAULT;
  if (PrintDlgW(&pd) && pd.hDevNames) {
    choice.devMode = pd.hDevMode;
    choice.devNames = pd.hDevNames;
    return;
  }
  if (pd.hDevMode) GlobalFree(pd.hDevMode);
  if (pd.hDevNames) GlobalFree(pd.hDevNames);
  for (const std::wstring& name : InstalledPrinters())
    if (ChoosePrinterByName(choice, name)) return;
}

// The printer's settings with the orientation and a single copy (copies
// are printed as separate pages, which every driver honours).
std::vector<BYTE> ModeFor(const PrinterChoice& choice, PrintOrientation orientation) {
  std::vector<BYTE> bytes;
  if (!choice.devMode) return bytes;
  const auto* mode = static_cast<const DEVMODEW*>(GlobalLock(choice.devMode));
  if (!mode) return bytes;
  const std::size_t size = std::size_t(mode->dmSize) + mode->dmDriverExtra;
  bytes.assign(reinterpret_cast<const BYTE*>(mode), reinterpret_cast<const BYTE*>(mode) + size);
  GlobalUnlock(choice.devMode);
  auto* m = reinterpret_cast<DEVMODEW*>(bytes.data());
  m->dmFields |= DM_ORIENTATION | DM_COPIES;
  m->dmOrientation = orientation == PrintOrientation::Landscape ? DMORIENT_LANDSCAPE : DMORIENT_PORTRAIT;
  m->dmCopies = 1;
  return bytes;
}

std::optional<PrintOrientation> OrientationOf(const PrinterChoice& choice) {
  if (!choice.devMode) return std::nullopt;
  const auto* mode = static_cast<const DEVMODEW*>(GlobalLock(choice.devMode));
  if (!mode) return std::nullopt;
  std::optional<PrintOrientation> o;
  if (mode->dmFields & DM_ORIENTATION)
    o = mode->dmOrientation == DMORIENT_LANDSCAPE ? PrintOrientation::Landscape : PrintOrientation::Portrait;
  GlobalUnlock(choice.devMode);
  return o;
}

HDC PrinterDC(const PrinterChoice& choice, PrintOrientation orientation, bool informationOnly) {
  if (!choice.Present()) return nullptr;
  const std::wstring driver = choice.Name(0), device = choice.Name(1);
  std::vector<BYTE> mode = ModeFor(choice, orientation);
  const auto* m = mode.empty() ? nullptr : reinterpret_cast<const DEVMODEW*>(mode.data());
  return informationOnly ? CreateICW(driver.c_str(), device.c_str(), nullptr, m)
                         : CreateDCW(driver.c_str(), device.c_str(), nullptr, m);
}

PageMetrics MetricsOf(HDC dc) {
  PageMetrics p;
  p.dpiX = GetDeviceCaps(dc, LOGPIXELSX);
  p.dpiY = GetDeviceCaps(dc, LOGPIXELSY);
  const int w = GetDeviceCaps(dc, HORZRES), h = GetDeviceCaps(dc, VERTRES);
  p.paperWidth = GetDeviceCaps(dc, PHYSICALWIDTH);
  p.paperHeight = GetDeviceCaps(dc, PHYSICALHEIGHT);
  const int ox = GetDeviceCaps(dc, PHYSICALOFFSETX), oy = GetDeviceCaps(dc, PHYSICALOFFSETY);
  if (p.paperWidth < w || p.paperHeight < h) {  // a device that reports no sheet: its area is the sheet
    p.paperWidth = w;
    p.paperHeight = h;
    p.printable = {0, 0, w, h};
  } else {
    p.printable = {ox, oy, ox + w, oy + h};
  }
  return p;
}

// ---- the window's values

std::optional<int32_t> EditNumber(HWND edit) {
  wchar_t text[32] = {};
  GetWindowTextW(edit, text, 32);
  wchar_t* end = nullptr;
  const long v = std::wcstol(text, &end, 10);
  if (end == text) return std::nullopt;
  while (*end == L' ') ++end;
  if (*end) return std::nullopt;
  return static_cast<int32_t>(std::clamp<long>(v, -1'000'000, 1'000'000));
}

bool IsChecked(HWND h) { return SendMessageW(h, BM_GETCHECK, 0, 0) == BST_CHECKED; }

// The values on screen; a field that is not a number keeps the last value.
PrintSettings ReadSettings(const State& s) {
  PrintSettings v = s.settings;
  v.orientation = static_cast<PrintOrientation>(SendMessageW(s.orientation, CB_GETCURSEL, 0, 0) == 1);
  v.sizing = static_cast<PrintSizing>(SendMessageW(s.sizing, CB_GETCURSEL, 0, 0) == 1);
  v.centered = IsChecked(s.centered);
  v.toFile = IsChecked(s.toFile);
  for (auto [edit, value] : {std::pair{s.scale, &v.scale}, {s.offsetX, &v.offsetX}, {s.offsetY, &v.offsetY},
                             {s.margins[0], &v.marginLeft}, {s.margins[1], &v.marginTop},
                             {s.margins[2], &v.marginRight}, {s.margins[3], &v.marginBottom},
                             {s.copies, &v.copies}})
    if (const auto n = EditNumber(edit)) *value = *n;
  return ClampPrintSettings(v);
}

void ShowSettings(State& s) {
  s.syncing = true;
  const PrintSettings& v = s.settings;
  SendMessageW(s.orientation, CB_SETCURSEL, static_cast<WPARAM>(v.orientation), 0);
  SendMessageW(s.sizing, CB_SETCURSEL, static_cast<WPARAM>(v.sizing), 0);
  SendMessageW(s.centered, BM_SETCHECK, v.centered ? BST_CHECKED : BST_UNCHECKED, 0);
  SendMessageW(s.toFile, BM_SETCHECK, v.toFile ? BST_CHECKED : BST_UNCHECKED, 0);
  for (auto [edit, value] : {std::pair{s.scale, v.scale}, {s.offsetX, v.offsetX}, {s.offsetY, v.offsetY},
                             {s.margins[0], v.marginLeft}, {s.margins[1], v.marginTop},
                             {s.margins[2], v.marginRight}, {s.margins[3], v.marginBottom}, {s.copies, v.copies}})
    SetWindowTextW(edit, std::to_wstring(value).c_str());
  s.syncing = false;
}

void EnableChoices(const State& s) {
  EnableWindow(s.scale, s.settings.sizing == PrintSizing::Scale);
  EnableWindow(s.scaleSpin, s.settings.sizing == PrintSizing::Scale);
  EnableWindow(s.offsetX, !s.settings.centered);
  EnableWindow(s.offsetY, !s.settings.centered);
}

// Asks the driver for the sheet again (after a change of printer, paper or
// orientation).
void QueryPage(State& s) {
  s.pageFromPrinter = false;
  s.page = DefaultPageMetrics();
  if (HDC ic = PrinterDC(s.printer, s.settings.orientation, true)) {
    const PageMetrics m = MetricsOf(ic);
    DeleteDC(ic);
    if (ValidPage(m)) {
      s.page = m;
      s.pageFromPrinter = true;
    }
  }
  s.page = OrientPage(s.page, s.settings.orientation);
  std::wstring name = s.printer.Present() ? s.printer.Name(1) : L"(no printer installed)";
  if (s.pageFromPrinter) {
    wchar_t sheet[96];
    std::swprintf(sheet, 96, L"\n%.0f \u00D7 %.0f mm, %d dpi", s.page.paperWidth * 25.4 / s.page.dpiX,
                  s.page.paperHeight * 25.4 / s.page.dpiY, s.page.dpiX);
    name += sheet;
  }
  SetWindowTextW(s.printerName, name.c_str());
}

void Relayout(State& s) {
  s.placement = PlacePicture(s.doc->width, s.doc->height, s.doc->dpi, s.page, s.settings);
  SetWindowTextW(s.status, Wide(PrintSummary(s.placement, s.doc->width)).c_str());
  InvalidateRect(s.window, &s.previewRect, FALSE);
}

void OnValuesChanged(State& s) {
  if (s.syncing) return;
  const PrintSettings before = s.settings;
  s.settings = ReadSettings(s);
  EnableChoices(s);
  if (s.settings.orientation != before.orientation) QueryPage(s);
  Relayout(s);
}

// ---- the system's printer dialogs

// The system's dialogs show the orientation the window has chosen.
void ShowOrientationToDialogs(State& s) {
  if (!s.printer.devMode) return;
  const std::vector<BYTE> mode = ModeFor(s.printer, s.settings.orientation);
  if (void* p = GlobalLock(s.printer.devMode)) {
    std::memcpy(p, mode.data(), mode.size());
    GlobalUnlock(s.printer.devMode);
  }
}

void RunPrinterDialog(State& s) {
  if (InstalledPrinters().empty()) {
    ShowMessageBox(s.window, kNoPrinter, kTitle, MB_OK | MB_ICONINFORMATION);
    return;
  }
  PRINTDLGW pd{sizeof pd};
  pd.hwndOwner = s.window;
  pd.hDevMode = s.printer.devMode;
  pd.hDevNames = s.printer.devNames;
  pd.Flags = PD_PRINTSETUP;
  ShowOrientationToDialogs(s);
  BOOL ok;
  {
    SystemModalWatch watch;
    ok = PrintDlgW(&pd);
  }
  // The dialog may have replaced the handles whether or not it was accepted.
  s.printer.devMode = pd.hDevMode;
  s.printer.devNames = pd.hDevNames;
  if (!ok) return;
  if (const auto o = OrientationOf(s.printer)) s.settings.orientation = *o;
  ShowSettings(s);
  QueryPage(s);
  Relayout(s);
}

void RunPageSetup(State& s) {
  if (InstalledPrinters().empty()) {
    ShowMessageBox(s.window, kNoPrinter, kTitle, MB_OK | MB_ICONINFORMATION);
    return;
  }
  ShowOrientationToDialogs(s);
  PAGESETUPDLGW psd{sizeof psd};
  psd.hwndOwner = s.window;
  psd.hDevMode = s.printer.devMode;
  psd.hDevNames = s.printer.devNames;
  psd.Flags = PSD_INHUNDREDTHSOFMILLIMETERS | PSD_MARGINS;
  psd.rtMargin = {s.settings.marginLeft * 100, s.settings.marginTop * 100, s.settings.marginRight * 100,
                  s.settings.marginBottom * 100};
  BOOL ok;
  {
    SystemModalWatch watch;
    ok = PageSetupDlgW(&psd);
  }
  s.printer.devMode = psd.hDevMode;
  s.printer.devNames = psd.hDevNames;
  if (!ok) return;
  auto mm = [](LONG hundredths) { return static_cast<int32_t>((hundredths + 50) / 100); };
  s.settings.marginLeft = mm(psd.rtMargin.left);
  s.settings.marginTop = mm(psd.rtMargin.top);
  s.settings.marginRight = mm(psd.rtMargin.right);
  s.settings.marginBottom = mm(psd.rtMargin.bottom);
  if (const auto o = OrientationOf(s.printer)) s.settings.orientation = *o;
  s.settings = ClampPrintSettings(s.settings);
  ShowSettings(s);
  QueryPage(s);
  Relayout(s);
}

std::optional<std::wstring> AskOutputFile(State& s) {
  std::wstring name = s.doc->path.empty() ? Wide(s.doc->title) : s.doc->path.stem().wstring();
  name += L".prn";
  name.resize(32768, L'\0');
  const std::wstring folder = s.doc->path.empty() ? std::wstring() : s.doc->path.parent_path().wstring();
  static const wchar_t filter[] = L"Printer files (*.prn;*.ps)\0*.prn;*.ps\0All files (*.*)\0*.*\0";
  OPENFILENAMEW ofn{sizeof ofn};
  ofn.hwndOwner = s.window;
  ofn.lpstrFilter = filter;
  ofn.lpstrFile = name.data();
  ofn.nMaxFile = static_cast<DWORD>(name.size());
  ofn.lpstrInitialDir = folder.empty() ? nullptr : folder.c_str();
  ofn.lpstrTitle = L"Print to File";
  ofn.lpstrDefExt = L"prn";
  ofn.Flags = OFN_EXPLORER | OFN_OVERWRITEPROMPT | OFN_PATHMUSTEXIST | OFN_HIDEREADONLY | OFN_NOCHANGEDIR;
  SystemModalWatch watch;
  if (!GetSaveFileNameW(&ofn)) return std::nullopt;
  return std::wstring(name.c_str());
}

// ---- printing

// The part of the picture that prints, at the size sent to the printer:
// the flattened picture itself when it goes whole and unscaled, else a
// picture made in `holder`.
const Surface& PrintPixels(const Surface& flat, const PrintPlacement& p, Surface& holder) {
  const Rect& src = p.source;
  const PixelSize size = PrintPixelSize(p.target, kMaxPrintPixels);
  const bool whole = src == Rect{0, 0, flat.Width(), flat.Height()};
  if (whole && size.width == flat.Width() && size.height == flat.Height()) return flat;
  if (!whole) {  // a picture cut by the margins sends only its visible part
    holder = Surface(src.Width(), src.Height());
    for (int32_t y = 0; y < src.Height(); ++y)
      std::copy_n(flat.Row(src.y0 + y) + src.x0, src.Width(), holder.Row(y));
    if (size.width == holder.Width() && size.height == holder.Height()) return holder;
  }
  holder = Resample(whole ? flat : holder, size.width, size.height, ResampleAlgorithm::Automatic);
  return holder;
}

enum class PrintResult { Printed, Cancelled, Failed };

PrintResult SendToPrinter(State& s, const std::wstring* outputFile) {
  HDC dc = PrinterDC(s.printer, s.settings.orientation, false);
  if (!dc) return PrintResult::Failed;
  // The sheet as this very device context has it.
  PageMetrics page = MetricsOf(dc);
  if (!ValidPage(page)) page = s.page;
  page = OrientPage(page, s.settings.orientation);
  const PrintPlacement p = PlacePicture(s.doc->width, s.doc->height, s.doc->dpi, page, s.settings);
  if (!Printable(p)) {
    DeleteDC(dc);
    return PrintResult::Failed;
  }
  HCURSOR cursor = SetCursor(LoadCursorW(nullptr, IDC_WAIT));
  Surface holder;
  const Surface& pixels = PrintPixels(s.flat, p, holder);
  const std::wstring docName = Wide(s.doc->title);
  DOCINFOW info{sizeof info};
  info.lpszDocName = docName.c_str();
  info.lpszOutput = outputFile ? outputFile->c_str() : nullptr;
  const int job = StartDocW(dc, &info);
  if (job <= 0) {
    const DWORD error = GetLastError();
    DeleteDC(dc);
    SetCursor(cursor);
    return error == ERROR_CANCELLED ? PrintResult::Cancelled : PrintResult::Failed;
  }
  BITMAPINFO bi{};
  bi.bmiHeader.biSize = sizeof bi.bmiHeader;
  bi.bmiHeader.biWidth = pixels.Width();
  bi.bmiHeader.biPlanes = 1;
  bi.bmiHeader.biBitCount = 32;
  bi.bmiHeader.biCompression = BI_RGB;
  const int32_t maxRows = static_cast<int32_t>(std::max<int64_t>(1, kBandBytes / (int64_t{pixels.Width()} * 4)));
  const std::vector<PrintBand> bands = PrintBands(pixels.Height(), p.target, maxRows);
  // The device's origin is the corner of its printable area.
  const int ox = page.printable.x0, oy = page.printable.y0;
  bool ok = true;
  for (int32_t copy = 0; ok && copy < s.settings.copies; ++copy) {
    ok = StartPage(dc) > 0;
    if (!ok) break;
    SetStretchBltMode(dc, HALFTONE);
    SetBrushOrgEx(dc, 0, 0, nullptr);
    IntersectClipRect(dc, p.visible.x0 - ox, p.visible.y0 - oy, p.visible.x1 - ox, p.visible.y1 - oy);
    for (const PrintBand& band : bands) {
      const int rows = band.rowEnd - band.rowStart;
      bi.bmiHeader.biHeight = -rows;  // top-down
      if (StretchDIBits(dc, p.target.x0 - ox, band.sheetTop - oy, p.target.Width(), band.sheetBottom - band.sheetTop,
                        0, 0, pixels.Width(), rows, pixels.Row(band.rowStart), &bi, DIB_RGB_COLORS,
                        SRCCOPY) == static_cast<int>(GDI_ERROR)) {
        ok = false;
        break;
      }
    }
    SelectClipRgn(dc, nullptr);
    if (EndPage(dc) <= 0) ok = false;
  }
  if (ok) ok = EndDoc(dc) > 0;
  else AbortDoc(dc);
  DeleteDC(dc);
  SetCursor(cursor);
  return ok ? PrintResult::Printed : PrintResult::Failed;
}

void Print(State& s) {
  s.settings = ReadSettings(s);
  SavePrintSettings(AppSettings(), s.settings);
  if (!s.printer.Present()) {
    ShowMessageBox(s.window, kNoPrinter, kTitle, MB_OK | MB_ICONINFORMATION);
    return;
  }
  if (!Printable(s.placement)) {
    ShowMessageBox(s.window, Wide(PrintSummary(s.placement, s.doc->width)), kTitle, MB_OK | MB_ICONINFORMATION);
    return;
  }
  std::optional<std::wstring> file;
  if (s.settings.toFile && !(file = AskOutputFile(s))) return;
  const PrintResult result = SendToPrinter(s, file ? &*file : nullptr);
  if (result == PrintResult::Failed) {
    const std::wstring text = L"The picture could not be printed on \"" + s.printer.Name(1) + L"\"" +
                              (file ? L" to \"" + *file + L"\"." : std::wstring(L"."));
    ShowMessageBox(s.window, text, kTitle, MB_OK | MB_ICONWARNING);
    return;
  }
  if (result == PrintResult::Printed) s.done = true;
}

void Close(State& s) {
  s.settings = ReadSettings(s);
  SavePrintSettings(AppSettings(), s.settings);
  s.done = true;
}

// ---- the window

void PaintPreview(State& s, HDC dc) {
  const RECT& r = s.previewRect;
  const int w = r.right - r.left, h = r.bottom - r.top;
  if (w <= 0 || h <= 0) return;
  Surface view(w, h);
  const COLORREF bg = DialogThemeDark() ? DialogThemeColors().window : GetSysColor(COLOR_APPWORKSPACE);
  const uint32_t background = uint32_t(GetRValue(bg)) << 16 | uint32_t(GetGValue(bg)) << 8 | GetBValue(bg);
  RenderPrintPreview(view, s.page, s.placement, s.reduced, background);
  BITMAPINFO bi{};
  bi.bmiHeader.biSize = sizeof bi.bmiHeader;
  bi.bmiHeader.biWidth = w;
  bi.bmiHeader.biHeight = -h;
  bi.bmiHeader.biPlanes = 1;
  bi.bmiHeader.biBitCount = 32;
  bi.bmiHeader.biCompression = BI_RGB;
  SetDIBitsToDevice(dc, r.left, r.top, w, h, 0, 0, 0, h, view.Data(), &bi, DIB_RGB_COLORS);
}

LRESULT CALLBACK PrintProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  State* s = g_print;
  if (!s) return DefWindowProcW(hwnd, msg, wp, lp);
  switch (msg) {
    case WM_COMMAND: {
      const int id = LOWORD(wp), code = HIWORD(wp);
      if (id == IDOK) Print(*s);
      else if (id == IDCANCEL) Close(*s);
      else if (id == kPrinterId && code == BN_CLICKED) RunPrinterDialog(*s);
      else if (id == kSetupId && code == BN_CLICKED) RunPageSetup(*s);
      else if ((id == kOrientationId || id == kSizingId) && code == CBN_SELCHANGE) OnValuesChanged(*s);
      else if ((id == kCenteredId || id == kToFileId) && code == BN_CLICKED) OnValuesChanged(*s);
      else if (code == EN_CHANGE) OnValuesChanged(*s);
      return 0;
    }
    case WM_PAINT: {
      PAINTSTRUCT ps;
      HDC dc = BeginPaint(hwnd, &ps);
      PaintPreview(*s, dc);
      EndPaint(hwnd, &ps);
      return 0;
    }
    case WM_DRAWITEM: {
      const auto& item = *reinterpret_cast<const DRAWITEMSTRUCT*>(lp);
      DrawPushButton(item, item.CtlID == IDOK);
      return TRUE;
    }
    case DM_GETDEFID:
      return DefaultButtonAnswer(hwnd, IDOK);
    case WM_ERASEBKGND: {
      // Everything but the preview, which paints every pixel itself.
      HDC dc = reinterpret_cast<HDC>(wp);
      RECT r;
      GetClientRect(hwnd, &r);
      const int saved = SaveDC(dc);
      ExcludeClipRect(dc, s->previewRect.left, s->previewRect.top, s->previewRect.right, s->previewRect.bottom);
      FillRect(dc, &r, DialogBackgroundBrush());
      RestoreDC(dc, saved);
      return 1;
    }
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLORBTN:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
      if (HBRUSH brush = DialogControlColor(msg, wp)) return reinterpret_cast<LRESULT>(brush);
      break;
    case WM_CLOSE:
      Close(*s);
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

HWND Spin(HWND parent, HWND buddy, int id, int low, int high) {
  HWND spin = CreateWindowExW(0, UPDOWN_CLASSW, L"",
                              WS_CHILD | WS_VISIBLE | UDS_SETBUDDYINT | UDS_ALIGNRIGHT | UDS_ARROWKEYS | UDS_NOTHOUSANDS,
                              0, 0, 0, 0, parent, reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                              GetModuleHandleW(nullptr), nullptr);
  SendMessageW(spin, UDM_SETBUDDY, reinterpret_cast<WPARAM>(buddy), 0);
  SendMessageW(spin, UDM_SETRANGE32, low, high);
  return spin;
}

}  // namespace

void RunPrintWindow(HWND owner, Document& doc) {
  if (g_print) return;
  static bool registered = false;
  if (!registered) {
    INITCOMMONCONTROLSEX icc{sizeof icc, ICC_STANDARD_CLASSES | ICC_UPDOWN_CLASS};
    InitCommonControlsEx(&icc);
    WNDCLASSEXW wc{sizeof wc};
    wc.lpfnWndProc = PrintProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.lpszClassName = L"KZPrint";
    RegisterClassExW(&wc);
    registered = true;
  }
  State s;
  s.doc = &doc;
  s.settings = LoadPrintSettings(AppSettings().Snapshot());
  s.flat = FlatCopy(doc, 0xFFFFFF, Matte::Use);
  {
    const int32_t longest = std::max(s.flat.Width(), s.flat.Height());
    if (longest > kPreviewSide) {
      const double k = double(kPreviewSide) / longest;
      s.reduced = Resample(s.flat, std::max(1, static_cast<int32_t>(s.flat.Width() * k)),
                           std::max(1, static_cast<int32_t>(s.flat.Height() * k)), ResampleAlgorithm::AreaAverage);
    } else {
      s.reduced = s.flat;
    }
  }
  ChooseDefaultPrinter(s.printer);

  const UINT dpi = owner ? WindowDpi(owner) : SystemDpi();
  auto S = [dpi](int v) { return MulDiv(v, static_cast<int>(dpi), 96); };
  const int width = S(900), height = S(640);
  RECT area{};
  if (!owner || !GetWindowRect(owner, &area)) SystemParametersInfoW(SPI_GETWORKAREA, 0, &area, 0);
  g_print = &s;
  s.window = CreateWindowExW(WS_EX_DLGMODALFRAME, L"KZPrint", kTitle, WS_POPUP | WS_CAPTION | WS_SYSMENU,
                             (area.left + area.right - width) / 2, (area.top + area.bottom - height) / 2, width, height,
                             owner, nullptr, GetModuleHandleW(nullptr), nullptr);
  if (!s.window) {
    g_print = nullptr;
    return;
  }
  HFONT font = CreateFontW(-S(12), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0,
                           L"Segoe UI");
  RECT client;
  GetClientRect(s.window, &client);
  const int column = client.right - S(300), right = client.right - S(14), labelW = S(120);
  const int field = column + labelW, fieldW = right - field;
  s.previewRect = {S(14), S(14), column - S(16), client.bottom - S(14)};
  auto label = [&](const wchar_t* text, int x, int y, int w) {
    CreateControl(s.window, L"Static", text, SS_LEFT, x, y + S(4), w, S(20), -1, font);
  };
  auto number = [&](int x, int y, int w, int id) {
    HWND e = CreateControl(s.window, L"Edit", L"", ES_AUTOHSCROLL | ES_NUMBER | WS_TABSTOP, x, y, w, S(24), id, font);
    SendMessageW(e, EM_SETLIMITTEXT, 6, 0);
    return e;
  };
  auto combo = [&](int y, int id, std::initializer_list<const wchar_t*> items) {
    HWND c = CreateControl(s.window, L"ComboBox", L"", CBS_DROPDOWNLIST | WS_VSCROLL | WS_TABSTOP, field, y, fieldW, S(200),
                     id, font);
    for (const wchar_t* item : items) SendMessageW(c, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(item));
    FitDroppedWidth(c);
    return c;
  };

  int y = S(14);
  label(L"Printer:", column, y - S(4), right - column);
  y += S(18);
  s.printerName = CreateControl(s.window, L"Static", L"", SS_LEFT | SS_NOPREFIX, column, y, right - column, S(36), -1, font);
  y += S(42);
  const int half = (right - column - S(8)) / 2;
  CreateControl(s.window, L"Button", L"Printer\u2026", PushButtonStyle(false) | WS_TABSTOP, column, y, half, S(28), kPrinterId,
          font);
  CreateControl(s.window, L"Button", L"Page Setup\u2026", PushButtonStyle(false) | WS_TABSTOP, column + half + S(8), y, half,
          S(28), kSetupId, font);
  y += S(42);
  label(L"Orientation:", column, y, labelW);
  s.orientation = combo(y, kOrientationId, {L"Portrait", L"Landscape"});
  y += S(34);
  label(L"Size:", column, y, labelW);
  s.sizing = combo(y, kSizingId, {L"Fit to page", L"Scale"});
  y += S(34);
  label(L"Scale (%):", column, y, labelW);
  s.scale = number(field, y, S(80), kScaleId);
  s.scaleSpin = Spin(s.window, s.scale, kScaleSpinId, 1, kPrintMaxScale);
  {
    wchar_t dpiText[48];
    std::swprintf(dpiText, 48, L"at %d dpi", doc.dpi >= 1 ? doc.dpi : 72);
    label(dpiText, field + S(88), y, right - field - S(88));
  }
  y += S(36);
  s.centered = CreateControl(s.window, L"Button", L"Centered on the page", BS_AUTOCHECKBOX | WS_TABSTOP, column, y,
                       right - column, S(24), kCenteredId, font);
  y += S(30);
  label(L"Left offset (mm):", column, y, labelW);
  s.offsetX = number(field, y, S(80), kOffsetXId);
  y += S(32);
  label(L"Top offset (mm):", column, y, labelW);
  s.offsetY = number(field, y, S(80), kOffsetYId);
  y += S(38);
  label(L"Margins (mm)", column, y - S(4), right - column);
  y += S(22);
  const int marginLabel = S(56), marginEdit = S(64);
  const wchar_t* marginNames[4] = {L"Left:", L"Top:", L"Right:", L"Bottom:"};
  for (int i = 0; i < 4; ++i) {
    const int x = column + (i % 2) * (half + S(8)), row = y + (i / 2) * S(32);
    label(marginNames[i], x, row, marginLabel);
    s.margins[i] = number(x + marginLabel, row, marginEdit, kMarginLeftId + i);
  }
  y += S(72);
  label(L"Copies:", column, y, labelW);
  s.copies = number(field, y, S(80), kCopiesId);
  s.copiesSpin = Spin(s.window, s.copies, kCopiesSpinId, 1, kPrintMaxCopies);
  y += S(36);
  s.toFile = CreateControl(s.window, L"Button", L"Print to file", BS_AUTOCHECKBOX | WS_TABSTOP, column, y, right - column,
                     S(24), kToFileId, font);
  y += S(32);
  s.status = CreateControl(s.window, L"Static", L"", SS_LEFT | SS_NOPREFIX, column, y, right - column, S(64), -1, font);
  const int buttonsY = client.bottom - S(42);
  CreateControl(s.window, L"Button", L"Print", PushButtonStyle(true) | WS_TABSTOP, right - S(186), buttonsY, S(88), S(28),
          IDOK, font);
  CreateControl(s.window, L"Button", L"Close", PushButtonStyle(false) | WS_TABSTOP, right - S(88), buttonsY, S(88), S(28),
          IDCANCEL, font);

  ShowSettings(s);
  EnableChoices(s);
  QueryPage(s);
  Relayout(s);
  ThemeDialog(s.window);
  {
    ModalWindow modal(s.window, owner);
    modal.Run(s.done, GetDlgItem(s.window, IDOK));
  }
  DeleteObject(font);
  g_print = nullptr;
}

}  // namespace tavora

#pragma once
// Printing's arithmetic: the remembered settings, where the picture lands on
// the sheet (fit or a scale at the picture's dpi, centred or offset, inside
// the margins), the pixels sent to the printer and the bands they go in,
// and the preview of the sheet. All in device pixels of the printer; the
// window only asks the driver for the sheet and draws what is computed here.
#include <cstdint>
#include <string>
#include <vector>

#include "base/settings_store.h"
#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

enum class PrintOrientation : int32_t { Portrait = 0, Landscape = 1 };
enum class PrintSizing : int32_t { FitToPage = 0, Scale = 1 };

// "Print": "Orientation" 0..1 (0), "Sizing" 0..1 (0), "Scale" 1..1000 (100),
// "Centered" 0/1 (1), "OffsetX" and "OffsetY" 0..1000 mm (0), "MarginLeft",
// "MarginTop", "MarginRight", "MarginBottom" 0..500 mm (10), "Copies" 1..99
// (1), "ToFile" 0/1 (0); values out of range are clamped.
inline constexpr int32_t kPrintMaxScale = 1000, kPrintMaxOffset = 1000, kPrintMaxMargin = 500,
                         kPrintMaxCopies = 99;
struct PrintSettings {
  PrintOrientation orientation = PrintOrientation::Portrait;
  PrintSizing sizing = PrintSizing::FitToPage;
  int32_t scale = 100;  // percent of the size the picture's dpi gives
  bool centered = true;
  int32_t offsetX = 0, offsetY = 0;  // mm from the top-left corner of the margins
  int32_t marginLeft = 10, marginTop = 10, marginRight = 10, marginBottom = 10;  // mm from the sheet's edges
  int32_t copies = 1;
  bool toFile = false;
};
[[nodiscard]] PrintSettings ClampPrintSettings(PrintSettings s);
[[nodiscard]] PrintSettings LoadPrintSettings(const SettingsSnapshot& settings);
void SavePrintSettings(SettingsStore& settings, const PrintSettings& s);

// The sheet as the printer reports it, in its device pixels.
struct PageMetrics {
  int32_t paperWidth = 0, paperHeight = 0;
  Rect printable;  // the part the printer can mark, on the sheet
  int32_t dpiX = 0, dpiY = 0;
};
// A4 at 600 dpi with a 5 mm unprintable edge: the sheet shown when there
// is no printer to ask.
[[nodiscard]] PageMetrics DefaultPageMetrics();
// A sheet with sizes and resolutions above zero and a printable area on it.
[[nodiscard]] bool ValidPage(const PageMetrics& page);
// The sheet turned a quarter to the orientation when the driver has not
// turned it already (a landscape sheet is wider than tall): sizes and
// resolutions swap, and the unprintable edges go round with the sheet.
[[nodiscard]] PageMetrics OrientPage(const PageMetrics& page, PrintOrientation orientation);

[[nodiscard]] int32_t MmToDevice(double mm, int32_t dpi);

enum class PlacementStatus {
  Ok,
  Clipped,    // the picture reaches beyond the margins: the part inside is printed
  NoRoom,     // the margins leave nothing of the sheet
  OffPage,    // the offsets move the picture wholly outside the margins
  NoPicture,  // an empty picture or an unusable sheet
};

struct PrintPlacement {
  PlacementStatus status = PlacementStatus::NoPicture;
  Rect area;     // inside the margins and the printable area, on the sheet
  Rect image;    // the whole picture on the sheet, possibly beyond `area`
  Rect visible;  // image within area: what is printed
  Rect source;   // the picture's pixels that cover `visible`
  Rect target;   // where `source` is drawn: covers `visible`, clipped to it
  double widthMm = 0, heightMm = 0;  // the whole picture's printed size
};
// Nothing but `status` and `area` is meaningful unless status is Ok or
// Clipped. A picture dpi below 1 counts as 72.
[[nodiscard]] PrintPlacement PlacePicture(int32_t imageWidth, int32_t imageHeight, int32_t imageDpi,
                                          const PageMetrics& page, const PrintSettings& settings);
[[nodiscard]] bool Printable(const PrintPlacement& p);

// The size of the pixels sent for `target`: the device's own resolution
// when that stays within maxPixels, else the largest size within it in the
// same proportions (the driver stretches the rest).
struct PixelSize {
  int32_t width = 0, height = 0;
  bool operator==(const PixelSize&) const = default;
};
[[nodiscard]] PixelSize PrintPixelSize(const Rect& target, int64_t maxPixels);

// Rows rows of pixels drawn into `target`, cut into bands of at most
// maxRows rows; the bands cover the target's rows once, in order, with no
// gap between them.
struct PrintBand {
  int32_t rowStart = 0, rowEnd = 0;      // of the pixels
  int32_t sheetTop = 0, sheetBottom = 0;  // on the sheet
};
[[nodiscard]] std::vector<PrintBand> PrintBands(int32_t rows, const Rect& target, int32_t maxRows);

// One line on the printed size and resolution, or what stops the printing.
[[nodiscard]] std::u16string PrintSummary(const PrintPlacement& p, int32_t imageWidth);

// The preview: the sheet fitted into `view` on the background colour, with
// a shadow, the margins dotted, and the picture where it prints.
// `picture` is the whole picture at any size (a reduced copy does);
// colours are 0x00RRGGBB.
void RenderPrintPreview(Surface& view, const PageMetrics& page, const PrintPlacement& placement,
                        const Surface& picture, uint32_t background);

}  // namespace tavora

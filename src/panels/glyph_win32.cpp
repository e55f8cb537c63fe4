#include "panels/glyph_win32.h"

#include <algorithm>
#include <cmath>

namespace tavora {

void DrawGlyph(HDC dc, const Rect& button, const std::vector<GlyphStroke>& strokes, COLORREF color, double scale) {
  const double unit = (button.Width() - 10.0 * scale) / 16.0;
  const double ox = button.x0 + 5.0 * scale, oy = button.y0 + 5.0 * scale;
  const auto X = [&](int32_t v) { return static_cast<int>(std::lround(ox + v * unit)); };
  const auto Y = [&](int32_t v) { return static_cast<int>(std::lround(oy + v * unit)); };
  HBRUSH fill = CreateSolidBrush(color);
  // Dashed outlines keep their gaps: the button shows through.
  const int oldMode = SetBkMode(dc, TRANSPARENT);
  for (const GlyphStroke& s : strokes) {
    const int width = std::max(1, static_cast<int>(std::lround(s.width * unit * 0.9)));
    LOGBRUSH solid{BS_SOLID, color, 0};
    HPEN pen = s.dashed ? CreatePen(PS_DOT, 1, color)
                        : ExtCreatePen(PS_GEOMETRIC | PS_SOLID | PS_ENDCAP_ROUND | PS_JOIN_ROUND,
                                       static_cast<DWORD>(width), &solid, 0, nullptr);
    HGDIOBJ oldPen = SelectObject(dc, pen);
    using K = GlyphStroke::Kind;
    const bool filled = s.kind == K::FilledEllipse || s.kind == K::Filled;
    HGDIOBJ oldBrush = SelectObject(dc, filled ? fill : GetStockObject(NULL_BRUSH));
    std::vector<POINT> pts;
    for (std::size_t i = 0; i + 1 < s.points.size(); i += 2) pts.push_back(POINT{X(s.points[i]), Y(s.points[i + 1])});
    switch (s.kind) {
      case K::Lines: Polyline(dc, pts.data(), static_cast<int>(pts.size())); break;
      case K::Closed: case K::Filled: Polygon(dc, pts.data(), static_cast<int>(pts.size())); break;
      case K::Ellipse: case K::FilledEllipse: Ellipse(dc, pts[0].x, pts[0].y, pts[1].x, pts[1].y); break;
      case K::Box: Rectangle(dc, pts[0].x, pts[0].y, pts[1].x, pts[1].y); break;
      case K::RoundBox: {
        const int round = static_cast<int>(5 * unit);
        RoundRect(dc, pts[0].x, pts[0].y, pts[1].x, pts[1].y, round, round);
        break;
      }
    }
    SelectObject(dc, oldBrush);
    SelectObject(dc, oldPen);
    DeleteObject(pen);
  }
  DeleteObject(fill);
  SetBkMode(dc, oldMode);
}

}  // namespace tavora

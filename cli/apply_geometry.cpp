#include "cli/apply_geometry.h"

#include <cmath>
#include <vector>

#include "base/unicode.h"
#include "processing/effect_dialogs.h"
#include "processing/geometry.h"
#include "processing/resample.h"
#include "processing/resize_dialog.h"
#include "tools/tool_table.h"

namespace tavora::cli {
namespace {

using Outcome = ParsedOp::Outcome;

std::vector<std::u16string_view> Split(std::u16string_view text) {
  std::vector<std::u16string_view> parts;
  while (true) {
    const std::size_t comma = text.find(u',');
    parts.push_back(text.substr(0, comma));
    if (comma == text.npos) return parts;
    text.remove_prefix(comma + 1);
  }
}

ParsedOp Ready(std::function<void(Document&)> run) { return {Outcome::Ready, std::move(run)}; }
ParsedOp Usage(std::string& err, const std::string& message) {
  err += message + "\n";
  return {Outcome::Usage, {}};
}
ParsedOp Refused(std::string& err, std::u16string_view message) {
  err += Utf16ToUtf8(message) + "\n";
  return {Outcome::Refused, {}};
}

int32_t Whole(double v) { return static_cast<int32_t>(std::floor(v + 0.5)); }

// Resize's algorithm names: the Resample list (by its internal number),
// Resize's nearest neighbour, or an Upscale engine.
bool ResizeAlgorithm(std::u16string_view name, ResizeOptions& o) {
  struct Named {
    std::u16string_view name;
    ResizeMethod method;
    int32_t internal;  // Resample: the internal number
    UpscaleEngine engine;
  };
  constexpr Named kNames[] = {
      {u"nearest", ResizeMethod::Resize, 0, {}},
      {u"automatic", ResizeMethod::Resample, 7, {}},
      {u"bilinear", ResizeMethod::Resample, 1, {}},
      {u"bicubic", ResizeMethod::Resample, 2, {}},
      {u"bicubic-smoother", ResizeMethod::Resample, 4, {}},
      {u"bicubic-sharper", ResizeMethod::Resample, 5, {}},
      {u"lanczos", ResizeMethod::Resample, 3, {}},
      {u"area-average", ResizeMethod::Resample, 6, {}},
      {u"detail-recovery", ResizeMethod::Upscale, 0, UpscaleEngine::DetailRecovery},
      {u"lanczos-edge", ResizeMethod::Upscale, 0, UpscaleEngine::LanczosSharpen},
      {u"pixel-art", ResizeMethod::Upscale, 0, UpscaleEngine::PixelArt},
  };
  for (const Named& n : kNames) {
    if (n.name != name) continue;
    o.method = n.method;
    o.engine = n.engine;
    for (int32_t p = 0; p < 8; ++p)
      if (static_cast<int32_t>(AlgorithmAtPosition(p)) == n.internal) o.algorithmPosition = p;
    return true;
  }
  return false;
}

ParsedOp ParseResize(std::vector<std::u16string_view> v, std::string& err) {
  if (v.size() < 2 || v.size() > 4) return Usage(err, "resize takes W,H[,ALGORITHM[,SHARPEN]]");
  const auto w = ParseFiniteNumber(v[0]), h = ParseFiniteNumber(v[1]);
  const std::u16string_view message = ResizeSizeMessage(w.value_or(0), h.value_or(0));
  if (!w || !h || !message.empty())
    return Refused(err, message.empty() ? ResizeSizeMessage(0, 0) : message);
  ResizeOptions o;
  o.method = ResizeMethod::Resample;
  o.algorithmPosition = 0;  // automatic
  if (v.size() >= 3 && !ResizeAlgorithm(v[2], o))
    return Usage(err, "resize: unknown algorithm " + Utf16ToUtf8(v[2]));
  if (v.size() == 4) {
    const ParamRow row{u"Sharpen after:", 0, 100, 0, 0, RowKind::Edit};
    const auto sharpen = ParseTypedValue(v[3], row);
    if (!sharpen) return Refused(err, u"Sharpen after: " + RangeMessage(0, 100));
    if (o.method != ResizeMethod::Resample && *sharpen > 0)
      return Usage(err, "resize: SHARPEN applies to the Resample algorithms only");
    o.sharpen = static_cast<int32_t>(*sharpen);
  }
  const int32_t width = Whole(*w), height = Whole(*h);
  return Ready([width, height, o](Document& doc) { ResizeImage(doc, width, height, o); });
}

ParsedOp ParseCanvasSize(std::vector<std::u16string_view> v, std::string& err) {
  if (v.size() < 2 || v.size() > 4) return Usage(err, "canvas-size takes W,H[,ANCHOR[,#RRGGBB]]");
  const auto w = ParseFiniteNumber(v[0]), h = ParseFiniteNumber(v[1]);
  const std::u16string_view message = ResizeSizeMessage(w.value_or(0), h.value_or(0));
  if (!w || !h || !message.empty()) return Refused(err, message.empty() ? ResizeSizeMessage(0, 0) : message);
  int32_t anchor = 4;
  if (v.size() >= 3) {
    const ParamRow row{u"Anchor:", 0, 8, 4, 0, RowKind::Edit};
    const auto a = ParseTypedValue(v[2], row);
    if (!a) return Refused(err, u"Anchor: " + RangeMessage(0, 8));
    anchor = static_cast<int32_t>(*a);
  }
  uint32_t color = 0xFFFFFFFFu;
  if (v.size() == 4) {
    const uint32_t c = v[3].size() == 7 && v[3][0] == u'#' ? ColorFromHex(v[3].substr(1), 0) : 0;
    if (!c) return Usage(err, "canvas-size: the colour is #RRGGBB");
    color = c;
  }
  const int32_t width = Whole(*w), height = Whole(*h);
  return Ready([=](Document& doc) { CanvasSize(doc, width, height, anchor, color); });
}

std::optional<double> Angle(std::u16string_view text, std::string& err, bool& refused) {
  const ParamRow row{u"Angle (°):", -180, 180, 0, 1, RowKind::Edit};
  const auto a = ParseTypedValue(text, row);
  if (!a) {
    err += Utf16ToUtf8(RangeMessage(-180, 180)) + "\n";
    refused = true;
  }
  return a;
}

}  // namespace

ParsedOp ParseGeometryOp(std::u16string_view name, std::optional<std::u16string_view> values, std::string& err) {
  struct Plain {
    std::u16string_view name;
    bool (*run)(Document&);
  };
  static constexpr Plain kPlain[] = {
      {u"rotate-right", [](Document& d) { return RotateImage90(d, true); }},
      {u"rotate-left", [](Document& d) { return RotateImage90(d, false); }},
      {u"rotate-180", &RotateImage180},
      {u"flip", &FlipImage},
      {u"mirror", &MirrorImage},
      {u"rotate-layer-right", [](Document& d) { return RotateLayer90(d, true); }},
      {u"rotate-layer-left", [](Document& d) { return RotateLayer90(d, false); }},
      {u"rotate-layer-180", &RotateLayer180},
      {u"flip-layer", &FlipLayer},
      {u"mirror-layer", &MirrorLayer},
  };
  for (const Plain& p : kPlain) {
    if (p.name != name) continue;
    if (values) return Usage(err, Utf16ToUtf8(name) + " takes no values");
    return Ready([run = p.run](Document& doc) { run(doc); });
  }
  const bool known = name == u"resize" || name == u"canvas-size" || name == u"crop" || name == u"free-rotate" ||
                     name == u"free-rotate-layer" || name == u"resize-layer";
  if (!known) return {};
  if (!values) return Usage(err, Utf16ToUtf8(name) + " needs values (see tavora-cli ops)");
  const std::vector<std::u16string_view> v = Split(*values);
  if (name == u"resize") return ParseResize(v, err);
  if (name == u"canvas-size") return ParseCanvasSize(v, err);
  if (name == u"crop") {
    std::vector<int32_t> c;
    for (std::u16string_view part : v)
      if (const auto n = ParseFiniteNumber(part); n && std::fabs(*n) < 1e9) c.push_back(Whole(*n));
    if (v.size() != 4 || c.size() != 4) return Usage(err, "crop takes X0,Y0,X1,Y1");
    // Clipped to the canvas by the crop itself.
    const Rect r{c[0], c[1], c[2], c[3]};
    return Ready([r](Document& doc) { CropToRect(doc, r); });
  }
  if (name == u"free-rotate" || name == u"free-rotate-layer") {
    bool refused = false;
    const auto angle = Angle(v[0], err, refused);
    if (!angle) return {refused ? Outcome::Refused : Outcome::Usage, {}};
    if (name == u"free-rotate-layer") {
      if (v.size() != 1) return Usage(err, "free-rotate-layer takes ANGLE");
      return Ready([a = *angle](Document& doc) { FreeRotateLayer(doc, a); });
    }
    bool expand = false;
    uint32_t corner = 0;  // transparent
    for (std::size_t i = 1; i < v.size(); ++i) {
      if (v[i] == u"expand") expand = true;
      else if (v[i] == u"transparent") corner = 0;
      else if (v[i].size() == 7 && v[i][0] == u'#' && ColorFromHex(v[i].substr(1), 0)) corner = ColorFromHex(v[i].substr(1), 0);
      else return Usage(err, "free-rotate takes ANGLE[,expand][,transparent|#RRGGBB]");
    }
    return Ready([a = *angle, expand, corner](Document& doc) { FreeRotateImage(doc, a, expand, corner); });
  }
  // resize-layer=W,H[,METHOD]
  if (v.size() < 2 || v.size() > 3) return Usage(err, "resize-layer takes W,H[,METHOD]");
  const auto w = ParseFiniteNumber(v[0]), h = ParseFiniteNumber(v[1]);
  const int32_t width = w ? Whole(*w) : 0, height = h ? Whole(*h) : 0;
  if (const std::u16string_view message = CheckResizeLayerSize(width, height); !message.empty())
    return Refused(err, message);
  int32_t algorithm = 7;
  if (v.size() == 3) {
    struct Method {
      std::u16string_view name;
      int32_t internal;
    };
    constexpr Method kMethods[] = {{u"automatic", 7}, {u"bilinear", 1}, {u"bicubic", 2}, {u"lanczos", 3}, {u"nearest", 0}};
    algorithm = -1;
    for (const Method& m : kMethods)
      if (m.name == v[2]) algorithm = m.internal;
    if (algorithm < 0) return Usage(err, "resize-layer: METHOD is automatic, bilinear, bicubic, lanczos or nearest");
  }
  return Ready([=](Document& doc) { ResizeLayer(doc, width, height, algorithm); });
}

std::string GeometryOpsList() {
  return "resize=W,H[,ALGORITHM[,SHARPEN]]\n"
         "    ALGORITHM: nearest, automatic (default), bilinear, bicubic, bicubic-smoother, bicubic-sharper,\n"
         "    lanczos, area-average, detail-recovery, lanczos-edge, pixel-art; SHARPEN 0..100 (Resample only)\n"
         "canvas-size=W,H[,ANCHOR[,#RRGGBB]]\n"
         "    ANCHOR 0..8 (0 top left, 4 centre, 8 bottom right), default 4; colour default #FFFFFF\n"
         "crop=X0,Y0,X1,Y1\n"
         "rotate-right\nrotate-left\nrotate-180\nflip\nmirror\n"
         "free-rotate=ANGLE[,expand][,transparent|#RRGGBB]\n    ANGLE -180..180\n"
         "rotate-layer-right\nrotate-layer-left\nrotate-layer-180\nflip-layer\nmirror-layer\n"
         "free-rotate-layer=ANGLE\n"
         "resize-layer=W,H[,METHOD]\n    METHOD: automatic (default), bilinear, bicubic, lanczos, nearest\n";
}

}  // namespace tavora::cli

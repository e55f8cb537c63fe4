#include "cli/cli.h"
#include "cli/cli_batch.h"
#include "cli/cli_draw.h"
#include "cli/cli_effects.h"

#include <algorithm>
#include <cstdio>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <optional>
#include <memory>

#include "base/file_io.h"
#include "cli/apply_geometry.h"
#include "base/unicode.h"
#include "document/blend.h"
#include "document/layer_commands.h"
#include "formats/file_formats.h"
#include "processing/color_depth.h"
#include "processing/effect_dialogs.h"
#include "processing/inpaint.h"
#include "processing/lens_flare.h"
#include "tools/brush_engine.h"
#include "tools/selection.h"
#include "tools/tool_input.h"
#include "tools/tool_table.h"

namespace tavora {
namespace {

constexpr const char* kUsage =
    "usage: tavora-cli info [--json] FILE\n"
    "       tavora-cli convert [--flatten] [--exposure=EV] [--quality=Q | --lossless] IN OUT\n"
    "       tavora-cli apply [--selection=MASK.pgm] OP[=v1,v2,...] [OP...] IN OUT\n"
    "       tavora-cli ops\n"
    "       tavora-cli paint [--selection=MASK.pgm] TOOL [KEY=VALUE...] X,Y [X,Y...] IN OUT\n";

std::filesystem::path ToPath(const std::u16string& arg) { return std::filesystem::path(arg); }

std::string PathText(const std::filesystem::path& p) { return Utf16ToUtf8(p.u16string()); }

// The reader the file's extension selects; null when none fits or it fails.
std::unique_ptr<Document> OpenDocument(const std::filesystem::path& path) {
  return ReadDocumentFile(path);
}

bool SaveDocument(Document& doc, const std::filesystem::path& path) {
  return WriteDocumentFile(doc, path, EncodeOptionsFor(path, doc));
}

std::vector<const char*> EnabledEffects(const Layer& layer) {
  const LayerEffects& e = layer.effects;
  std::vector<const char*> names;
  if (e.dropShadow.on) names.push_back("Drop Shadow");
  if (e.outerGlow.on) names.push_back("Outer Glow");
  if (e.innerGlow.on) names.push_back("Inner Glow");
  if (e.bevel.on) names.push_back("Bevel");
  if (e.colorOverlay.on) names.push_back("Color Overlay");
  if (e.gradientOverlay.on) names.push_back("Gradient Overlay");
  if (e.stroke.on) names.push_back("Stroke");
  if (e.bloom.on) names.push_back("Bloom");
  return names;
}

std::string JsonString(std::string_view utf8) {
  std::string s = "\"";
  for (char c : utf8) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      s += '\\';
      s += c;
    } else if (u < 0x20) {
      static const char kHex[] = "0123456789abcdef";
      s += "\\u00";
      s += kHex[u >> 4];
      s += kHex[u & 15];
    } else {
      s += c;
    }
  }
  return s + "\"";
}

std::string InfoText(const Document& doc) {
  std::string s;
  s += "Size: " + std::to_string(doc.width) + " x " + std::to_string(doc.height) + "\n";
  s += "DPI: " + std::to_string(doc.dpi) + "\n";
  s += "Colors: " + std::to_string(doc.colorCount) + "\n";
  s += "Active layer: " + std::to_string(doc.active) + "\n";
  s += "Layers (bottom first): " + std::to_string(doc.LayerCount()) + "\n";
  for (int32_t i = 0; i < doc.LayerCount(); ++i) {
    const Layer& l = doc.layers[i];
    s += "  " + std::to_string(i) + ": \"" + Utf16ToUtf8(l.Name()) + "\"";
    s += l.visible ? ", visible" : ", hidden";
    s += ", opacity " + std::to_string(l.opacity);
    s += ", " + Utf16ToUtf8(BlendModeName(l.blendMode));
    if (l.opaqueBackground) s += ", Background";
    const auto effects = EnabledEffects(l);
    s += ", effects: ";
    if (effects.empty()) s += "none";
    for (std::size_t k = 0; k < effects.size(); ++k) s += (k ? ", " : "") + std::string(effects[k]);
    s += "\n";
  }
  return s;
}

std::string InfoJson(const Document& doc) {
  std::string s = "{";
  s += "\"width\":" + std::to_string(doc.width) + ",\"height\":" + std::to_string(doc.height);
  s += ",\"dpi\":" + std::to_string(doc.dpi) + ",\"colors\":" + std::to_string(doc.colorCount);
  s += ",\"active\":" + std::to_string(doc.active) + ",\"layers\":[";
  for (int32_t i = 0; i < doc.LayerCount(); ++i) {
    const Layer& l = doc.layers[i];
    if (i) s += ",";
    s += "{\"name\":" + JsonString(Utf16ToUtf8(l.Name()));
    s += std::string(",\"visible\":") + (l.visible ? "true" : "false");
    s += ",\"opacity\":" + std::to_string(l.opacity);
    s += ",\"blend\":" + JsonString(Utf16ToUtf8(BlendModeName(l.blendMode)));
    s += std::string(",\"background\":") + (l.opaqueBackground ? "true" : "false");
    s += ",\"effects\":[";
    const auto effects = EnabledEffects(l);
    for (std::size_t k = 0; k < effects.size(); ++k) {
      if (k) s += ',';
      s += JsonString(effects[k]);
    }
    s += "]}";
  }
  return s + "]}\n";
}

std::string Number(double v) { return Utf16ToUtf8(FormatNumber(v)); }

void ListEffect(std::string& s, const EffectDef& def) {
  s += Utf16ToUtf8(def.shortName) + " (\"" + Utf16ToUtf8(def.title) + "\")";
  if (!def.operation) s += " [not available yet]";
  s += "\n";
  for (const ParamRow& row : def.rows)
    s += "    " + Utf16ToUtf8(row.label) + " " + Number(row.minimum) + ".." + Number(row.maximum) +
         ", default " + Number(row.fallback) + "\n";
  if (!def.optionLabel.empty()) s += "    option: " + Utf16ToUtf8(def.optionLabel) + "\n";
  for (const auto& choice : def.choices) s += "    choice: " + Utf16ToUtf8(choice) + "\n";
}

std::string OpsList() {
  std::string s;
  for (const EffectDef& def : EffectDefs()) ListEffect(s, def);
  ListEffect(s, LensFlareEffect());
  s += "    (the centre defaults to the middle of the selection, or of the image)\n";
  for (const ImmediateOp& op : ImmediateOps())
    s += Utf16ToUtf8(op.shortName) + " (\"" + Utf16ToUtf8(op.historyName) + "\")\n";
  s += cli::GeometryOpsList();
  s += "color-depth (\"Color Depth\")\n    COUNT: 2, 4, 8, 16, 32, 64, 128, 256 (median cut), 32768 (5-5-5), "
       "65536 (5-6-5) or 16777216 (true color)\n    option: dither\n";
  s += "fill-from-surroundings (\"Fill from Surroundings\") [needs a selection]\n    Grow selection by (px): 0.." +
       std::to_string(kFillGrowMaximum) + ", default " + std::to_string(kFillGrowDefault) + "\n";
  s += "select (a rectangular selection for the operations after it)\n    X0,Y0,X1,Y1: image pixels\n";
  return s;
}

// A finite number within a billion: far beyond any canvas, and safe to
// turn into whole pixels.
std::optional<double> ParseNumber(std::u16string_view text) {
  const std::string s = Utf16ToUtf8(text);
  char* end = nullptr;
  const double v = std::strtod(s.c_str(), &end);
  if (s.empty() || end == s.c_str() || *end || !std::isfinite(v) || std::fabs(v) > 1e9) return std::nullopt;
  return v;
}

std::optional<std::vector<double>> ParseNumbers(std::u16string_view text, std::size_t count) {
  std::vector<double> values;
  while (values.size() < count) {
    const std::size_t comma = text.find(u',');
    const auto v = ParseNumber(text.substr(0, comma));
    if (!v) return std::nullopt;
    values.push_back(*v);
    if (comma == text.npos) break;
    text.remove_prefix(comma + 1);
    if (values.size() == count) return std::nullopt;  // more than asked for
  }
  if (values.size() != count) return std::nullopt;
  return values;
}

// A rectangular selection, as the Rectangle Select tool makes from a drag
// between the two corners.
void SelectRectangle(Document& doc, const Rect& r) {
  const ShapePoint corners[] = {{double(r.x0), double(r.y0)}, {double(r.x1), double(r.y1)}};
  if (auto region = RasterizeShape(doc, ShapeKind::Rectangle, corners, 0)) CommitRegion(doc, *region, kSelectNew);
}

// One step of `apply`: an operation with its values, ready to run.
struct ApplyStep {
  const EffectDef* effect = nullptr;
  const ImmediateOp* immediate = nullptr;
  EffectValues values;
  std::optional<ColorDepthParams> colorDepth;
  std::function<void(Document&)> action;  // geometry, resampling, selections
  std::size_t givenRows = 0;               // values given for the effect's rows
  bool needsSelection = false;
};

// "color-depth=COUNT[,dither]": one of the counts the Color Depth dialog lists.
std::optional<ApplyStep> ParseColorDepth(std::u16string_view values, std::string& err) {
  const std::size_t comma = values.find(u',');
  const auto count = ParseFiniteNumber(values.substr(0, comma));
  const std::u16string_view rest = comma == values.npos ? std::u16string_view() : values.substr(comma + 1);
  if (!rest.empty() && rest != u"dither") {
    err += "color-depth takes COUNT[,dither]\n";
    return std::nullopt;
  }
  for (const ColorDepthChoice& choice : ColorDepthChoices()) {
    if (!count || *count != double(choice.colors)) continue;
    ApplyStep step;
    step.colorDepth = ColorDepthParams{choice.colors, !rest.empty(), choice.mode};
    return step;
  }
  err += "color-depth: the count must be 2, 4, 8, 16, 32, 64, 128, 256, 32768, 65536 or 16777216\n";
  return std::nullopt;
}

// Parses "name[=v1,v2,...]"; values past the rows may name the option
// ("option") or a choice. Empty on a problem, which `err` explains;
// `rangeError` tells a value refused by its row from bad usage.
std::optional<ApplyStep> ParseStep(const std::u16string& arg, std::string& err, bool& rangeError) {
  const std::size_t eq = arg.find(u'=');
  const std::u16string name = arg.substr(0, eq);
  ApplyStep step;
  const auto geometry = cli::ParseGeometryOp(
      name, eq == std::u16string::npos ? std::nullopt : std::optional<std::u16string_view>(std::u16string_view(arg).substr(eq + 1)),
      err);
  switch (geometry.outcome) {
    case cli::ParsedOp::Outcome::Ready:
      step.action = geometry.run;
      return step;
    case cli::ParsedOp::Outcome::Refused:
      rangeError = true;
      return std::nullopt;
    case cli::ParsedOp::Outcome::Usage:
      return std::nullopt;
    case cli::ParsedOp::Outcome::NotMine:
      break;
  }
  const std::optional<std::u16string_view> given =
      eq == std::u16string::npos ? std::nullopt : std::optional(std::u16string_view(arg).substr(eq + 1));
  if (name == u"select") {
    const auto v = given ? ParseNumbers(*given, 4) : std::nullopt;
    if (!v) {
      err += "select takes X0,Y0,X1,Y1\n";
      return std::nullopt;
    }
    const Rect r{static_cast<int32_t>((*v)[0]), static_cast<int32_t>((*v)[1]), static_cast<int32_t>((*v)[2]),
                 static_cast<int32_t>((*v)[3])};
    step.action = [r](Document& doc) { SelectRectangle(doc, r); };
    return step;
  }
  if (name == u"fill-from-surroundings") {
    int32_t grow = kFillGrowDefault;
    if (given) {
      const ParamRow row{u"Grow selection by (px):", 0, double(kFillGrowMaximum), double(kFillGrowDefault), 0,
                         RowKind::Edit};
      const auto v = ParseTypedValue(*given, row);
      if (!v) {
        err += "Grow selection by (px): " + Utf16ToUtf8(RangeMessage(row.minimum, row.maximum)) + "\n";
        rangeError = true;
        return std::nullopt;
      }
      grow = static_cast<int32_t>(*v);
    }
    step.action = [grow](Document& doc) { FillFromSurroundings(doc, grow); };
    step.needsSelection = true;
    return step;
  }
  if (name == u"color-depth") {
    if (eq == std::u16string::npos) {
      err += "color-depth takes COUNT[,dither]\n";
      return std::nullopt;
    }
    return ParseColorDepth(std::u16string_view(arg).substr(eq + 1), err);
  }
  if (const ImmediateOp* op = FindImmediateOp(name)) {
    if (eq != std::u16string::npos) {
      err += Utf16ToUtf8(name) + " takes no values\n";
      return std::nullopt;
    }
    step.immediate = op;
    return step;
  }
  step.effect = name == LensFlareEffect().shortName ? &LensFlareEffect() : FindEffect(name);
  if (!step.effect) {
    err += "unknown operation: " + Utf16ToUtf8(name) + "\n";
    return std::nullopt;
  }
  if (!step.effect->operation) {
    err += "not available yet: " + Utf16ToUtf8(name) + "\n";
    return std::nullopt;
  }
  step.values = DefaultValues(*step.effect);
  if (eq == std::u16string::npos) return step;
  std::size_t row = 0, pos = eq + 1;
  int colors = 0;
  while (pos <= arg.size()) {
    const std::size_t comma = std::min(arg.find(u',', pos), arg.size());
    const std::u16string token = arg.substr(pos, comma - pos);
    pos = comma + 1;
    if (row < step.effect->rows.size()) {
      // Rounded to the row's decimals as the dialog's slider would store it.
      const ParamRow& r = step.effect->rows[row];
      const auto v = ParseTypedValue(token, r);
      if (!v) {
        err += Utf16ToUtf8(r.label) + " " + Utf16ToUtf8(RangeMessage(r.minimum, r.maximum)) + "\n";
        rangeError = true;
        return std::nullopt;
      }
      step.values.rows[row++] = *v;
      step.givenRows = row;
      continue;
    }
    if (!step.effect->optionLabel.empty() && token == u"option") {
      step.values.option = true;
      continue;
    }
    // "#RRGGBB" gives the first colour, then the second.
    if (!step.effect->color1Label.empty() && token.size() == 7 && token[0] == u'#' && colors < 2) {
      if (const auto color = ParseRememberedColor(std::u16string_view(token).substr(1))) {
        (colors++ == 0 ? step.values.color1 : step.values.color2) = *color;
        continue;
      }
    }
    bool matched = false;
    for (std::size_t c = 0; c < step.effect->choices.size(); ++c) {
      std::string a = Utf16ToUtf8(token), b = Utf16ToUtf8(step.effect->choices[c]);
      std::transform(a.begin(), a.end(), a.begin(), ::tolower);
      std::transform(b.begin(), b.end(), b.begin(), ::tolower);
      if (a == b) {
        step.values.choice = static_cast<int32_t>(c);
        matched = true;
      }
    }
    if (!matched) {
      err += "too many values for " + Utf16ToUtf8(name) + "\n";
      return std::nullopt;
    }
  }
  return step;
}

void RunStep(Document& doc, const ApplyStep& step) {
  if (step.action) {
    step.action(doc);
    return;
  }
  if (step.colorDepth) {
    ApplyColorDepth(doc, step.colorDepth->colors, step.colorDepth->dither, step.colorDepth->mode);
    return;
  }
  if (step.immediate) {
    ApplyToSelection(doc, step.immediate->historyName, step.immediate->operation, nullptr,
                     step.immediate->margin);
    return;
  }
  EffectValues values = step.values;
  // A flare without a place starts in the middle of the area it lights.
  if (step.effect == &LensFlareEffect() && step.givenRows < 2) {
    const Rect area = doc.selection ? doc.selectionBounds : doc.Bounds();
    const EffectValues middle = LensFlareDefaultValues(area.Width(), area.Height());
    for (std::size_t i = step.givenRows; i < 2; ++i) values.rows[i] = middle.rows[i];
  }
  // Big enough for every parameter block.
  alignas(8) unsigned char block[64] = {};
  step.effect->packer(values, block);
  ApplyToSelection(doc, step.effect->historyName, step.effect->operation, block,
                   EffectDialogMargin(*step.effect, values.rows.empty() ? 0 : values.rows[0]));
}

// One stroke of a brush tool along a path, as the canvas would paint it
// for the same pointer positions: the first point presses, the others move,
// the last releases.
struct PaintJob {
  int32_t tool = kToolBrush;
  ToolOptions options;
  ColorBoxes colors;
  int button = 1;
  std::optional<Rect> select;
  std::optional<ShapePoint> source;  // clone and heal
  std::vector<ShapePoint> path;
};

// The tools `paint` drives, by the names scripts use.
struct PaintVerb {
  std::u16string_view name;
  int32_t tool;
};
constexpr PaintVerb kPaintVerbs[] = {
    {u"brush", kToolBrush},  {u"eraser", kToolEraser},       {u"blur", kToolBlur},   {u"smudge", kToolSmudge},
    {u"sharpen", kToolSharpen}, {u"sponge", kToolSponge},    {u"burn", kToolBurn},   {u"fill", kToolFill},
    {u"wand", kToolMagicWand},  {u"clone", kToolClone},      {u"spot-heal", kToolSpotHeal},
    {u"heal", kToolHeal}};

// Fill and the wand act on one click.
bool ClickTool(int32_t tool) { return tool == kToolFill || tool == kToolMagicWand; }

// Appends one message line; plain appends keep GCC 12's string warnings quiet.
void Say(std::string& err, std::initializer_list<std::string_view> parts) {
  for (std::string_view part : parts) err.append(part);
  err.push_back('\n');
}

bool ParsePaintSetting(PaintJob& job, std::u16string_view key, std::u16string_view value,
                       std::string& err, bool& rangeError) {
  if (key == u"color" || key == u"secondary") {
    const uint32_t color = ColorFromHex(value, 0);
    if (color == 0) {
      Say(err, {Utf16ToUtf8(key), " must be six hexadecimal digits RRGGBB"});
      return false;
    }
    (key == u"color" ? job.colors.left : job.colors.right) = color;
    return true;
  }
  if (key == u"button") {
    if (value != u"left" && value != u"right") {
      err += "button must be left or right\n";
      return false;
    }
    job.button = value == u"left" ? 1 : 2;
    return true;
  }
  if (key == u"select") {
    const auto v = ParseNumbers(value, 4);
    if (!v) {
      err += "select takes X0,Y0,X1,Y1\n";
      return false;
    }
    job.select = Rect{static_cast<int32_t>((*v)[0]), static_cast<int32_t>((*v)[1]),
                      static_cast<int32_t>((*v)[2]), static_cast<int32_t>((*v)[3])};
    return true;
  }
  if (key == u"source" && (job.tool == kToolClone || job.tool == kToolHeal)) {
    const auto v = ParseNumbers(value, 2);
    if (!v) {
      err += "source takes SX,SY\n";
      return false;
    }
    job.source = ShapePoint{(*v)[0], (*v)[1]};
    return true;
  }
  for (const OptionDef* def : ToolOptionDefs(job.tool)) {
    if (def->key != key) continue;
    // Whole numbers, as the options bar stores them.
    const ParamRow row{def->label, double(def->minimum), double(def->maximum), double(def->fallback), 0,
                       RowKind::Edit};
    const auto v = ParseTypedValue(value, row);
    if (!v) {
      Say(err, {Utf16ToUtf8(key), ": ", Utf16ToUtf8(RangeMessage(row.minimum, row.maximum))});
      rangeError = true;
      return false;
    }
    job.options.*def->field = static_cast<int32_t>(*v);
    return true;
  }
  Say(err, {"unknown setting for ", Utf16ToUtf8(Tool(job.tool).name), ": ", Utf16ToUtf8(key)});
  return false;
}

std::optional<PaintJob> ParsePaint(const std::vector<std::u16string>& args, std::string& err,
                                   bool& rangeError) {
  PaintJob job;
  std::u16string name = args[1];
  for (char16_t& c : name) c = (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c;
  job.tool = -1;
  for (const PaintVerb& verb : kPaintVerbs)
    if (verb.name == name) job.tool = verb.tool;
  if (job.tool < 0) {
    Say(err, {"not a painting tool: ", Utf16ToUtf8(args[1])});
    return std::nullopt;
  }
  job.options = ToolOptions{};
  for (std::size_t i = 2; i + 2 < args.size(); ++i) {
    const std::u16string_view arg = args[i];
    if (const std::size_t eq = arg.find(u'='); eq != arg.npos) {
      if (!ParsePaintSetting(job, arg.substr(0, eq), arg.substr(eq + 1), err, rangeError))
        return std::nullopt;
    } else if (const auto xy = ParseNumbers(arg, 2)) {
      job.path.push_back({(*xy)[0], (*xy)[1]});
    } else {
      Say(err, {"not a point X,Y: ", Utf16ToUtf8(arg)});
      return std::nullopt;
    }
  }
  if (job.path.empty()) {
    err += "the stroke needs at least one point\n";
    return std::nullopt;
  }
  if (ClickTool(job.tool) && job.path.size() != 1) {
    err += "fill and wand take one point X,Y\n";
    return std::nullopt;
  }
  return job;
}

void RunPaint(Document& doc, const PaintJob& job) {
  if (job.select) SelectRectangle(doc, *job.select);
  ToolSettings tools;
  tools.SetTool(job.tool);
  tools.Current() = job.options;
  tools.colors = job.colors;
  ClearCloneSource();
  if (job.source) SetCloneSource(job.source->x, job.source->y);
  ToolInput input(tools);
  input.Press(doc, job.path[0].x, job.path[0].y, job.button, 0);
  for (std::size_t i = 1; i < job.path.size(); ++i) input.Move(doc, job.path[i].x, job.path[i].y);
  input.Release(doc, job.path.back().x, job.path.back().y);
}

int Usage(std::string& err) {
  err += kUsage;
  return kCliUsage;
}

int CannotOpen(const std::filesystem::path& path, std::string& err) {
  err += "This file could not be opened.\n" + PathText(path) + "\n";
  return kCliCannotOpen;
}

int CannotSave(const std::filesystem::path& path, std::string& err) {
  err += "The file could not be saved.\n" + PathText(path) + "\n";
  return kCliCannotSave;
}

// The selection as an 8-bit binary PGM of the canvas size, all zeros when
// nothing is selected.
bool WriteSelectionPgm(const Document& doc, const std::filesystem::path& path) {
  SafeFileWriter out(path);
  if (!out.Open()) return false;
  const std::string header = "P5\n" + std::to_string(doc.width) + " " + std::to_string(doc.height) + "\n255\n";
  out.Write(header.data(), header.size());
  const std::vector<uint8_t> empty(std::size_t(doc.width), 0);
  for (int32_t y = 0; y < doc.height; ++y)
    out.Write(doc.selection ? doc.selection->Row(y) : empty.data(), std::size_t(doc.width));
  return out.Commit();
}

// Saves OUT and, when asked, the selection beside it.
int SaveResult(Document& doc, const std::filesystem::path& out, const std::optional<std::filesystem::path>& mask,
               std::string& err) {
  if (!SaveDocument(doc, out)) return CannotSave(out, err);
  if (mask && !WriteSelectionPgm(doc, *mask)) return CannotSave(*mask, err);
  return kCliOk;
}

}  // namespace

int RunCli(const std::vector<std::u16string>& args, std::string& out, std::string& err) {
  if (auto status = RunBatchCommand(args, out, err)) return *status;
  if (auto status = RunDrawCommand(args, out, err)) return *status;
  if (auto status = RunEffectsCommand(args, out, err)) return *status;
  if (args.empty()) return Usage(err);
  const std::u16string& command = args[0];
  if (command == u"ops" && args.size() == 1) {
    out += OpsList();
    return kCliOk;
  }
  if (command == u"apply" || command == u"paint") {
    // "--selection=FILE" right after the verb also writes the selection.
    std::vector<std::u16string> rest(args.begin(), args.end());
    std::optional<std::filesystem::path> mask;
    constexpr std::u16string_view kSelectionOption = u"--selection=";
    if (rest.size() > 1 && std::u16string_view(rest[1]).starts_with(kSelectionOption)) {
      mask = ToPath(rest[1].substr(kSelectionOption.size()));
      rest.erase(rest.begin() + 1);
      if (mask->empty()) return Usage(err);
    }
    if (rest.size() < (command == u"apply" ? 4u : 5u)) return Usage(err);
    const auto in = ToPath(rest[rest.size() - 2]), outPath = ToPath(rest.back());
    bool rangeError = false;
    if (command == u"apply") {
      std::vector<ApplyStep> steps;
      for (std::size_t i = 1; i + 2 < rest.size(); ++i) {
        auto step = ParseStep(rest[i], err, rangeError);
        if (!step) return rangeError ? kCliUsage : Usage(err);
        steps.push_back(std::move(*step));
      }
      auto doc = OpenDocument(in);
      if (!doc) return CannotOpen(in, err);
      for (const ApplyStep& step : steps) {
        if (step.needsSelection && !doc->selection) {
          err += "fill-from-surroundings needs a selection: put select=X0,Y0,X1,Y1 before it\n";
          return kCliUsage;
        }
        RunStep(*doc, step);
      }
      return SaveResult(*doc, outPath, mask, err);
    }
    const auto job = ParsePaint(rest, err, rangeError);
    if (!job) return rangeError ? kCliUsage : Usage(err);
    auto doc = OpenDocument(in);
    if (!doc) return CannotOpen(in, err);
    RunPaint(*doc, *job);
    return SaveResult(*doc, outPath, mask, err);
  }
  std::vector<std::u16string> operands;
  bool json = false, flatten = false, lossless = false;
  std::optional<double> exposure, quality;
  // "--key=value" options of convert, checked against their ranges.
  auto ranged = [&](std::u16string_view arg, std::u16string_view key, double low, double high,
                    std::optional<double>& into) {
    if (!arg.starts_with(key)) return false;
    const ParamRow row{key, low, high, low, 1, RowKind::Edit};
    into = ParseTypedValue(arg.substr(key.size()), row);
    if (!into) err += Utf16ToUtf8(key.substr(2, key.size() - 3)) + ": " + Utf16ToUtf8(RangeMessage(low, high)) + "\n";
    return true;
  };
  for (std::size_t i = 1; i < args.size(); ++i) {
    const std::u16string_view arg = args[i];
    if (command == u"info" && arg == u"--json") {
      json = true;
    } else if (command == u"convert" && arg == u"--flatten") {
      flatten = true;
    } else if (command == u"convert" && arg == u"--lossless") {
      lossless = true;
    } else if (command == u"convert" && (ranged(arg, u"--exposure=", -6, 6, exposure) ||
                                         ranged(arg, u"--quality=", 1, 100, quality))) {
      if ((arg.starts_with(u"--exposure=") && !exposure) || (arg.starts_with(u"--quality=") && !quality))
        return kCliUsage;
    } else if (arg.size() > 1 && arg[0] == u'-' && arg[1] == u'-') {
      return Usage(err);
    } else {
      operands.push_back(args[i]);
    }
  }
  if (quality && lossless) {
    err += "--quality and --lossless exclude each other\n";
    return Usage(err);
  }

  if (command == u"info" && operands.size() == 1) {
    const auto path = ToPath(operands[0]);
    auto doc = OpenDocument(path);
    if (!doc) return CannotOpen(path, err);
    out += json ? InfoJson(*doc) : InfoText(*doc);
    return kCliOk;
  }
  if (command == u"convert" && operands.size() == 2) {
    const auto in = ToPath(operands[0]), outPath = ToPath(operands[1]);
    OpenOptions open;
    open.hdrExposure = static_cast<float>(exposure.value_or(0));
    auto doc = ReadDocumentFile(in, open);
    if (!doc) return CannotOpen(in, err);
    if (flatten) FlattenLayers(*doc);
    EncodeOptions options = EncodeOptionsFor(outPath, *doc);
    options.quality = static_cast<int32_t>(quality.value_or(90));
    options.lossless = lossless;
    if (!WriteDocumentFile(*doc, outPath, options)) return CannotSave(outPath, err);
    return kCliOk;
  }
  return Usage(err);
}

}  // namespace tavora

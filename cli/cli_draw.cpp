#include "cli/cli_draw.h"

#include <initializer_list>
#include <string_view>

#include "base/unicode.h"
#include "cli/cli.h"
#include "cli/cli_common.h"
#include "platform/drawing_bridge.h"
#include "processing/effect_dialogs.h"
#include "tools/selection.h"
#include "tools/shape_tool.h"
#include "tools/text_layers.h"
#include "tools/tool_table.h"

namespace tavora {
namespace {

constexpr const char* kUsage =
    "usage: tavora-cli paint line|rectangle|ellipse|rounded-rectangle [linewidth=W] [shapefill=0..2]\n"
    "           [cornerradius=R] [aa=0|1] [opacity=O] [color=RRGGBB] [secondary=RRGGBB]\n"
    "           [select=X0,Y0,X1,Y1] X0,Y0 X1,Y1 IN OUT\n"
    "       tavora-cli text STRING [font=NAME] [size=PX] [bold=0|1] [italic=0|1] [underline=0|1]\n"
    "           [color=RRGGBB] [newlayer=0|1] [opacity=O] [select=X0,Y0,X1,Y1] X,Y IN OUT\n";

struct ShapeVerb {
  std::u16string_view name;
  int32_t tool;
};
constexpr ShapeVerb kShapeVerbs[] = {{u"line", kToolLine},
                                     {u"rectangle", kToolRectangle},
                                     {u"ellipse", kToolEllipse},
                                     {u"rounded-rectangle", kToolRoundedRect}};

void Say(std::string& err, std::initializer_list<std::string_view> parts) {
  for (std::string_view part : parts) err.append(part);
  err.push_back('\n');
}

int Usage(std::string& err) {
  err += kUsage;
  return kCliUsage;
}

// What both verbs take besides their own settings.
struct Common {
  ColorBoxes colors;
  std::optional<Rect> select;
  std::vector<ShapePoint> points;
};

// A whole number within [minimum, maximum]; out of range (or not a number)
// the range message, after the key.
bool ParseWhole(std::u16string_view key, std::u16string_view value, int32_t minimum, int32_t maximum, int32_t& to,
                std::string& err, bool& rangeError) {
  const ParamRow row{key, double(minimum), double(maximum), double(minimum), 0, RowKind::Edit};
  const auto v = ParseTypedValue(value, row);
  if (!v) {
    Say(err, {Utf16ToUtf8(key), ": ", Utf16ToUtf8(RangeMessage(row.minimum, row.maximum))});
    rangeError = true;
    return false;
  }
  to = static_cast<int32_t>(*v);
  return true;
}

// color, secondary and select; false with `handled` set when one of them
// was given badly.
bool ParseCommon(Common& c, std::u16string_view key, std::u16string_view value, bool secondaryAllowed,
                 std::string& err, bool& handled) {
  handled = true;
  if (key == u"color" || (key == u"secondary" && secondaryAllowed)) {
    const uint32_t color = ColorFromHex(value, 0);
    if (color == 0) {
      Say(err, {Utf16ToUtf8(key), " must be six hexadecimal digits RRGGBB"});
      return false;
    }
    (key == u"color" ? c.colors.left : c.colors.right) = color;
    return true;
  }
  if (key == u"select") {
    const auto v = cli::ParseNumbers(value, 4);
    if (!v) {
      err += "select takes X0,Y0,X1,Y1\n";
      return false;
    }
    c.select = Rect{static_cast<int32_t>((*v)[0]), static_cast<int32_t>((*v)[1]), static_cast<int32_t>((*v)[2]),
                    static_cast<int32_t>((*v)[3])};
    return true;
  }
  handled = false;
  return true;
}

bool ParsePoint(Common& c, std::u16string_view arg, std::string& err) {
  const auto xy = cli::ParseNumbers(arg, 2);
  if (!xy) {
    Say(err, {"not a point X,Y: ", Utf16ToUtf8(arg)});
    return false;
  }
  c.points.push_back({(*xy)[0], (*xy)[1]});
  return true;
}

void SelectFirst(Document& doc, const Common& c) {
  if (!c.select) return;
  const ShapePoint corners[] = {{double(c.select->x0), double(c.select->y0)},
                                {double(c.select->x1), double(c.select->y1)}};
  if (auto region = RasterizeShape(doc, ShapeKind::Rectangle, corners, 0)) CommitRegion(doc, *region, kSelectNew);
}

// Opens IN, lets `draw` change it and saves OUT.
template <typename Draw>
int Run(const std::vector<std::u16string>& args, std::string& err, const Common& c, Draw&& draw) {
  const std::filesystem::path in(args[args.size() - 2]), out(args.back());
  auto doc = cli::OpenDocument(in);
  if (!doc) return cli::CannotOpen(in, err);
  SelectFirst(*doc, c);
  draw(*doc);
  if (!cli::SaveDocument(*doc, out)) return cli::CannotSave(out, err);
  return kCliOk;
}

// "paint SHAPE ...": a drag from the first point to the second.
int PaintShape(const std::vector<std::u16string>& args, int32_t tool, std::string& err) {
  if (args.size() < 6) return Usage(err);
  Common c;
  ToolOptions options;
  bool rangeError = false;
  for (std::size_t i = 2; i + 2 < args.size(); ++i) {
    const std::u16string_view arg = args[i];
    const std::size_t eq = arg.find(u'=');
    if (eq == arg.npos) {
      if (!ParsePoint(c, arg, err)) return Usage(err);
      continue;
    }
    const std::u16string_view key = arg.substr(0, eq), value = arg.substr(eq + 1);
    bool handled = false;
    if (!ParseCommon(c, key, value, true, err, handled)) return Usage(err);
    if (handled) continue;
    const OptionDef* found = nullptr;
    for (const OptionDef* def : ToolOptionDefs(tool))
      if (def->key == key) found = def;
    if (!found) {
      Say(err, {"unknown setting for ", Utf16ToUtf8(Tool(tool).name), ": ", Utf16ToUtf8(key)});
      return Usage(err);
    }
    // The style's list has three entries.
    const int32_t maximum = found->field == &ToolOptions::shapefill ? int32_t{kShapeOutlineFill} : found->maximum;
    if (!ParseWhole(key, value, found->minimum, maximum, options.*found->field, err, rangeError)) return kCliUsage;
  }
  if (c.points.size() != 2) {
    err += "a shape takes two points X0,Y0 X1,Y1\n";
    return Usage(err);
  }
  return Run(args, err, c, [&](Document& doc) {
    ShapeTool shape;
    shape.Press(tool, c.points[0].x, c.points[0].y, 1, 0, options, c.colors);
    shape.Move(c.points[1].x, c.points[1].y, 0);
    shape.Release(doc, c.points[1].x, c.points[1].y, 0);
  });
}

// "text STRING ...": a click at X,Y answered with these values.
int PlaceText(const std::vector<std::u16string>& args, std::string& err) {
  if (args.size() < 5) return Usage(err);
  Common c;
  TextValues values;
  values.text = NormalizeLineBreaks(args[1]);
  ToolOptions options;
  values.fontName = options.fontname;
  values.fontSize = options.fontsize;
  bool rangeError = false;
  for (std::size_t i = 2; i + 2 < args.size(); ++i) {
    const std::u16string_view arg = args[i];
    const std::size_t eq = arg.find(u'=');
    if (eq == arg.npos) {
      if (!ParsePoint(c, arg, err)) return Usage(err);
      continue;
    }
    const std::u16string_view key = arg.substr(0, eq), value = arg.substr(eq + 1);
    bool handled = false;
    if (!ParseCommon(c, key, value, false, err, handled)) return Usage(err);
    if (handled) continue;
    bool ok = true;
    if (key == u"font") values.fontName = std::u16string(value);
    else if (key == u"size") ok = ParseWhole(key, value, kMinFontSize, kMaxFontSize, values.fontSize, err, rangeError);
    else if (key == u"bold") ok = ParseWhole(key, value, 0, 1, values.bold, err, rangeError);
    else if (key == u"italic") ok = ParseWhole(key, value, 0, 1, values.italic, err, rangeError);
    else if (key == u"underline") ok = ParseWhole(key, value, 0, 1, values.underline, err, rangeError);
    else if (key == u"newlayer") ok = ParseWhole(key, value, 0, 1, options.text_newlayer, err, rangeError);
    else if (key == u"opacity") ok = ParseWhole(key, value, 1, 100, options.opacity, err, rangeError);
    else {
      Say(err, {"unknown setting for text: ", Utf16ToUtf8(key)});
      return Usage(err);
    }
    if (!ok) return kCliUsage;
  }
  if (c.points.size() != 1) {
    err += "text takes one point X,Y\n";
    return Usage(err);
  }
  values.color = c.colors.left;
  const TextProblem problem = CheckTextValues(values);
  if (!problem.message.empty()) {
    const char* key = problem.field == TextField::Font ? "font" : problem.field == TextField::Size ? "size" : "text";
    Say(err, {key, ": ", Utf16ToUtf8(problem.message)});
    return kCliUsage;
  }
  return Run(args, err, c, [&](Document& doc) {
    const TextClick click = TextClickAt(doc, c.points[0].x, c.points[0].y);
    ApplyTextClick(doc, click, values, options);
  });
}

bool Refused(std::string_view verb, std::string& err) {
  if (CurrentSystemDrawing()) return false;
#ifdef _WIN32
  Say(err, {verb, " cannot draw: the system drawing (GDI+) did not start."});
#else
  Say(err, {verb, " needs the Windows build: text and shapes are drawn by GDI+."});
#endif
  return true;
}

}  // namespace

std::optional<int> RunDrawCommand(const std::vector<std::u16string>& args, std::string& /*out*/, std::string& err) {
  if (args.empty()) return std::nullopt;
  if (args[0] == u"text") {
    if (Refused("text", err)) return kCliUsage;
    return PlaceText(args, err);
  }
  if (args[0] != u"paint" || args.size() < 2) return std::nullopt;
  for (const ShapeVerb& verb : kShapeVerbs) {
    if (args[1] != verb.name) continue;
    if (Refused("paint " + Utf16ToUtf8(verb.name), err)) return kCliUsage;
    return PaintShape(args, verb.tool, err);
  }
  return std::nullopt;
}

}  // namespace tavora

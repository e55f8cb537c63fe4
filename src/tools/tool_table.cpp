#include "tools/tool_table.h"

#include <algorithm>
#include <utility>

#include "base/settings_store.h"

namespace tavora {
namespace {

constexpr std::u16string_view kSelModes[] = {u"New", u"Add", u"Subtract", u"Intersect"};
constexpr std::u16string_view kShapeStyles[] = {u"Outline", u"Filled", u"Outline + Fill"};
constexpr std::u16string_view kRanges[] = {u"All", u"Shadows", u"Midtones", u"Highlights"};
constexpr std::u16string_view kSamples[] = {u"1 \u00d7 1", u"3 \u00d7 3", u"5 \u00d7 5",
                                            u"9 \u00d7 9"};
constexpr int32_t kSampleValues[] = {1, 3, 5, 9};

using O = ToolOptions;
constexpr auto N = OptionControl::Number;
constexpr auto C = OptionControl::Choice;
constexpr auto K = OptionControl::Check;

const OptionDef kOptions[] = {
    {u"size", &O::size, 1, 500, 14, u"Size", N, {}, {}},
    {u"hardness", &O::hardness, 0, 100, 85, u"Hardness", N, {}, {}},
    {u"opacity", &O::opacity, 1, 100, 100, u"Opacity", N, {}, {}},
    {u"spacing", &O::spacing, 1, 200, 12, u"Spacing", N, {}, {}},
    {u"tolerance", &O::tolerance, 0, 100, 32, u"Tolerance", N, {}, {}},
    {u"feather", &O::feather, 0, 100, 0, u"Feather", N, {}, {}},
    {u"selmode", &O::selmode, 0, 3, 0, u"Mode", C, kSelModes, {}},
    {u"shapefill", &O::shapefill, 0, 3, 0, u"Style", C, kShapeStyles, {}},
    {u"linewidth", &O::linewidth, 1, 400, 4, u"Width", N, {}, {}},
    {u"cornerradius", &O::cornerradius, 0, 400, 14, u"Radius", N, {}, {}},
    {u"sample", &O::sample, 1, 51, 1, u"Sample", C, kSamples, kSampleValues},
    {u"contiguous", &O::contiguous, 0, 1, 1, u"Contiguous", K, {}, {}},
    {u"aa", &O::aa, 0, 1, 1, u"Antialias", K, {}, {}},
    {u"wandtol", &O::wandtol, 0, 100, 32, u"Sensitivity", N, {}, {}},
    {u"wandcontig", &O::wandcontig, 0, 1, 1, u"Contiguous", K, {}, {}},
    {u"wandall", &O::wandall, 0, 1, 0, u"All layers", K, {}, {}},
    {u"strength", &O::strength, 0, 100, 50, u"Strength", N, {}, {}},
    {u"range", &O::range, 0, 3, 0, u"Range", C, kRanges, {}},
    {u"exposure", &O::exposure, 1, 100, 50, u"Exposure", N, {}, {}},
    {u"cloneconst", &O::cloneconst, 0, 1, 1, u"Keep offset between strokes", K, {}, {}},
    // The text tool's font, size and style are set in its own dialog.
    {u"fontsize", &O::fontsize, 4, 2000, 72, u"", N, {}, {}},
    {u"bold", &O::bold, 0, 1, 0, u"", K, {}, {}},
    {u"italic", &O::italic, 0, 1, 0, u"", K, {}, {}},
    {u"underline", &O::underline, 0, 1, 0, u"", K, {}, {}},
    {u"text_newlayer", &O::text_newlayer, 0, 1, 1, u"On new layer", K, {}, {}},
};

constexpr std::u16string_view kSelectHint =
    u"Ctrl: add   Alt: subtract   Ctrl+Alt: intersect   Shift: square/circle   click: deselect";
constexpr std::u16string_view kFreeSelectHint = u"Ctrl: add   Alt: subtract   Ctrl+Alt: intersect";
constexpr std::u16string_view kSourceHint = u"Ctrl+click sets the source point";

const ToolInfo kTools[kToolCount] = {
    {0, u"Rectangle Select", u"selmode feather", u"Rectangle Select (M)", kSelectHint, u'M',
     false, false},
    {1, u"Ellipse Select", u"selmode feather", u"Ellipse Select (M)", kSelectHint, u'M', false,
     false},
    {2, u"Lasso", u"selmode feather", u"Freehand Select (L)", kFreeSelectHint, u'L', false,
     false},
    {3, u"", u"", u"Move layer or selection (V)",
     u"Drag to move the layer, or the selected pixels if there is a selection", u'V', false,
     false},
    {4, u"", u"", u"Crop (C)",
     u"Drag to define the crop area, adjust with handles, press Enter to apply", u'C', false,
     true},
    {5, u"Eyedropper", u"sample", u"Colour picker (I)",
     u"Left click sets foreground, right click sets background", u'I', false, false},
    {6, u"Fill", u"tolerance opacity contiguous", u"Fill (G)", u"", u'G', false, false},
    {7, u"Brush", u"size hardness opacity spacing", u"Paint brush (B)", u"", u'B', false, false},
    {8, u"Eraser", u"size hardness opacity spacing", u"Eraser (E)", u"", u'E', false, false},
    {9, u"Blur", u"size hardness strength", u"Blur brush (R)", u"", u'R', false, false},
    {10, u"Smudge", u"size hardness strength", u"Smudge (S)", u"", u'S', false, false},
    {11, u"Line", u"linewidth opacity aa", u"Line (U)", u"", u'U', false, false},
    {12, u"Rectangle", u"shapefill linewidth opacity aa", u"Rectangle (U)", u"", u'U', false,
     false},
    {13, u"Ellipse", u"shapefill linewidth opacity aa", u"Ellipse (U)", u"", u'U', false, false},
    {14, u"Rounded Rectangle", u"shapefill linewidth cornerradius opacity aa",
     u"Rounded rectangle (U)", u"", u'U', false, false},
    {15, u"Text", u"opacity text_newlayer fontname fontsize bold italic underline",
     u"Text (T) - click existing text to edit it",
     u"Click to place text, or click existing text to edit it (font, size and style are in the "
     u"dialog)",
     u'T', false, false},
    {16, u"", u"", u"Zoom (Z) - click to zoom in, right-click to zoom out",
     u"Click to zoom in, right-click (or Alt+click) to zoom out. Ctrl+wheel zooms anywhere.", u'Z',
     false, false},
    {17, u"", u"", u"Pan (H, or hold Space)",
     u"Drag to pan. You can also hold Space or use the middle mouse button with any tool.", u'H',
     false, false},
    {18, u"Polygon Select", u"selmode feather",
     u"Polygon Select (Shift+L) - click points, double-click to close", kFreeSelectHint, u'L',
     true, false},
    {19, u"Magic Wand", u"selmode wandtol feather wandcontig wandall",
     u"Magic Wand (W) - click to select similar colors", kFreeSelectHint, u'W', false, false},
    {20, u"Sharpen", u"size hardness strength", u"Sharpen brush (P)", u"", u'P', false, false},
    {21, u"Clone", u"size hardness opacity spacing cloneconst",
     u"Clone brush (K) - Ctrl+click to set the source, then paint", kSourceHint, u'K', false,
     false},
    {22, u"Spot Heal", u"size hardness opacity",
     u"Spot Healing (J) - paint over a blemish to remove it",
     u"Paint over a blemish; release to heal", u'J', false, false},
    {23, u"Heal", u"size hardness opacity spacing cloneconst",
     u"Healing Brush (Shift+J) - Ctrl+click to set the source, then paint", kSourceHint, u'J',
     true, false},
    {24, u"Sponge", u"size hardness range exposure",
     u"Sponge (O) - paint to reduce color saturation", u"", u'O', false, false},
    {25, u"Burn", u"size hardness range exposure",
     u"Burn (Shift+O) - paint to increase color saturation", u"", u'O', true, false},
    {26, u"", u"",
     u"Layer Rotate - drag the dot to rotate the active layer; Enter applies, Esc cancels",
     u"Drag the white dot to rotate the layer. Enter applies, Esc cancels", 0, false, true},
    {27, u"", u"",
     u"Layer Resize - drag a dot to resize the active layer (Shift first keeps the proportions); "
     u"Enter applies, Esc cancels",
     u"Drag a white dot to resize. Hold Shift before clicking to keep the proportions. Enter "
     u"applies, Esc cancels",
     0, false, true},
};

constexpr int32_t kPersisted[] = {0, 1, 2, 18, 19, 5, 6, 7, 8, 22, 23, 21,
                                  9, 10, 20, 24, 25, 11, 12, 13, 14, 15};

std::u16string Section(int32_t id) { return u"Tool " + std::u16string(Tool(id).name); }

// Splits "a b c" into its words.
std::vector<std::u16string_view> Words(std::u16string_view list) {
  std::vector<std::u16string_view> words;
  while (!list.empty()) {
    const std::size_t space = list.find(u' ');
    words.push_back(list.substr(0, space));
    list = space == list.npos ? std::u16string_view{} : list.substr(space + 1);
  }
  return words;
}

constexpr int32_t kMissing = -999999;

}  // namespace

std::span<const OptionDef> OptionDefs() { return kOptions; }

const OptionDef* FindOption(std::u16string_view key) {
  for (const OptionDef& def : kOptions)
    if (def.key == key) return &def;
  return nullptr;
}

int32_t ClampOption(const OptionDef& def, int32_t value) {
  return std::clamp(value, def.minimum, def.maximum);
}

std::optional<int32_t> ParseOptionValue(const OptionDef& def, std::u16string_view text) {
  while (!text.empty() && text.front() == u' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == u' ') text.remove_suffix(1);
  if (text.empty() || text.size() > 9) return std::nullopt;
  int32_t value = 0;
  for (char16_t c : text) {
    if (c < u'0' || c > u'9') return std::nullopt;
    value = value * 10 + (c - u'0');
  }
  return ClampOption(def, value);
}

int32_t ChoiceIndex(const OptionDef& def, int32_t value) {
  if (def.choiceValues.empty())
    return std::clamp(value, 0, static_cast<int32_t>(def.choices.size()) - 1);
  // The nearest listed value at or below, so an odd stored size still shows.
  int32_t index = 0;
  for (std::size_t i = 0; i < def.choiceValues.size(); ++i)
    if (def.choiceValues[i] <= value) index = static_cast<int32_t>(i);
  return index;
}

int32_t ChoiceValue(const OptionDef& def, int32_t index) {
  const int32_t count = static_cast<int32_t>(def.choices.size());
  index = std::clamp(index, 0, count - 1);
  return def.choiceValues.empty() ? index : def.choiceValues[static_cast<std::size_t>(index)];
}

std::u16string_view ToolTitle(int32_t id) {
  std::u16string_view tip = Tool(id).tip;
  const std::size_t end = std::min(tip.find(u" ("), tip.find(u" - "));
  return tip.substr(0, end);
}

const ToolInfo& Tool(int32_t id) { return kTools[std::clamp(id, 0, kToolCount - 1)]; }

std::span<const int32_t> PersistedTools() { return kPersisted; }

std::vector<const OptionDef*> ToolOptionDefs(int32_t id) {
  std::vector<const OptionDef*> defs;
  for (std::u16string_view key : Words(Tool(id).optionKeys))
    if (const OptionDef* def = FindOption(key)) defs.push_back(def);
  return defs;
}

bool HasFontName(int32_t id) {
  for (std::u16string_view key : Words(Tool(id).optionKeys))
    if (key == u"fontname") return true;
  return false;
}

int32_t ToolForKey(char16_t upperKey, bool shift, int32_t currentTool) {
  std::vector<int32_t> group;
  for (const ToolInfo& tool : kTools)
    if (tool.key != 0 && tool.key == upperKey && tool.shiftKey == shift) group.push_back(tool.id);
  if (group.empty()) return -1;
  const auto at = std::find(group.begin(), group.end(), currentTool);
  if (at == group.end()) return group.front();
  return std::next(at) == group.end() ? group.front() : *std::next(at);
}

bool IsBrushCursorTool(int32_t id) {
  switch (id) {
    case kToolBrush: case kToolEraser: case kToolBlur: case kToolSmudge: case kToolSharpen:
    case kToolSponge: case kToolBurn: case kToolClone: case kToolSpotHeal: case kToolHeal:
      return true;
    default:
      return false;
  }
}

std::u16string ColorToHex(uint32_t color) {
  static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
  std::u16string text(6, u'0');
  for (int i = 5; i >= 0; --i, color >>= 4) text[static_cast<std::size_t>(i)] = kDigits[color & 15];
  return text;
}

uint32_t ColorFromHex(std::u16string_view text, uint32_t fallback) {
  while (!text.empty() && (text.front() == u' ' || text.front() == u'\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == u' ' || text.back() == u'\t')) text.remove_suffix(1);
  if (text.empty() || text.size() > 8) return fallback;
  uint32_t value = 0;
  for (char16_t c : text) {
    int digit;
    if (c >= u'0' && c <= u'9') digit = c - u'0';
    else if (c >= u'a' && c <= u'f') digit = c - u'a' + 10;
    else if (c >= u'A' && c <= u'F') digit = c - u'A' + 10;
    else return fallback;
    value = value << 4 | static_cast<uint32_t>(digit);
  }
  return 0xFF000000u | (value & 0xFFFFFFu);
}

ToolSettings::ToolSettings() { saved_ = slots_; }

void ToolSettings::SetTool(int32_t id) {
  id = std::clamp(id, 0, kToolCount - 1);
  slots_[static_cast<std::size_t>(current_)] = options_;
  current_ = id;
  options_ = slots_[static_cast<std::size_t>(id)];
}

const ToolOptions& ToolSettings::OptionsOf(int32_t id) const {
  id = std::clamp(id, 0, kToolCount - 1);
  return id == current_ ? options_ : slots_[static_cast<std::size_t>(id)];
}

void ToolSettings::Load(const SettingsStore& store) {
  const SettingsSnapshot file = store.Snapshot();
  for (int32_t id : kPersisted) {
    ToolOptions& slot = slots_[static_cast<std::size_t>(id)];
    const std::u16string section = Section(id);
    // The shared "Tools" section is the fallback; the tool's own wins.
    for (const OptionDef* def : ToolOptionDefs(id)) {
      int32_t value = file.GetInt(u"Tools", def->key, slot.*def->field);
      value = file.GetInt(section, def->key, value);
      slot.*def->field = ClampOption(*def, value);
    }
    if (HasFontName(id)) {
      std::u16string name = file.GetString(u"Tools", u"fontname", slot.fontname, 64);
      name = file.GetString(section, u"fontname", name, 64);
      if (!name.empty()) slot.fontname = name.substr(0, kMaxFontName);
    }
  }
  colors.left = ColorFromHex(file.GetString(u"Colors", u"Primary"), colors.left);
  colors.right = ColorFromHex(file.GetString(u"Colors", u"Secondary"), colors.right);
  colors.selected = file.GetInt(u"Colors", u"Selected", 0) == 1 ? 1 : 0;
  options_ = slots_[static_cast<std::size_t>(current_)];
  saved_ = slots_;
  savedColors_ = colors;
}

void ToolSettings::Save(SettingsStore& store) {
  slots_[static_cast<std::size_t>(current_)] = options_;
  // One read to find what is missing, one write for everything.
  const SettingsSnapshot file = store.Snapshot();
  std::vector<SettingsStore::Write> writes;
  for (int32_t id : kPersisted) {
    const ToolOptions& now = slots_[static_cast<std::size_t>(id)];
    const ToolOptions& was = saved_[static_cast<std::size_t>(id)];
    const std::u16string section = Section(id);
    for (const OptionDef* def : ToolOptionDefs(id)) {
      if (resetPending_ || now.*def->field != was.*def->field ||
          file.GetInt(section, def->key, kMissing) == kMissing) {
        const std::string digits = std::to_string(now.*def->field);
        writes.push_back({section, std::u16string(def->key), std::u16string(digits.begin(), digits.end())});
      }
    }
    if (HasFontName(id) &&
        (resetPending_ || now.fontname != was.fontname || !file.Has(section, u"fontname")))
      writes.push_back({section, u"fontname", now.fontname});
  }
  if (resetPending_ || colors.left != savedColors_.left || !file.Has(u"Colors", u"Primary"))
    writes.push_back({u"Colors", u"Primary", ColorToHex(colors.left)});
  if (resetPending_ || colors.right != savedColors_.right || !file.Has(u"Colors", u"Secondary"))
    writes.push_back({u"Colors", u"Secondary", ColorToHex(colors.right)});
  if (resetPending_ || colors.selected != savedColors_.selected || !file.Has(u"Colors", u"Selected"))
    writes.push_back({u"Colors", u"Selected", colors.selected == 1 ? u"1" : u"0"});
  store.SetMany(writes);
  saved_ = slots_;
  savedColors_ = colors;
  resetPending_ = false;
}

void ToolSettings::Reset() {
  slots_.fill(ToolOptions{});
  options_ = ToolOptions{};
  colors = ColorBoxes{};
  resetPending_ = true;
}

}  // namespace tavora

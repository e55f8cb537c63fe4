#pragma once
// The tools: their ids, names, tips, keys and hints; the options each tool
// keeps, with ranges and defaults; the two colour boxes; and how all of it
// is remembered in the settings file, separately for every tool.
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tavora {

class SettingsStore;

enum ToolId : int32_t {
  kToolRectSelect = 0, kToolEllipseSelect = 1, kToolLasso = 2, kToolMove = 3, kToolCrop = 4,
  kToolEyedropper = 5, kToolFill = 6, kToolBrush = 7, kToolEraser = 8, kToolBlur = 9,
  kToolSmudge = 10, kToolLine = 11, kToolRectangle = 12, kToolEllipse = 13,
  kToolRoundedRect = 14, kToolText = 15, kToolZoom = 16, kToolPan = 17,
  kToolPolygonSelect = 18, kToolMagicWand = 19, kToolSharpen = 20, kToolClone = 21,
  kToolSpotHeal = 22, kToolHeal = 23, kToolSponge = 24, kToolBurn = 25,
  kToolLayerRotate = 26, kToolLayerResize = 27,
};
inline constexpr int32_t kToolCount = 28;
// The tool the editor starts with.
inline constexpr int32_t kStartTool = kToolBrush;

// Modifier bits of tool input and tool keys.
inline constexpr int kModShift = 1, kModCtrl = 2, kModAlt = 4;

struct ToolOptions {
  int32_t size = 14, hardness = 85, opacity = 100, spacing = 12, tolerance = 32, feather = 0,
          selmode = 0, shapefill = 0, linewidth = 4, cornerradius = 14, sample = 1,
          contiguous = 1, aa = 1, wandtol = 32, wandcontig = 1, wandall = 0, strength = 50,
          range = 0, exposure = 50, cloneconst = 1;
  std::u16string fontname = u"Segoe UI";
  int32_t fontsize = 72, bold = 0, italic = 0, underline = 0, text_newlayer = 1;

  bool operator==(const ToolOptions&) const = default;
};
inline constexpr std::size_t kMaxFontName = 63;

// How the options bar shows a value.
enum class OptionControl : uint8_t { Number, Choice, Check };

struct OptionDef {
  std::u16string_view key;
  int32_t ToolOptions::*field;
  int32_t minimum, maximum, fallback;
  std::u16string_view label;  // on the options bar; empty when the bar never shows it
  OptionControl control;
  std::span<const std::u16string_view> choices;  // item i stands for choiceValues[i] or i
  std::span<const int32_t> choiceValues;
};
// Every whole-number option, in the record's order.
std::span<const OptionDef> OptionDefs();
const OptionDef* FindOption(std::u16string_view key);
// Inside the option's range.
int32_t ClampOption(const OptionDef& def, int32_t value);
// A number typed on the options bar, clamped; nothing for text that is not
// a whole number (an empty box while typing).
std::optional<int32_t> ParseOptionValue(const OptionDef& def, std::u16string_view text);
// The choice list's index of a value, and back.
int32_t ChoiceIndex(const OptionDef& def, int32_t value);
int32_t ChoiceValue(const OptionDef& def, int32_t index);

struct ToolInfo {
  int32_t id;
  std::u16string_view name;        // settings section "Tool <name>"; empty: nothing kept
  std::u16string_view optionKeys;  // separated by single spaces
  std::u16string_view tip;         // the toolbox button's tooltip
  std::u16string_view hint;        // shown on the options bar
  char16_t key;                    // its key (upper-case letter), 0 for none
  bool shiftKey;                   // with Shift held
  bool applyCancelButtons;         // the options bar offers "Apply" and "Cancel"
};
const ToolInfo& Tool(int32_t id);  // id clamped into range
// The tool's short title: its tip up to the key or the explanation.
std::u16string_view ToolTitle(int32_t id);
// The tools whose options are kept, in the order their sections are written.
std::span<const int32_t> PersistedTools();
// The options a tool lists, in its list's order; the font name is not among
// them (see HasFontName).
std::vector<const OptionDef*> ToolOptionDefs(int32_t id);
bool HasFontName(int32_t id);

// Which tool a plain key (with or without Shift) selects: a key shared by
// several tools steps through them when one of them is current. -1: none.
int32_t ToolForKey(char16_t upperKey, bool shift, int32_t currentTool);

// The brush tools show the brush cursor on the canvas.
bool IsBrushCursorTool(int32_t id);

struct ColorBoxes {
  uint32_t left = 0xFF000000, right = 0xFFFFFFFF;  // 0xAARRGGBB, always opaque
  int32_t selected = 0;                            // 0 left, 1 right

  uint32_t Primary() const { return selected == 1 ? right : left; }
  uint32_t Secondary() const { return selected == 1 ? left : right; }
  bool operator==(const ColorBoxes&) const = default;
};
// "%06X" of the RGB; and back: hexadecimal RGB, alpha forced opaque, or the
// fallback when the text is not a hexadecimal number.
std::u16string ColorToHex(uint32_t color);
uint32_t ColorFromHex(std::u16string_view text, uint32_t fallback);

// The options of every tool, the current tool's record, the colour boxes,
// and what was last loaded or saved so a save writes only changes.
class ToolSettings {
 public:
  ToolSettings();

  int32_t CurrentTool() const { return current_; }
  // The record the tools read and the options bar edits.
  ToolOptions& Current() { return options_; }
  const ToolOptions& Current() const { return options_; }
  // Keeps the current record in the old tool's slot, then takes the new one.
  void SetTool(int32_t id);
  // The record of any tool (the current tool's live record for it).
  const ToolOptions& OptionsOf(int32_t id) const;

  ColorBoxes colors;

  void Load(const SettingsStore& store);
  void Save(SettingsStore& store);
  // Every record back to the defaults, all written at the next save.
  void Reset();

 private:
  std::array<ToolOptions, kToolCount> slots_;
  std::array<ToolOptions, kToolCount> saved_;
  ToolOptions options_;
  int32_t current_ = kStartTool;
  ColorBoxes savedColors_;
  bool resetPending_ = false;
};

}  // namespace tavora

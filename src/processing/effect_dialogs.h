#pragma once
// The table of effect dialogs: each effect's rows with their ranges and
// defaults, its operation and packer, margin and options. The dialogs, the
// remembered values and tavora-cli all read this one table.
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "processing/adjustments.h"

namespace tavora {

enum class RowKind : uint32_t { Edit = 0, SquareSlider = 1, CentredSlider = 2 };
enum class MarginKind : uint32_t { None = 0, FromFirstValue = 1, WholeLayer = 2 };

struct ParamRow {
  std::u16string_view label;
  double minimum, maximum, fallback;
  uint32_t decimals;
  RowKind kind;
};

// The dialog's values: one per row, then the option checkbox and the choice.
struct EffectValues {
  std::vector<double> rows;
  bool option = false;
  int32_t choice = 0;
  uint32_t color1 = 0xFF000000, color2 = 0xFFFFFFFF;  // opaque 0xAARRGGBB
};

// Turns the values into the operation's parameter block.
using EffectPacker = void (*)(const EffectValues& values, void* block);

struct EffectDef {
  std::u16string_view title;
  std::u16string_view historyName;
  std::span<const ParamRow> rows;
  std::u16string_view optionLabel;  // empty: no checkbox
  PixelOp operation;                // null: the operation has not landed yet
  EffectPacker packer;
  MarginKind margin;
  bool livePreview;
  std::u16string_view color1Label, color2Label;
  std::u16string_view choiceLabel;
  std::span<const std::u16string_view> choices;
  std::u16string_view shortName;    // for tavora-cli: "brightness-contrast", ...
};

// The adjustments and filters that act at once, without a dialog.
struct ImmediateOp {
  int32_t command;                // the menu command
  std::u16string_view historyName;
  PixelOp operation;
  int32_t margin;
  std::u16string_view shortName;  // for tavora-cli
};
std::span<const ImmediateOp> ImmediateOps();
const ImmediateOp* FindImmediateOp(std::u16string_view historyOrShortName);

// All sixteen effect dialogs, in menu order.
std::span<const EffectDef> EffectDefs();
const EffectDef* FindEffect(std::u16string_view titleOrShortName);

// The values a dialog starts from: the defaults.
EffectValues DefaultValues(const EffectDef& def);
// The margin an effect asks for with these values.
int32_t EffectDialogMargin(const EffectDef& def, double firstValue);

// Slider positions 0..N of a slider row.
int32_t SliderSteps(const ParamRow& row);
double SliderValue(const ParamRow& row, int32_t position);
int32_t SliderPosition(const ParamRow& row, double value);
// A slider row's value as read: rounded to the row's decimals.
double RoundToDecimals(double value, uint32_t decimals);

// The whole text as one finite number (spaces around it allowed); nothing
// for an empty text, trailing characters, "nan" or "inf".
std::optional<double> ParseFiniteNumber(std::u16string_view text);
// A value typed into a row (the dialog's field, tavora-cli): a finite
// number rounded to the row's decimals as its slider would store it, and
// then within the row's range. Nothing otherwise: the caller shows
// RangeMessage.
std::optional<double> ParseTypedValue(std::u16string_view text, const ParamRow& row);

// The single-value prompt's texts: "Range: %g – %g" and, for a value out
// of range, "Please enter a value between %g and %g.".
std::u16string RangeHint(double minimum, double maximum);
std::u16string RangeMessage(double minimum, double maximum);

// Remembered values: "Dlg <title>" / "c<row>".
std::u16string RememberSection(const EffectDef& def);
std::u16string FormatNumber(double value);             // "%.6g"
std::optional<double> ParseRemembered(std::u16string_view text, const ParamRow& row);
// A remembered checkbox (limit 1) or choice (limit: the last index): a
// whole number 0..limit, else nothing and the control keeps its default.
std::optional<int32_t> ParseRememberedIndex(std::u16string_view text, int32_t limit);
// A colour: "%06X" of its red, green and blue, and back (base 16, not
// negative, at most FFFFFF; made opaque).
std::u16string FormatColor(uint32_t color);
std::optional<uint32_t> ParseRememberedColor(std::u16string_view text);

}  // namespace tavora

#include "processing/effect_dialogs.h"

#include <gtest/gtest.h>

#include <set>

#include "base/command_ids.h"
#include "processing/filters.h"
#include "processing/spiral.h"

namespace tavora {
namespace {

// Names a failing row; the texts here are ASCII.
std::string Ascii(std::u16string_view text) { return {text.begin(), text.end()}; }

TEST(EffectTable, DialogsHaveUniqueNamesSaneRowsAndOperations) {
  std::set<std::u16string_view> names;
  for (const EffectDef& def : EffectDefs()) {
    EXPECT_TRUE(names.insert(def.shortName).second);
    EXPECT_TRUE(def.rows.size() >= 1 && def.rows.size() <= 6) << def.rows.size();
    EXPECT_EQ(def.operation == nullptr, def.packer == nullptr);
    for (const ParamRow& row : def.rows) EXPECT_TRUE(row.minimum <= row.fallback && row.fallback <= row.maximum);
  }
  const EffectDef* gauss = FindEffect(u"gaussian blur");  // titles in any case, or short names
  ASSERT_TRUE(gauss);
  EXPECT_EQ(EffectDialogMargin(*gauss, 2.5), 10);  // ceil(7.5) + 2
  EXPECT_EQ(EffectDialogMargin(*FindEffect(u"HDR Tone Map"), 1), 1048576);  // the whole layer
  EXPECT_EQ(FindEffect(u"brightness-contrast")->historyName, u"Brightness/Contrast");
  EXPECT_EQ(FindEffect(u"nothing"), nullptr);
  // The immediate operations are found by short or history name.
  EXPECT_EQ(FindImmediateOp(u"edge-detect")->command, kCmdEdgeDetect);
  EXPECT_EQ(FindImmediateOp(u"Auto Tone")->command, kCmdAutoTone);
}

TEST(EffectTable, PackersTruncateIntoTheParameterBlocks) {
  EffectValues v{{-12.9, 40.99}};
  BrightnessContrastParams bc;
  FindEffect(u"brightness-contrast")->packer(v, &bc);
  EXPECT_EQ(std::pair(bc.brightness, bc.contrast), std::pair(-12, 40));
  AddNoiseParams n;
  FindEffect(u"add-noise")->packer({{30}, true, 1}, &n);
  EXPECT_EQ(std::tuple(n.amount, n.monochromatic, n.gaussian), std::tuple(30, true, false));  // 1: "Uniform"
  SpiralParams sp;
  FindEffect(u"spiral")->packer({{12.7, 80, 0}, true, 0, 0x00FF0000, 0xFF0000FF}, &sp);
  // Colours are laid opaque.
  EXPECT_EQ(std::tuple(sp.thickness, sp.radiusPercent, sp.counterClockwise, sp.color1, sp.color2),
            std::tuple(12, 80, true, 0xFFFF0000u, 0xFF0000FFu));
}

TEST(EffectSliders, StepsMappingsAndRounding) {
  const ParamRow distance{u"Distance (px):", 1, 300, 20, 0, RowKind::SquareSlider};
  const ParamRow wide{u"x", 0, 100, 3, 1, RowKind::SquareSlider}, huge{u"x", 0, 1e6, 0, 2, RowKind::SquareSlider};
  // Distance needs 957, raised to 1000; its values follow the square law.
  EXPECT_EQ(std::tuple(SliderSteps(distance), SliderSteps(wide), SliderSteps(huge)), std::tuple(1000, 3200, 200000));
  EXPECT_EQ(std::tuple(SliderValue(distance, 0), SliderValue(distance, 500), SliderValue(distance, 1000)),
            std::tuple(1, 1 + 299 * 0.25, 300));
  const ParamRow centred{u"Hue:", -180, 180, 0, 0, RowKind::CentredSlider};
  const int32_t n = SliderSteps(centred);
  EXPECT_EQ(std::tuple(SliderValue(centred, 0), SliderValue(centred, n / 2), SliderValue(centred, n)),
            std::tuple(-180, 0, 180));
  for (double value : {-180.0, -33.0, 0.0, 12.0, 179.0}) {
    const int32_t p = SliderPosition(centred, value);
    EXPECT_NEAR(SliderValue(centred, p), value, 0.5) << value;
  }
  for (double value : {1.0, 2.0, 57.0, 300.0})
    EXPECT_NEAR(RoundToDecimals(SliderValue(distance, SliderPosition(distance, value)), 0), value, 1.0);
  EXPECT_EQ(std::pair(RoundToDecimals(2.345, 2), RoundToDecimals(-0.4, 0)), std::pair(2.35, 0.0));
}

TEST(EffectMemory, RememberedValuesAreCheckedAgainstTheRow) {
  const EffectDef& gauss = *FindEffect(u"Gaussian Blur");
  EXPECT_EQ(RememberSection(gauss), u"Dlg Gaussian Blur");
  EXPECT_EQ(ParseRemembered(u"2.5", gauss.rows[0]), 2.5);
  for (const char16_t* bad : {u"250", u"abc", u"3x", u"nan"})  // 250: over the maximum
    EXPECT_EQ(ParseRemembered(bad, gauss.rows[0]), std::nullopt) << Ascii(bad);
  EXPECT_EQ(FormatNumber(2.5), u"2.5");
  EXPECT_EQ(FormatNumber(1234567.0), u"1.23457e+06");
  EXPECT_EQ(RangeHint(1, 250), u"Range: 1 \u2013 250");
  EXPECT_EQ(RangeMessage(-360, 0.5), u"Please enter a value between -360 and 0.5.");
  // Colours: base 16, within 0..FFFFFF, and opaque when read.
  EXPECT_EQ(FormatColor(0xFF12AB0F), u"12AB0F");
  EXPECT_EQ(ParseRememberedColor(u"12ab0f"), 0xFF12AB0Fu);
  EXPECT_EQ(ParseRememberedColor(u"0"), 0xFF000000u);
  for (const char16_t* bad : {u"1000000", u"-1", u"green"})
    EXPECT_EQ(ParseRememberedColor(bad), std::nullopt) << Ascii(bad);
  // Checkboxes and choices: a whole number within the control's limit, else
  // the default; a "Live preview" of "abc" is not a 0 that would switch it off.
  for (const char16_t* bad : {u"abc", u"", u"2", u"0.5"})
    EXPECT_EQ(ParseRememberedIndex(bad, 1), std::nullopt) << Ascii(bad);
  EXPECT_EQ(std::tuple(ParseRememberedIndex(u"0", 1), ParseRememberedIndex(u" 1 ", 1), ParseRememberedIndex(u"-1", 3)),
            std::tuple(0, 1, std::nullopt));
}

TEST(EffectTyping, TypedValuesAreWholeFiniteNumbersRoundedThenChecked) {
  const ParamRow& gauss = FindEffect(u"Gaussian Blur")->rows[0];  // 0.1..100, one decimal
  const ParamRow& threshold = FindEffect(u"Threshold")->rows[0];   // 0..255, whole
  for (const char16_t* bad : {u"", u"  ", u"nan", u"-nan", u"inf", u"-inf", u"1e999", u"2x", u"x2", u"1,5"})
    EXPECT_EQ(ParseTypedValue(bad, gauss), std::nullopt) << Ascii(bad);
  // "0.04" is 0.0 after rounding, below the minimum.
  const struct { const char16_t* text; const ParamRow& row; std::optional<double> want; } cases[] = {
      {u"250", gauss, std::nullopt},  {u"0.04", gauss, std::nullopt},    {u"0.05", gauss, 0.1},
      {u" 2.46 ", gauss, 2.5},        {u"100.04", gauss, 100.0},         {u"127.6", threshold, 128.0},
      {u"-0.4", threshold, 0.0},      {u"255.5", threshold, std::nullopt}};
  for (const auto& c : cases) EXPECT_EQ(ParseTypedValue(c.text, c.row), c.want) << Ascii(c.text);
}

}  // namespace
}  // namespace tavora

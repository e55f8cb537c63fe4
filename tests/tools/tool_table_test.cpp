#include "tools/tool_table.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "base/settings_store.h"
#include "base/file_io.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::TempDir;

struct StoreInFolder {
  TempDir dir;
  SettingsStore store;
  StoreInFolder() { store.Open(dir.path()); }
  void Write(const std::string& text) {
    std::ofstream(dir / "tavora.ini", std::ios::binary) << text;
  }
  std::string Text() const { return ReadWholeFile(dir / "tavora.ini").value_or(""); }
};

TEST(ToolTable, IdsOptionKeysAndDefaultsAgree) {
  for (int32_t id = 0; id < kToolCount; ++id) EXPECT_EQ(Tool(id).id, id);
  std::set<int32_t> persisted(PersistedTools().begin(), PersistedTools().end());
  EXPECT_EQ(persisted.size(), 22u);
  for (int32_t id = 0; id < kToolCount; ++id) {
    // Exactly the tools with a settings name keep options.
    EXPECT_EQ(persisted.count(id) == 1, !Tool(id).name.empty()) << id;
    std::size_t words = Tool(id).optionKeys.empty() ? 0 : 1;
    for (char16_t c : Tool(id).optionKeys) words += c == u' ';
    EXPECT_EQ(ToolOptionDefs(id).size() + (HasFontName(id) ? 1 : 0), words) << id;
  }
  // The table's defaults are the record's.
  const ToolOptions defaults;
  for (const OptionDef& def : OptionDefs()) {
    EXPECT_EQ(defaults.*def.field, def.fallback) << std::string(def.key.begin(), def.key.end());
    EXPECT_LE(def.minimum, def.fallback);
    EXPECT_GE(def.maximum, def.fallback);
    if (def.control == OptionControl::Choice && def.choiceValues.empty()) {
      EXPECT_LE(def.choices.size(), std::size_t(def.maximum + 1));
    }
  }
}

TEST(ToolTable, KeysSelectToolsAndStepThroughSharedKeys) {
  const struct {
    char16_t key;
    bool shift;
    int32_t from, want;
  } keys[] = {
      {u'B', false, kToolRectSelect, kToolBrush},      {u'M', false, kToolBrush, kToolRectSelect},
      {u'M', false, kToolRectSelect, kToolEllipseSelect}, {u'M', false, kToolEllipseSelect, kToolRectSelect},
      {u'L', false, kToolBrush, kToolLasso},           {u'L', true, kToolLasso, kToolPolygonSelect},
      {u'J', true, kToolBrush, kToolHeal},             {u'O', true, kToolBrush, kToolBurn},
      {u'B', true, kToolBrush, -1},                    {u'X', false, kToolBrush, -1},
  };
  for (const auto& k : keys) EXPECT_EQ(ToolForKey(k.key, k.shift, k.from), k.want) << char(k.key) << k.shift << k.from;
  int32_t tool = kToolBrush;
  std::vector<int32_t> shapes;
  for (int i = 0; i < 5; ++i) shapes.push_back(tool = ToolForKey(u'U', false, tool));
  EXPECT_EQ(shapes, (std::vector<int32_t>{kToolLine, kToolRectangle, kToolEllipse, kToolRoundedRect, kToolLine}));
}

TEST(ToolColors, HexTextBothWays) {
  EXPECT_EQ(ColorToHex(0xFF12ABEF), u"12ABEF");
  EXPECT_EQ(ColorToHex(0xFF000000), u"000000");
  // Alpha is always opaque; text that is not hex, or too long, keeps the fallback.
  for (auto [text, want] : {std::pair{u"12abef", 0xFF12ABEFu}, {u" FF ", 0xFF0000FFu}, {u"7F00FF00", 0xFF00FF00u},
                            {u"red", 0xFF010203u}, {u"", 0xFF010203u}, {u"123456789", 0xFF010203u}})
    EXPECT_EQ(ColorFromHex(text, 0xFF010203), want) << std::hex << want;
}

TEST(ToolSettingsRecords, SwitchingToolsKeepsEachToolsOwnRecord) {
  ToolSettings tools;
  tools.SetTool(kToolBrush);
  tools.Current().size = 40;
  tools.SetTool(kToolEraser);
  EXPECT_EQ(tools.Current().size, 14);
  tools.Current().size = 90;
  EXPECT_EQ(tools.OptionsOf(kToolBrush).size, 40);
  EXPECT_EQ(tools.OptionsOf(kToolEraser).size, 90);  // the live record
  tools.SetTool(kToolBrush);
  EXPECT_EQ(tools.Current().size, 40);
  tools.SetTool(999);
  EXPECT_EQ(tools.CurrentTool(), kToolCount - 1);
}

TEST(ToolSettingsLoad, ClampsFallsBackToToolsSectionAndReadsColours) {
  StoreInFolder s;
  s.Write(
      "[Tools]\r\nhardness=10\r\nfeather=7\r\n"
      "[Tool Brush]\r\nsize=900\r\nspacing=0\r\nhardness=60\r\n"
      "[Tool Text]\r\nfontname=Liberation Serif\r\n"
      "[Tool Magic Wand]\r\nwandtol=-5\r\n"
      "[Colors]\r\nPrimary=ff8000\r\nSecondary=zz\r\nSelected=2\r\n");
  ToolSettings tools;
  tools.Load(s.store);
  const ToolOptions& brush = tools.OptionsOf(kToolBrush);
  EXPECT_EQ(brush.size, 500);
  EXPECT_EQ(brush.spacing, 1);
  EXPECT_EQ(brush.hardness, 60);  // the tool's own section wins
  EXPECT_EQ(tools.OptionsOf(kToolEraser).hardness, 10);
  EXPECT_EQ(tools.OptionsOf(kToolRectSelect).feather, 7);
  EXPECT_EQ(tools.OptionsOf(kToolMagicWand).feather, 7);
  EXPECT_EQ(tools.OptionsOf(kToolMagicWand).wandtol, 0);
  // Tools that do not list a key keep its default.
  EXPECT_EQ(tools.OptionsOf(kToolFill).hardness, 85);
  EXPECT_EQ(tools.OptionsOf(kToolText).fontname, u"Liberation Serif");
  EXPECT_EQ(tools.Current(), tools.OptionsOf(kStartTool));
  EXPECT_EQ(tools.colors.left, 0xFFFF8000u);
  EXPECT_EQ(tools.colors.right, 0xFFFFFFFFu);
  EXPECT_EQ(tools.colors.selected, 0);
  EXPECT_EQ(tools.colors.Primary(), 0xFFFF8000u);
}

TEST(ToolSettingsSave, WritesMissingKeysThenOnlyChanges) {
  StoreInFolder s;
  ToolSettings tools;
  tools.Load(s.store);
  tools.Save(s.store);
  // Everything was missing, so everything is written.
  EXPECT_EQ(s.store.GetInt(u"Tool Brush", u"size", 0), 14);
  EXPECT_EQ(s.store.GetInt(u"Tool Burn", u"exposure", 0), 50);
  EXPECT_EQ(s.store.GetString(u"Tool Text", u"fontname"), u"Segoe UI");
  EXPECT_EQ(s.store.GetString(u"Colors", u"Primary"), u"000000");
  EXPECT_EQ(s.store.GetString(u"Colors", u"Secondary"), u"FFFFFF");
  EXPECT_EQ(s.store.GetString(u"Colors", u"Selected"), u"0");
  EXPECT_EQ(s.store.GetString(u"Tool Brush", u"tolerance", u"none"), u"none");

  // A value changed behind the program's back survives a save without
  // changes: nothing is written the second time.
  s.store.SetInt(u"Tool Eraser", u"size", 33);
  const std::string before = s.Text();
  tools.Save(s.store);
  EXPECT_EQ(s.Text(), before);

  tools.Current().opacity = 55;  // the Brush is current
  tools.colors.selected = 1;
  tools.Save(s.store);
  EXPECT_EQ(s.store.GetInt(u"Tool Brush", u"opacity", 0), 55);
  EXPECT_EQ(s.store.GetInt(u"Colors", u"Selected", 0), 1);
  EXPECT_EQ(s.store.GetInt(u"Tool Eraser", u"size", 0), 33);

  // A key deleted from the file is written again.
  s.store.ClearSections({u"Colors", u"Tool Brush"});
  tools.Save(s.store);
  EXPECT_EQ(s.store.GetInt(u"Tool Eraser", u"size", 0), 14);
}

TEST(ToolSettingsSave, ResetWritesEveryDefaultAgain) {
  StoreInFolder s;
  s.Write("[Tool Brush]\r\nsize=70\r\n[Colors]\r\nPrimary=123456\r\n");
  ToolSettings tools;
  tools.Load(s.store);
  tools.Save(s.store);
  s.store.SetInt(u"Tool Sponge", u"range", 2);  // differs from what the program holds
  tools.Reset();
  EXPECT_EQ(tools.Current().size, 14);
  EXPECT_EQ(tools.colors, ColorBoxes{});
  tools.Save(s.store);
  EXPECT_EQ(s.store.GetInt(u"Tool Brush", u"size", 0), 14);
  EXPECT_EQ(s.store.GetInt(u"Tool Sponge", u"range", 9), 0);
  EXPECT_EQ(s.store.GetString(u"Colors", u"Primary"), u"000000");
  // And a later load gives the defaults back.
  ToolSettings again;
  again.Load(s.store);
  EXPECT_EQ(again.OptionsOf(kToolBrush), ToolOptions{});
}

TEST(ToolOptionsBarValues, TypedNumbersChoicesAndTitles) {
  const OptionDef& size = *FindOption(u"size");
  for (auto [text, want] : {std::pair{u"40", std::optional(40)}, {u" 900 ", 500}, {u"0", 1}, {u"", std::nullopt},
                            {u"4x", std::nullopt}, {u"99999999999", std::nullopt}})
    EXPECT_EQ(ParseOptionValue(size, text), want);
  const OptionDef& sample = *FindOption(u"sample");
  EXPECT_EQ(ChoiceValue(sample, 2), 5);
  EXPECT_EQ(ChoiceIndex(sample, 9), 3);
  EXPECT_EQ(ChoiceIndex(sample, 51), 3);  // a stored size between the choices
  EXPECT_EQ(ChoiceIndex(sample, 4), 1);
  const OptionDef& style = *FindOption(u"shapefill");
  EXPECT_EQ(ChoiceIndex(style, 3), 2);  // the range allows a value the list lacks
  EXPECT_EQ(ChoiceValue(style, 7), 2);
  EXPECT_EQ(ToolTitle(kToolBrush), u"Paint brush");
  EXPECT_EQ(ToolTitle(kToolPan), u"Pan");
  EXPECT_EQ(ToolTitle(kToolLayerRotate), u"Layer Rotate");
  EXPECT_EQ(ToolTitle(kToolMagicWand), u"Magic Wand");
}

}  // namespace
}  // namespace tavora

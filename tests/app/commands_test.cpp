#include "app/commands.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace tavora {
namespace {

void CollectIds(std::span<const MenuNode> nodes, std::vector<int32_t>& ids) {
  for (const MenuNode& n : nodes) {
    if (n.kind == MenuNode::Kind::Item) ids.push_back(n.id);
    if (n.kind == MenuNode::Kind::Submenu) CollectIds(n.children, ids);
  }
}

std::vector<int32_t> MenuIds() {
  std::vector<int32_t> ids;
  CollectIds(MenuBar(), ids);
  return ids;
}

TEST(MenuBarTable, MenusInOrderWithUniqueIdsThatAllTakePartInGreying) {
  std::vector<std::u16string_view> titles;
  for (const MenuNode& m : MenuBar()) titles.push_back(m.text);
  EXPECT_EQ(titles, (std::vector<std::u16string_view>{u"&File", u"&Edit", u"&Select", u"&View",
                                                      u"&Image", u"&Adjust", u"Effe&cts",
                                                      u"&Layers", u"&Tabs", u"&Help"}));
  std::vector<int32_t> ids = MenuIds();
  EXPECT_EQ(ids.size(), 101u);
  EXPECT_EQ(std::set<int32_t>(ids.begin(), ids.end()).size(), ids.size());
  // Every command that takes part in greying is on the menu, and the other way round.
  std::vector<int32_t> greyed(CommandsWithAvailability().begin(), CommandsWithAvailability().end());
  std::sort(ids.begin(), ids.end());
  std::sort(greyed.begin(), greyed.end());
  EXPECT_EQ(ids, greyed);
  // Submenus are reached: Effects > Blur > Gaussian Blur.
  EXPECT_EQ(MenuBar()[6].children[0].children[1].id, kCmdGaussianBlur);
}

TEST(AcceleratorTable, FortyFiveDistinctKeysForMenuCommands) {
  const auto accels = Accelerators();
  EXPECT_EQ(accels.size(), 45u);
  std::set<std::pair<int, int>> keys;
  const std::vector<int32_t> ids = MenuIds();
  for (const Accelerator& a : accels) {
    EXPECT_TRUE(keys.insert({a.modifiers, a.virtualKey}).second) << a.command;
    EXPECT_NE(std::find(ids.begin(), ids.end(), a.command), ids.end()) << a.command;
  }
  const struct {
    uint8_t modifiers;
    uint16_t key;
    int32_t command;
  } table[] = {{kAccelCtrl | kAccelShift, 'Z', kCmdRedo},
               {kAccelCtrl | kAccelShift, 'E', kCmdFlattenImage},
               {kAccelCtrl, 0xDD, kCmdLayerUp},  // Ctrl+]
               {kAccelCtrl, 0x6B, kCmdZoomIn},   // keypad plus
               {0, 0x2E, 0}};                    // Delete is not an accelerator
  for (const auto& row : table) {
    int32_t found = 0;
    for (const Accelerator& a : accels)
      if (a.modifiers == row.modifiers && a.virtualKey == row.key) found = a.command;
    EXPECT_EQ(found, row.command) << "modifiers " << int(row.modifiers) << " key " << row.key;
  }
}

TEST(CommandAvailability, FollowsTheDocumentLayersSelectionAndWhatHasLanded) {
  const struct {
    const char* name;
    ShellState state;
    std::vector<int32_t> available, greyed;
  } table[] = {
      {"no document", {}, {kCmdExit, kCmdAbout, kCmdPaste, kCmdPasteNew},
       {kCmdUndo, kCmdFlattenImage, kCmdPrint, 9999, kCmdSelectAll, kCmdSelectInvert, kCmdFromLayerAlpha,
        kCmdCut, kCmdCopy}},
      // Layer commands follow the stack: at the bottom there is nothing below.
      {"bottom of three", {.documentOpen = true, .layerCount = 3, .activeLayer = 0},
       {kCmdFlattenImage, kCmdFlattenLayers, kCmdLayerUp, kCmdDeleteLayer},
       {kCmdMergeDown, kCmdLayerDown, kCmdUndo}},
      {"top of three", {.documentOpen = true, .layerCount = 3, .activeLayer = 2},
       {kCmdMergeDown, kCmdLayerDown}, {kCmdLayerUp}},
      // The Select menu needs a document, and some items a selection.
      {"one layer", {.documentOpen = true, .layerCount = 1},
       {kCmdSelectAll, kCmdSelectInvert, kCmdFromLayerAlpha},
       {kCmdDeleteLayer, kCmdSelectNone, kCmdFeather, kCmdGrow, kCmdShrink, kCmdCropToSelection,
        kCmdFillSurroundings}},
      {"a selection", {.documentOpen = true, .hasSelection = true, .layerCount = 1},
       {kCmdSelectNone, kCmdFeather, kCmdGrow, kCmdShrink}, {}},
      {"undo possible", {.documentOpen = true, .canUndo = true, .layerCount = 3}, {kCmdUndo},
       {kCmdRedo}},
      {"layer transform in progress",
       {.documentOpen = true, .canUndo = true, .layerCount = 3, .modalToolOperation = true},
       {kCmdExit}, {kCmdUndo, kCmdFlattenImage}},
      // With everything in place every command is usable.
      {"everything",
       {.documentOpen = true, .canUndo = true, .canRedo = true, .hasSelection = true,
        .layerCount = 5, .activeLayer = 2, .upscaylConfigured = true,
        .photoshopConfigured = true, .documentSaved = true},
       {kCmdBatch, kCmdPrint, kCmdResizeLayer, kCmdCropToSelection, kCmdClear, kCmdCut, kCmdPaste,
        kCmdPhotoshop, kCmdCaptureScreen, kCmdSlideshow, kCmdRuler, kCmdBrowseFolder, kCmdStartBrowse},
       {}},
      // The outside programs need their path set and a saved file they take.
      {"saved JPEG", {.documentOpen = true, .layerCount = 1, .upscaylConfigured = true,
                      .photoshopConfigured = true, .documentSaved = true, .upscaylFile = true},
       {kCmdUpscayl, kCmdPhotoshop}, {}},
      {"saved BMP", {.documentOpen = true, .layerCount = 1, .upscaylConfigured = true,
                     .photoshopConfigured = true, .documentSaved = true},
       {kCmdPhotoshop}, {kCmdUpscayl}},
      {"saved layered file", {.documentOpen = true, .layerCount = 1, .upscaylConfigured = true,
                              .photoshopConfigured = true, .documentSaved = true, .isNativeFile = true},
       {}, {kCmdUpscayl, kCmdPhotoshop}},
      {"never saved", {.documentOpen = true, .layerCount = 1, .upscaylConfigured = true,
                       .photoshopConfigured = true},
       {}, {kCmdUpscayl, kCmdPhotoshop}},
      {"no programs set", {.documentOpen = true, .layerCount = 1, .documentSaved = true, .upscaylFile = true},
       {}, {kCmdUpscayl, kCmdPhotoshop}},
  };
  for (const auto& row : table) {
    for (int32_t id : row.available) EXPECT_TRUE(CommandAvailable(id, row.state)) << row.name << ": " << id;
    for (int32_t id : row.greyed) EXPECT_FALSE(CommandAvailable(id, row.state)) << row.name << ": " << id;
  }
}

TEST(TabsMenuItems, NineNumberedTabsThenMore) {
  std::vector<std::u16string> titles;
  for (int i = 0; i < 10; ++i) titles.push_back(u"Untitled-" + std::u16string(1, char16_t(u'0' + i)));
  titles[0] = u"Fish & Chips.png";
  const auto items = TabsMenu(titles, 2);
  ASSERT_EQ(items.size(), 11u);
  EXPECT_EQ(items[0].text, u"&1  Fish && Chips.png");
  EXPECT_EQ(items[0].id, 1900);
  EXPECT_EQ(items[8].id, 1908);
  EXPECT_EQ(items[8].text, u"&9  Untitled-8");
  EXPECT_TRUE(items[2].checked);
  EXPECT_FALSE(items[1].checked);
  EXPECT_EQ(items[9].id, 0);
  EXPECT_EQ(items[10].text, u"&More");
  EXPECT_EQ(items[10].id, 1910);

  const std::vector<std::u16string> one{std::u16string(300, u'&')};
  const auto cut = TabsMenu(one, -1);
  ASSERT_EQ(cut.size(), 1u);
  EXPECT_EQ(cut[0].text.size(), 190u);
  EXPECT_FALSE(cut[0].checked);
  EXPECT_TRUE(TabsMenu({}, -1).empty());
}

TEST(UndoRedoItems, LabelSitsBetweenTextAndShortcut) {
  EXPECT_EQ(UndoRedoItemText(u"&Undo\tCtrl+Z", u"Brush"), u"&Undo Brush\tCtrl+Z");
  EXPECT_EQ(UndoRedoItemText(u"&Redo\tCtrl+Y", u""), u"&Redo\tCtrl+Y");
}

}  // namespace
}  // namespace tavora

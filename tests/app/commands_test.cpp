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

TEST(MenuBarTable, UniqueIdsThatAllTakePartInGreyingAndDistinctAccelerators) {
  std::vector<int32_t> ids;
  CollectIds(MenuBar(), ids);
  EXPECT_EQ(std::set<int32_t>(ids.begin(), ids.end()).size(), ids.size());
  // Every command that takes part in greying is on the menu, and the other way round.
  std::vector<int32_t> greyed(CommandsWithAvailability().begin(), CommandsWithAvailability().end());
  std::sort(ids.begin(), ids.end());
  std::sort(greyed.begin(), greyed.end());
  EXPECT_EQ(ids, greyed);
  std::set<std::pair<int, int>> keys;
  for (const Accelerator& a : Accelerators()) {
    EXPECT_TRUE(keys.insert({a.modifiers, a.virtualKey}).second) << a.command;
    EXPECT_TRUE(std::binary_search(ids.begin(), ids.end(), a.command)) << a.command;
    EXPECT_FALSE(a.modifiers == 0 && a.virtualKey == 0x2E) << "plain Delete belongs to the text boxes and tools";
  }
}

// A one-layer document, for the commands that hand its file to another program.
ShellState Outside(bool programsSet, bool saved, bool upscaylFile, bool nativeFile) {
  return {.documentOpen = true, .layerCount = 1, .upscaylConfigured = programsSet, .photoshopConfigured = programsSet,
          .documentSaved = saved, .isNativeFile = nativeFile, .upscaylFile = upscaylFile};
}

TEST(CommandAvailability, FollowsTheDocumentLayersSelectionAndWhatHasLanded) {
  const struct {
    const char* name;
    ShellState state;
    std::vector<int32_t> available, greyed;
  } table[] = {
      {"no document", {}, {kCmdExit, kCmdAbout, kCmdPaste, kCmdPasteNew},
       {kCmdUndo, kCmdFlattenImage, kCmdPrint, 9999, kCmdSelectAll, kCmdSelectInvert, kCmdFromLayerAlpha, kCmdCut,
        kCmdCopy}},
      // Layer commands follow the stack: at the bottom there is nothing below.
      {"bottom of three", {.documentOpen = true, .layerCount = 3, .activeLayer = 0},
       {kCmdFlattenImage, kCmdFlattenLayers, kCmdLayerUp, kCmdDeleteLayer}, {kCmdMergeDown, kCmdLayerDown, kCmdUndo}},
      {"top of three", {.documentOpen = true, .layerCount = 3, .activeLayer = 2}, {kCmdMergeDown, kCmdLayerDown},
       {kCmdLayerUp}},
      // The Select menu needs a document, and some items a selection.
      {"one layer", {.documentOpen = true, .layerCount = 1}, {kCmdSelectAll, kCmdSelectInvert, kCmdFromLayerAlpha},
       {kCmdDeleteLayer, kCmdSelectNone, kCmdFeather, kCmdGrow, kCmdShrink, kCmdCropToSelection, kCmdFillSurroundings}},
      {"a selection", {.documentOpen = true, .hasSelection = true, .layerCount = 1},
       {kCmdSelectNone, kCmdFeather, kCmdGrow, kCmdShrink}, {}},
      {"undo possible", {.documentOpen = true, .canUndo = true, .layerCount = 3}, {kCmdUndo}, {kCmdRedo}},
      {"layer transform in progress",
       {.documentOpen = true, .canUndo = true, .layerCount = 3, .modalToolOperation = true}, {kCmdExit},
       {kCmdUndo, kCmdFlattenImage}},
      // With everything in place every command is usable.
      {"everything",
       {.documentOpen = true, .canUndo = true, .canRedo = true, .hasSelection = true, .layerCount = 5,
        .activeLayer = 2, .upscaylConfigured = true, .photoshopConfigured = true, .documentSaved = true},
       {kCmdBatch, kCmdPrint, kCmdResizeLayer, kCmdCropToSelection, kCmdClear, kCmdCut, kCmdPaste, kCmdPhotoshop,
        kCmdCaptureScreen, kCmdSlideshow, kCmdRuler, kCmdBrowseFolder, kCmdStartBrowse},
       {}},
      // The outside programs need their path set and a saved file they take.
      {"saved JPEG", Outside(true, true, true, false), {kCmdUpscayl, kCmdPhotoshop}, {}},
      {"saved BMP", Outside(true, true, false, false), {kCmdPhotoshop}, {kCmdUpscayl}},
      {"saved layered file", Outside(true, true, false, true), {}, {kCmdUpscayl, kCmdPhotoshop}},
      {"never saved", Outside(true, false, false, false), {}, {kCmdUpscayl, kCmdPhotoshop}},
      {"no programs set", Outside(false, true, true, false), {}, {kCmdUpscayl, kCmdPhotoshop}},
  };
  for (const auto& row : table) {
    for (int32_t id : row.available) EXPECT_TRUE(CommandAvailable(id, row.state)) << row.name << ": " << id;
    for (int32_t id : row.greyed) EXPECT_FALSE(CommandAvailable(id, row.state)) << row.name << ": " << id;
  }
}

TEST(TabsMenuItems, NineNumberedTabsThenMoreAndUndoLabels) {
  std::vector<std::u16string> titles;
  for (int i = 0; i < 10; ++i) titles.push_back(u"Untitled-" + std::u16string(1, char16_t(u'0' + i)));
  titles[0] = u"Fish & Chips.png";
  const auto items = TabsMenu(titles, 2);
  ASSERT_EQ(items.size(), 11u);
  EXPECT_EQ(std::tuple(items[0].id, items[0].text, items[0].checked), std::tuple(1900, u"&1  Fish && Chips.png", false));
  EXPECT_EQ(std::tuple(items[8].id, items[8].text), std::tuple(1908, u"&9  Untitled-8"));
  EXPECT_TRUE(items[2].checked);
  EXPECT_EQ(items[9].id, 0);
  EXPECT_EQ(std::tuple(items[10].id, items[10].text), std::tuple(1910, u"&More"));

  const auto cut = TabsMenu(std::vector{std::u16string(300, u'&')}, -1);
  ASSERT_EQ(cut.size(), 1u);
  EXPECT_EQ(cut[0].text.size(), 190u);
  EXPECT_FALSE(cut[0].checked);
  EXPECT_TRUE(TabsMenu({}, -1).empty());

  // The label sits between the item's text and its shortcut.
  EXPECT_EQ(UndoRedoItemText(u"&Undo\tCtrl+Z", u"Brush"), u"&Undo Brush\tCtrl+Z");
  EXPECT_EQ(UndoRedoItemText(u"&Redo\tCtrl+Y", u""), u"&Redo\tCtrl+Y");
}

}  // namespace
}  // namespace tavora

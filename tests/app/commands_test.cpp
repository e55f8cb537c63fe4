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

TEST(MenuBarTable, MenusInOrderWithUniqueIds) {
  std::vector<std::u16string_view> titles;
  for (const MenuNode& m : MenuBar()) titles.push_back(m.text);
  EXPECT_EQ(titles, (std::vector<std::u16string_view>{u"&File", u"&Edit", u"&Select", u"&View",
                                                      u"&Image", u"&Adjust", u"Effe&cts",
                                                      u"&Layers", u"&Tabs", u"&Help"}));
  std::vector<int32_t> ids;
  CollectIds(MenuBar(), ids);
  EXPECT_EQ(ids.size(), 101u);
  EXPECT_EQ(std::set<int32_t>(ids.begin(), ids.end()).size(), ids.size());
  // Every command that takes part in greying is on the menu, and the other way round.
  std::vector<int32_t> greyed(CommandsWithAvailability().begin(), CommandsWithAvailability().end());
  std::sort(ids.begin(), ids.end());
  std::sort(greyed.begin(), greyed.end());
  EXPECT_EQ(ids, greyed);

  const MenuNode& file = MenuBar()[0];
  EXPECT_EQ(file.children[0].text, u"&New…\tCtrl+N");
  EXPECT_EQ(file.children[3].kind, MenuNode::Kind::Submenu);
  EXPECT_EQ(file.children[3].text, u"Open &Recent");
  EXPECT_EQ(file.children[4].kind, MenuNode::Kind::Separator);
  EXPECT_EQ(file.children.back().text, u"E&xit\tAlt+F4");
  const MenuNode& effects = MenuBar()[6];
  EXPECT_EQ(effects.children[0].text, u"&Blur");
  EXPECT_EQ(effects.children[0].children[1].id, kCmdGaussianBlur);
  EXPECT_EQ(MenuBar()[3].children.back().children[2].text, u"&Dark");
}

TEST(AcceleratorTable, FortyFiveDistinctKeysForMenuCommands) {
  const auto accels = Accelerators();
  EXPECT_EQ(accels.size(), 45u);
  std::set<std::pair<int, int>> keys;
  std::vector<int32_t> ids;
  CollectIds(MenuBar(), ids);
  for (const Accelerator& a : accels) {
    EXPECT_TRUE(keys.insert({a.modifiers, a.virtualKey}).second) << a.command;
    EXPECT_NE(std::find(ids.begin(), ids.end(), a.command), ids.end()) << a.command;
  }
  auto commandFor = [&](uint8_t mods, uint16_t key) {
    for (const Accelerator& a : accels)
      if (a.modifiers == mods && a.virtualKey == key) return a.command;
    return 0;
  };
  EXPECT_EQ(commandFor(kAccelCtrl | kAccelShift, 'Z'), kCmdRedo);
  EXPECT_EQ(commandFor(kAccelCtrl | kAccelShift, 'E'), kCmdFlattenImage);
  EXPECT_EQ(commandFor(kAccelCtrl, 0xDD), kCmdLayerUp);   // Ctrl+]
  EXPECT_EQ(commandFor(kAccelCtrl, 0x6B), kCmdZoomIn);    // keypad plus
  EXPECT_EQ(commandFor(0, 0x2E), 0);                     // Delete is not an accelerator
}

TEST(CommandAvailability, FollowsTheDocumentAndItsLayers) {
  ShellState none;
  EXPECT_TRUE(CommandAvailable(kCmdExit, none));
  EXPECT_TRUE(CommandAvailable(kCmdAbout, none));
  EXPECT_FALSE(CommandAvailable(kCmdUndo, none));
  EXPECT_FALSE(CommandAvailable(kCmdFlattenImage, none));
  EXPECT_FALSE(CommandAvailable(9999, none));

  ShellState doc;
  doc.documentOpen = true;
  doc.layerCount = 3;
  doc.activeLayer = 0;
  EXPECT_TRUE(CommandAvailable(kCmdFlattenImage, doc));
  // Layer commands follow the stack: at the bottom there is nothing below.
  EXPECT_FALSE(CommandAvailable(kCmdMergeDown, doc));
  EXPECT_FALSE(CommandAvailable(kCmdLayerDown, doc));
  EXPECT_TRUE(CommandAvailable(kCmdLayerUp, doc));
  EXPECT_TRUE(CommandAvailable(kCmdDeleteLayer, doc));
  doc.activeLayer = 2;
  EXPECT_TRUE(CommandAvailable(kCmdMergeDown, doc));
  EXPECT_FALSE(CommandAvailable(kCmdLayerUp, doc));
  doc.layerCount = 1;
  doc.activeLayer = 0;
  EXPECT_FALSE(CommandAvailable(kCmdDeleteLayer, doc));
  doc.layerCount = 3;
  EXPECT_TRUE(CommandAvailable(kCmdFlattenLayers, doc));
  EXPECT_FALSE(CommandAvailable(kCmdUndo, doc));
  doc.canUndo = true;
  EXPECT_TRUE(CommandAvailable(kCmdUndo, doc));
  EXPECT_FALSE(CommandAvailable(kCmdRedo, doc));
  doc.modalToolOperation = true;  // a layer transform in progress
  EXPECT_FALSE(CommandAvailable(kCmdUndo, doc));
  EXPECT_FALSE(CommandAvailable(kCmdFlattenImage, doc));
  EXPECT_TRUE(CommandAvailable(kCmdExit, doc));
}

TEST(CommandAvailability, CommandsStillToComeAreGreyedNotSilent) {
  ShellState everything;
  everything.documentOpen = everything.hasSelection = everything.canUndo = everything.canRedo = true;
  everything.layerCount = 5;
  everything.activeLayer = 2;
  everything.upscaylConfigured = everything.photoshopConfigured = everything.documentSaved = true;
  // Nothing has a handler yet for these: they must not look usable.
  for (int32_t id : {kCmdPrint, kCmdBatch, kCmdHdrToneMap, kCmdResizeLayer, kCmdCut, kCmdPhotoshop})
    EXPECT_FALSE(CommandAvailable(id, everything)) << id;
}

TEST(CommandAvailability, SelectMenuNeedsADocumentAndSomeItemsASelection) {
  ShellState none;
  ShellState doc;
  doc.documentOpen = true;
  doc.layerCount = 1;
  ShellState selected = doc;
  selected.hasSelection = true;
  for (int32_t id : {kCmdSelectAll, kCmdSelectInvert, kCmdFromLayerAlpha}) {
    EXPECT_FALSE(CommandAvailable(id, none)) << id;
    EXPECT_TRUE(CommandAvailable(id, doc)) << id;
  }
  for (int32_t id : {kCmdSelectNone, kCmdFeather, kCmdGrow, kCmdShrink}) {
    EXPECT_FALSE(CommandAvailable(id, doc)) << id;
    EXPECT_TRUE(CommandAvailable(id, selected)) << id;
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

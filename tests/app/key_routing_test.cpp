#include "app/key_routing.h"

#include <gtest/gtest.h>

namespace tavora {
namespace {

KeyPress InMain(std::u16string_view focus) {
  KeyPress k;
  k.focusClass = focus;
  k.focusInMainWindow = true;
  k.topLevelIsMain = true;
  k.documentActive = true;
  return k;
}

TEST(KeyRouting, TextBoxesTakeTheirKeysBeforeShortcuts) {
  KeyPress ctrlZ = InMain(u"Edit");  // Ctrl+Z typed in a text box
  const KeyRoute r = RouteKey(ctrlZ);
  EXPECT_FALSE(r.useAccelerators);
  EXPECT_FALSE(r.offerToTool);
  ctrlZ.plainKeyDown = false;  // Alt+key in a text box: still the text box's
  EXPECT_FALSE(RouteKey(ctrlZ).useAccelerators);
  EXPECT_TRUE(RouteKey(InMain(u"KZCanvas")).useAccelerators);
  KeyPress elsewhere = InMain(u"Button");
  elsewhere.topLevelIsMain = false;  // a dialog of its own: no main-window shortcuts
  EXPECT_FALSE(RouteKey(elsewhere).useAccelerators);
}

TEST(KeyRouting, ArrowsGoToTheMoveToolUnlessTheControlUsesThem) {
  KeyPress arrow = InMain(u"KZLayers");
  arrow.arrowKey = true;
  arrow.moveToolActive = true;
  EXPECT_TRUE(RouteKey(arrow).offerToTool);
  EXPECT_TRUE(RouteKey(arrow).useAccelerators);  // when the tool does not take it

  for (std::u16string_view cls : {u"ComboBox", u"ListBox", u"SysTreeView32", u"SysListView32"}) {
    KeyPress list = arrow;
    list.focusClass = cls;
    EXPECT_FALSE(RouteKey(list).offerToTool) << std::string(cls.begin(), cls.end());
    EXPECT_TRUE(RouteKey(list).useAccelerators);
  }
  KeyPress edit = arrow;
  edit.focusClass = u"Edit";
  EXPECT_FALSE(RouteKey(edit).offerToTool);
  EXPECT_FALSE(RouteKey(edit).useAccelerators);

  KeyPress canvas = arrow;  // the canvas handles its own arrows
  canvas.focusIsCanvas = true;
  EXPECT_FALSE(RouteKey(canvas).offerToTool);
  KeyPress otherTool = arrow;
  otherTool.moveToolActive = false;
  EXPECT_FALSE(RouteKey(otherTool).offerToTool);
  KeyPress noDoc = arrow;
  noDoc.documentActive = false;
  EXPECT_FALSE(RouteKey(noDoc).offerToTool);
  KeyPress outside = arrow;
  outside.focusInMainWindow = false;
  EXPECT_FALSE(RouteKey(outside).offerToTool);
  KeyPress sys = arrow;
  sys.plainKeyDown = false;
  EXPECT_FALSE(RouteKey(sys).offerToTool);
}

TEST(KeyRouting, PlainKeysReachTheToolKeysExceptInTextBoxesAndLists) {
  const KeyPress letter = InMain(u"KZCanvas");
  EXPECT_TRUE(RouteKey(letter).offerToolKey);
  EXPECT_TRUE(RouteKey(letter).useAccelerators);  // when no tool key takes it
  KeyPress noDoc = InMain(u"KZToolbox");  // tools are picked before any image is open
  noDoc.documentActive = false;
  EXPECT_TRUE(RouteKey(noDoc).offerToolKey);
  for (std::u16string_view cls : {u"Edit", u"ComboBox", u"ListBox", u"SysListView32"}) {
    KeyPress k = InMain(cls);
    EXPECT_FALSE(RouteKey(k).offerToolKey) << std::string(cls.begin(), cls.end());
  }
  KeyPress ctrl = letter;  // Ctrl+B is a shortcut, not the Brush
  ctrl.ctrlOrAlt = true;
  EXPECT_FALSE(RouteKey(ctrl).offerToolKey);
  KeyPress arrow = letter;
  arrow.arrowKey = true;
  EXPECT_FALSE(RouteKey(arrow).offerToolKey);
  KeyPress dialog = letter;
  dialog.topLevelIsMain = false;
  EXPECT_FALSE(RouteKey(dialog).offerToolKey);
  KeyPress sys = letter;
  sys.plainKeyDown = false;
  EXPECT_FALSE(RouteKey(sys).offerToolKey);
}

}  // namespace
}  // namespace tavora

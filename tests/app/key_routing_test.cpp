#include "app/key_routing.h"

#include <gtest/gtest.h>

namespace tavora {
namespace {

// What differs from a plain key pressed in the main window with a document open.
enum : unsigned {
  kArrow = 1,         // an arrow key
  kMoveTool = 2,      // the Move tool is current
  kSystemKey = 4,     // a system key-down (Alt held), not a plain one
  kCtrlOrAlt = 8,
  kOnCanvas = 16,     // the canvas has the focus and handles its own arrows
  kNoDocument = 32,
  kOutside = 64,      // the focus is outside the main window
  kOwnDialog = 128,   // the key went to a top-level window of its own
};

KeyPress Press(std::u16string_view focus, unsigned flags) {
  KeyPress k;
  k.focusClass = focus;
  k.plainKeyDown = !(flags & kSystemKey);
  k.arrowKey = flags & kArrow;
  k.moveToolActive = flags & kMoveTool;
  k.ctrlOrAlt = flags & kCtrlOrAlt;
  k.focusIsCanvas = flags & kOnCanvas;
  k.documentActive = !(flags & kNoDocument);
  k.focusInMainWindow = !(flags & kOutside);
  k.topLevelIsMain = !(flags & kOwnDialog);
  return k;
}

TEST(KeyRouting, TextBoxesListsToolsAndShortcutsEachGetTheirKeys) {
  constexpr unsigned kNudge = kArrow | kMoveTool;
  // Expected: T = offered to the tool (arrows), A = accelerators, K = offered as a tool key.
  const struct {
    std::u16string_view focus;
    unsigned flags;
    const char* want;
  } table[] = {
      // Text boxes take their keys before shortcuts, Alt+key included.
      {u"Edit", 0, "---"}, {u"Edit", kSystemKey, "---"}, {u"Edit", kCtrlOrAlt, "---"},
      {u"Edit", kNudge, "---"},
      // Plain keys reach the tool keys, before any image is open too.
      {u"KZCanvas", 0, "-AK"}, {u"KZToolbox", kNoDocument, "-AK"},
      // Lists pick items by letter and move with arrows.
      {u"ComboBox", 0, "-A-"}, {u"ListBox", 0, "-A-"}, {u"SysListView32", 0, "-A-"},
      {u"ComboBox", kNudge, "-A-"}, {u"ListBox", kNudge, "-A-"},
      {u"SysTreeView32", kNudge, "-A-"}, {u"SysListView32", kNudge, "-A-"},
      // Ctrl+B is a shortcut, not the Brush; arrows and system keys are no tool keys.
      {u"KZCanvas", kCtrlOrAlt, "-A-"}, {u"KZCanvas", kArrow, "-A-"},
      {u"KZCanvas", kSystemKey, "-A-"},
      // A dialog of its own gets no main-window keys at all.
      {u"Button", kOwnDialog, "---"}, {u"KZCanvas", kOwnDialog, "---"},
      // Arrows go to the Move tool from a panel, then to the accelerators.
      {u"KZLayers", kNudge, "TA-"},
      {u"KZLayers", kNudge | kOnCanvas, "-A-"}, {u"KZLayers", kArrow, "-A-"},
      {u"KZLayers", kNudge | kNoDocument, "-A-"}, {u"KZLayers", kNudge | kOutside, "-A-"},
      {u"KZLayers", kNudge | kSystemKey, "-A-"},
  };
  for (const auto& row : table) {
    const KeyRoute r = RouteKey(Press(row.focus, row.flags));
    const std::string got{r.offerToTool ? 'T' : '-', r.useAccelerators ? 'A' : '-',
                          r.offerToolKey ? 'K' : '-'};
    EXPECT_EQ(got, row.want) << std::string(row.focus.begin(), row.focus.end()) << " with flags "
                             << row.flags;
  }
}

}  // namespace
}  // namespace tavora

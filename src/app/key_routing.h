#pragma once
// Where a key press goes: text boxes first, then the tool keys, then the
// accelerator table. Portable so the order can be tested without a window.
#include <string_view>

namespace tavora {

struct KeyPress {
  bool plainKeyDown = true;   // a key-down, not a system key-down
  bool arrowKey = false;
  std::u16string_view focusClass;  // window class of the focused window
  bool focusIsCanvas = false;
  bool focusInMainWindow = false;  // the focused window belongs to the main window
  bool moveToolActive = false;
  bool documentActive = false;
  bool topLevelIsMain = false;     // the message's top-level window is the main window
  bool ctrlOrAlt = false;          // Ctrl or Alt is held
};

struct KeyRoute {
  bool offerToTool = false;       // offer to the tool key handler first; consumed if taken
  bool useAccelerators = false;   // then translate through the accelerator table
  // Plain keys (letters for tools, Backspace and Esc for a polygon) go to
  // the tool key handler before the accelerators; consumed if taken.
  bool offerToolKey = false;
};

KeyRoute RouteKey(const KeyPress& key);

}  // namespace tavora

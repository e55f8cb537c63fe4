#pragma once
// Command ids of the menus, the menu bar as a table, the accelerator table,
// and which commands are available in a given state. Portable: the Windows
// shell builds its menus and accelerators from these tables.
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/command_ids.h"

namespace tavora {

// One row of a menu: a command, a separator, or a submenu. A submenu with
// no children is filled at run time (Open Recent).
struct MenuNode {
  enum class Kind : uint8_t { Item, Separator, Submenu };
  Kind kind = Kind::Item;
  int32_t id = 0;
  std::u16string_view text;  // "\t" separates the shortcut text
  std::span<const MenuNode> children;
};

// The menu bar, left to right; each top-level entry is a submenu.
std::span<const MenuNode> MenuBar();

// Modifier bits of an accelerator.
inline constexpr uint8_t kAccelCtrl = 1, kAccelShift = 2, kAccelAlt = 4;

struct Accelerator {
  uint8_t modifiers;
  uint16_t virtualKey;  // Windows virtual-key code
  int32_t command;
};
std::span<const Accelerator> Accelerators();

// What the availability of the commands depends on.
struct ShellState {
  bool documentOpen = false;
  bool browseOpen = false;
  bool canUndo = false, canRedo = false;
  bool hasSelection = false;
  int32_t layerCount = 0;
  int32_t activeLayer = 0;
  bool modalToolOperation = false;  // a layer transform in progress
  bool upscaylConfigured = false, photoshopConfigured = false;
  bool documentSaved = false;       // has a file on disk
  bool isNativeFile = false;        // that file is a layered file
  bool upscaylFile = false;         // that file is a ".jpg", ".jpeg" or ".png"
};

// Whether a command can run now. Commands whose feature has not landed yet
// are never available, so they show greyed rather than doing nothing.
bool CommandAvailable(int32_t command, const ShellState& state);
// Every command id that takes part in greying (the menu's own commands).
std::span<const int32_t> CommandsWithAvailability();

// The Tabs menu: "&%d  %ls" for the first nine tabs (ampersands in the
// title doubled, cut at 190 characters), then "&More" past nine.
struct TabsMenuItem {
  int32_t id;  // 0 for the separator
  std::u16string text;
  bool checked;
};
std::vector<TabsMenuItem> TabsMenu(std::span<const std::u16string> titles, int32_t activeTab);

// "&Undo\tCtrl+Z" with the state's label: "&Undo Brush\tCtrl+Z".
std::u16string UndoRedoItemText(std::u16string_view base, std::u16string_view label);

}  // namespace tavora

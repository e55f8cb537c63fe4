#include "app/key_routing.h"

namespace tavora {

KeyRoute RouteKey(const KeyPress& key) {
  const bool inEdit = key.focusClass == u"Edit";
  const bool listLike = key.focusClass == u"ComboBox" || key.focusClass == u"ListBox" ||
                        key.focusClass == u"SysTreeView32" || key.focusClass == u"SysListView32";
  KeyRoute route;
  // Lists pick items by letter, so they keep their keys.
  route.offerToolKey = key.plainKeyDown && !key.arrowKey && !key.ctrlOrAlt && !inEdit &&
                       !listLike && key.topLevelIsMain;
  // Arrows nudge with the Move tool even when a panel has the focus, unless
  // the focused control uses arrows itself.
  if (key.plainKeyDown && key.arrowKey && !key.focusIsCanvas && key.moveToolActive) {
    if (inEdit) return route;  // the text box moves its caret
    if (!listLike && key.documentActive && key.focusInMainWindow) route.offerToTool = true;
  } else if (inEdit) {
    return route;  // typing never triggers a shortcut
  }
  route.useAccelerators = key.topLevelIsMain;
  return route;
}

}  // namespace tavora

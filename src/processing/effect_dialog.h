#pragma once
// "KZDlg": an effect's parameter dialog with live preview, built from its
// EffectDef. Windows only.
#include <windows.h>

#include "document/document.h"
#include "processing/effect_dialogs.h"

namespace tavora {

// Shows the dialog modally over `owner`; true when the effect was applied
// (as one undo step). Previews draw straight into the layer and are undone
// exactly on Cancel.
bool RunEffectDialog(HWND owner, Document& doc, const EffectDef& def);

}  // namespace tavora

#pragma once
// "KZDlg": an effect's parameter dialog with live preview, built from its
// EffectDef. Windows only.
#include <windows.h>

#include "document/document.h"
#include "processing/effect_dialogs.h"

namespace tavora {

// Shows the dialog modally over `owner`; true when the effect was applied
// (as one undo step). Previews are worked out on a worker thread, drawn
// into the layer and undone exactly on Cancel; the final run shows its
// progress and can be cancelled, leaving the document as it was. An effect
// with colours starts from its remembered ones, else from the colour boxes'
// primary and secondary colours. Lens Flare (LensFlareEffect()) adds a
// thumbnail of the operated area on which a click places the source.
bool RunEffectDialog(HWND owner, Document& doc, const EffectDef& def, uint32_t primary,
                     uint32_t secondary);

// The single-value prompt: one number with its range shown, checked on OK
// ("Please enter a value between %g and %g."); `value` changes only when
// confirmed. With `remember`, the value is kept in "Dlg <title>" / "c1".
bool PromptValue(HWND owner, std::u16string_view title, std::u16string_view label, double& value,
                 double minimum, double maximum, uint32_t decimals, bool remember);

}  // namespace tavora

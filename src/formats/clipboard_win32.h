#pragma once
// Edit > Cut, Copy, Paste and Paste as New Image over the system clipboard.
// Copy offers the pixels as CF_DIBV5 (straight alpha) and keeps an exact
// private copy, which Paste prefers for as long as no one else has written
// the clipboard since; Paste also reads "PNG" from other programs.
#include <windows.h>

#include <memory>
#include <optional>

#include "document/document.h"
#include "document/rect.h"
#include "document/surface.h"
#include "formats/clipboard_data.h"

namespace tavora {

// Copy (and the copying half of Cut): the selected part of the active layer
// goes on the clipboard. False when there was nothing to copy or the
// clipboard could not take it; the caller clears only after a true.
[[nodiscard]] bool CopyToClipboard(HWND owner, Document& doc);
// The same for pixels already taken from a document, with its dpi.
[[nodiscard]] bool PutOnClipboard(HWND owner, CopiedPixels copy, int32_t dpi);

struct ClipboardPicture {
  Surface pixels;            // top-down, straight alpha
  std::optional<Rect> from;  // where they were copied from (the private copy only)
};
// The first usable picture: the private copy while the clipboard is
// unchanged, then "PNG", CF_DIBV5, a 32-bit CF_DIB, CF_BITMAP. Nothing when
// none of them can be read.
[[nodiscard]] std::optional<ClipboardPicture> ReadClipboardPicture(HWND owner);

enum class PasteTarget { ActiveDocument, NewImage };
// Paste: into `doc` as the layer "Pasted" (after "Deselect" when there is a
// selection), and nothing is returned. With NewImage, or without a
// document, the picture comes back as a new document (dpi 72) for the
// caller to open in a tab. Nothing happens when the clipboard holds no
// picture.
[[nodiscard]] std::unique_ptr<Document> PasteFromClipboard(HWND owner, Document* doc, PasteTarget target);

// Frees the private copy (at exit, and between tests).
void ForgetClipboardCopy();

}  // namespace tavora

#pragma once
// Undo and redo: each change is one labelled state, and undo and redo are
// the same exchange between the document and the state. At most 15 states
// within 768 MiB; the newest is always kept.
#include <string>
#include <vector>

#include "document/document.h"

namespace tavora {

// ---- tile records: a stroke saves only the 64 x 64 tiles it touches
// Starts a record for a layer, committing any earlier one first; an invalid
// layer index starts nothing.
void BeginTiles(Document& doc, int32_t layerIndex, std::u16string_view label);
// Call before changing pixels in `area`: saves each touched tile once.
void SaveTiles(Document& doc, const Rect& area);
// The first call of a record keeps the selection as it was.
void SaveSelection(Document& doc);
// The pixel as it was when the stroke began (without a record: the active
// layer's current pixel; 0 outside the layer).
uint32_t PixelBeforeStroke(const Document& doc, int32_t x, int32_t y);
// Turns the record into a state; a record that saved nothing leaves none.
void CommitTiles(Document& doc);

// ---- the other kinds
enum class ExtendedContentAfterPush { Drop, Keep };
// A copy of every layer, the canvas size, dpi, colour count, active index and
// the selection. Unless kept, the live layers then drop content beyond the
// canvas: an operation rewriting the whole document invalidates it.
void PushWholeDocument(Document& doc, std::u16string_view label,
                       ExtendedContentAfterPush extended = ExtendedContentAfterPush::Drop);
void PushSelection(Document& doc, std::u16string_view label);
// An invalid index records nothing. With the selection, the state also
// keeps the selection and brings it back (moving selected pixels moves the
// outline with them).
enum class SelectionInState { No, Yes };
void PushLayer(Document& doc, int32_t layerIndex, std::u16string_view label,
               SelectionInState selection = SelectionInState::No);
// A run of moves of one layer is kept as one state when this is true.
bool LastStateIsLayerState(const Document& doc, int32_t layerIndex);

// ---- undo and redo
bool Undo(Document& doc);
bool Redo(Document& doc);
std::u16string UndoLabel(const Document& doc);
std::u16string RedoLabel(const Document& doc);

// ---- the History panel's rows
// Row 0 is "Original", or "Earliest kept state" once a state was dropped;
// row i is state i - 1's label. The current row is doc.history.current.
std::vector<std::u16string> HistoryRows(const Document& doc);
// Issues the Undo or Redo command (through the caller's command path) until
// the current row is `row`, at most 99,999 times; returns the steps taken.
using HistoryCommand = bool (*)(void* context, bool redo);
int JumpToHistoryRow(const Document& doc, int32_t row, HistoryCommand command, void* context);

}  // namespace tavora

#pragma once
// How the model tells the windows that show it what changed. The shell sets
// one observer; any member may be null. The model never waits on it.
#include "document/rect.h"

namespace tavora {

class Document;

struct DocumentObserver {
  void (*areaChanged)(Document& doc, const Rect& area) = nullptr;  // repaint it
  void (*historyChanged)(Document& doc) = nullptr;    // undo labels, History panel
  void (*layersChanged)(Document& doc) = nullptr;     // Layers panel
  void (*sizeChanged)(Document& doc) = nullptr;       // canvas size or dpi
  void (*selectionChanged)(Document& doc) = nullptr;  // marching ants
};

// The observer must outlive its use; null switches notifications off.
void SetDocumentObserver(const DocumentObserver* observer);
const DocumentObserver& CurrentDocumentObserver();

inline void NotifyAreaChanged(Document& doc, const Rect& area) {
  if (auto f = CurrentDocumentObserver().areaChanged) f(doc, area);
}
inline void NotifyHistoryChanged(Document& doc) {
  if (auto f = CurrentDocumentObserver().historyChanged) f(doc);
}
inline void NotifyLayersChanged(Document& doc) {
  if (auto f = CurrentDocumentObserver().layersChanged) f(doc);
}
inline void NotifySizeChanged(Document& doc) {
  if (auto f = CurrentDocumentObserver().sizeChanged) f(doc);
}
inline void NotifySelectionChanged(Document& doc) {
  if (auto f = CurrentDocumentObserver().selectionChanged) f(doc);
}

}  // namespace tavora

#pragma once
// The tabs bar "KZTabs": one tab per open document, the Browse tab first
// while it is open. A click switches, a drag reorders, the close button or
// the middle button closes, the arrows scroll a strip wider than the bar,
// the right button offers "&Close Tab" and "Close &All Tabs", and a double
// click on the empty bar issues New. Windows only.
#include <windows.h>

#include <cstdint>
#include <memory>
#include <span>

#include "document/document.h"

namespace tavora {

// What the bar asks of the window that owns the documents; a document is
// named by its index, the Browse tab by kBrowseTab.
struct TabsBarActions {
  void (*activate)(int32_t document) = nullptr;
  // Closes the tab, with the prompt to save changes; true when it closed.
  bool (*close)(int32_t document) = nullptr;
  // The documents' old indices in their new order (a permutation).
  void (*reorder)(std::span<const int32_t> order) = nullptr;
};

void RegisterTabsBarClass(HINSTANCE instance);
HWND CreateTabsBar(HWND parent, HINSTANCE instance, const TabsBarActions& actions);
// The tabs as they are now: the documents in order, `active` the active
// document's index (-1 for none: the Browse tab when it is open). Cheap
// when nothing changed, so it can follow every menu refresh.
void SetTabsBarDocuments(HWND bar, std::span<const std::unique_ptr<Document>> documents, int32_t active,
                         bool browseOpen);
void SetTabsBarTheme(HWND bar, bool dark);
int TabsBarHeight(UINT dpi);

}  // namespace tavora

#pragma once
// "KZFullView": a tab's picture alone on a black monitor, stepping between
// the tabs by key or, in a slideshow, on a timer with a transition.
// Windows only.
#include <windows.h>

#include <cstdint>

#include "auxiliary/slideshow.h"
#include "document/document.h"

namespace tavora {

// The open tabs as the view reads them.
struct FullViewTabs {
  int32_t (*count)(void* context) = nullptr;
  Document* (*document)(int32_t index, void* context) = nullptr;  // null for no such tab
  void* context = nullptr;
};

// Runs the view on the monitor that holds `main`, modally, and returns
// when it ends (Esc, a click, switching away). Does nothing for an invalid
// index, without a main window, or when the first picture cannot be made.
void ShowFullScreen(HWND main, const FullViewTabs& tabs, int32_t tabIndex, bool slideshow, int32_t seconds,
                    SlideTransition transition);

// The slideshow's options dialog from the "Slideshow" settings; on "Start"
// they are written back and the view runs from the first tab when asked,
// else from `activeTab` (the first when there is none). Nothing without tabs.
void StartSlideshow(HWND main, const FullViewTabs& tabs, int32_t activeTab);

}  // namespace tavora

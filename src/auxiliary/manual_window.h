#pragma once
// "KZManual": the manual viewer. The contents (or the pages a search found)
// at the left, the page at the right with links to other pages, a search
// box and Back. The manual's text is the "MANUAL" resource of the program.
// It follows the dialogs' theme and stays open beside the main window.
#include <windows.h>

#include <string_view>

namespace tavora {

// Shows the window, created on first use, at the page of `topic`
// ("tool:7", "dialog:Gaussian Blur"); a topic no page names shows the
// first page when the window is new, else keeps the page shown.
void ShowManual(HWND owner, std::u16string_view topic);
// Redraws an open manual in the dialogs' current theme.
void ManualThemeChanged();
// The topic of a modal window F1 was pressed in: "dialog:" and its title.
std::u16string DialogTopic(HWND window);

}  // namespace tavora

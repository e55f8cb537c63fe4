#pragma once
// The Browse tab's host window "KZBrowse": Back, Forward and Up buttons,
// the folder's path and the sort choice along the top; the folder tree at
// the left, the thumbnail grid "KZBrowseGrid" in the middle and the preview
// "KZBrowsePreview" of the selected picture at the right. Windows only.
#include <windows.h>

#include <filesystem>

namespace tavora {

struct BrowseActions {
  // Opens a picture as a document tab; false when it could not be opened.
  bool (*openImage)(const std::filesystem::path& path) = nullptr;
};

void RegisterBrowseClasses(HINSTANCE instance);
// Created hidden; the main window shows it in place of the canvas while the
// Browse tab is the active one.
HWND CreateBrowseHost(HWND parent, HINSTANCE instance, const BrowseActions& actions);
// Shows a folder, as a new step of Back and Forward; an empty path opens
// the folder Browse starts in ("Browse" / "DefaultDir", else the last one).
void ShowBrowseFolder(HWND host, const std::filesystem::path& folder);
// The keyboard focus goes to the grid.
void FocusBrowse(HWND host);
void SetBrowseTheme(HWND host, bool dark);
// The grid's own keys (arrows, Home, End, Page Up/Down, Enter, Delete, F5,
// Backspace, Alt+Left/Right) while the focus is in the Browse tab, before
// the accelerators see them. True when the key was taken.
bool BrowseKeyDown(HWND host, const MSG& msg);
// The tab closed (or the program ends): the loading threads stop and the
// thumbnails are let go; the next ShowBrowseFolder starts them again.
void CloseBrowse(HWND host);

}  // namespace tavora

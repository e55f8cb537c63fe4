#pragma once
// The program's modal windows: its dialogs and message boxes, and the
// system's dialogs it shows. While one is up its owner is disabled. A click
// made on it never reaches the windows beneath once it is gone: the system
// chooses the window of a queued click when the click is read, not when it
// is made, so a click still queued when a dialog closes (the second click
// of a quick double-click on its button) would land on whatever lay under
// the button, on the canvas a brush dab.
#include <windows.h>

namespace tavora {

// Marks the moment a modal window goes: clicks made until then belong to
// it. Marked as it starts to go, while it is still on the screen, so that a
// click made once it has gone counts (Wine, with no window manager, takes
// two seconds to destroy a window). ModalWindow and SystemModalWatch mark
// it themselves; a menu loop marks it as it ends.
void NoteModalEnded();

// A mouse button message (press, release or double-click) made before the
// last modal window went: every loop drops it.
bool IsLeftoverModalClick(UINT message, DWORD time);
inline bool IsLeftoverModalClick(const MSG& msg) { return IsLeftoverModalClick(msg.message, msg.time); }

// F1 in a modal window of the program: the handler gets that window, so
// that help can be shown for it. None is set at first.
using HelpKeyHandler = void (*)(HWND modal);
void SetHelpKeyHandler(HelpKeyHandler handler);

// A window shown modally over its owner, closed when this ends (or at
// Close): the owner is disabled meanwhile, and enabled again before the
// window is destroyed, so that the activation returns to it.
class ModalWindow {
 public:
  ModalWindow(HWND window, HWND owner);
  ~ModalWindow() { Close(); }
  ModalWindow(const ModalWindow&) = delete;
  ModalWindow& operator=(const ModalWindow&) = delete;

  // Shows the window (the focus on `focus` when given) and runs its
  // messages until `done`: keys go through IsDialogMessage (Tab, Enter,
  // Esc, mnemonics). A WM_QUIT ends the loop and is posted again for the
  // loop outside.
  void Run(const bool& done, HWND focus = nullptr);
  // Marks the end, enables the owner and destroys the window; once.
  void Close();

 private:
  HWND window_;
  HWND owner_;
  bool ownerWasEnabled_;
};

// While it lives, the system's own modal windows shown by this thread (the
// common dialogs, the colour chooser, a pop-up menu) mark the end as they
// are destroyed.
class SystemModalWatch {
 public:
  SystemModalWatch();
  ~SystemModalWatch();
  SystemModalWatch(const SystemModalWatch&) = delete;
  SystemModalWatch& operator=(const SystemModalWatch&) = delete;

 private:
  HHOOK hook_;
};

}  // namespace tavora

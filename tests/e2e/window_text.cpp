// For the end-to-end scripts: prints the screen rectangle and the window
// text of the first child window of a class inside the main window, as
// "LEFT TOP RIGHT BOTTOM TEXT" in UTF-8. The text is asked for with
// WM_GETTEXT, which reaches the program's own window procedure.
// Usage: window_text.exe CLASS
#include <windows.h>

#include <cstdio>
#include <string>

int wmain(int argc, wchar_t** argv) {
  if (argc != 2) return 2;
  HWND main = FindWindowW(L"TavoraMain", nullptr);
  HWND child = main ? FindWindowExW(main, nullptr, argv[1], nullptr) : nullptr;
  if (!child) return 1;
  wchar_t text[4096] = {};
  DWORD_PTR length = 0;
  if (!SendMessageTimeoutW(child, WM_GETTEXT, 4096, reinterpret_cast<LPARAM>(text), SMTO_ABORTIFHUNG, 5000,
                           &length))
    return 1;
  RECT r{};
  GetWindowRect(child, &r);
  std::string utf8(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr)),
                   '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), static_cast<int>(utf8.size()), nullptr, nullptr);
  std::printf("%ld %ld %ld %ld %s\n", r.left, r.top, r.right, r.bottom, utf8.c_str());
  return 0;
}

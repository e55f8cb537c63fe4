// tavora.exe entry point.
#include <windows.h>

#include "app/shell.h"

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int showFlag) {
  return tavora::RunTavora(instance, showFlag);
}

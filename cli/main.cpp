// tavora-cli entry point: arguments in, text out, exit status as documented.
#include <cstdio>
#include <string>
#include <vector>

#include "base/memory.h"
#include "base/unicode.h"
#include "cli/cli.h"
#ifdef _WIN32
#include "platform/gdiplus_codecs_win32.h"
#include "platform/gdiplus_drawing_win32.h"
#endif

namespace {

int Run(std::vector<std::u16string> args) {
  tavora::InstallMemoryGuards();
#ifdef _WIN32
  // PNG, JPEG, BMP, GIF and TIFF go through the system's codecs.
  const bool codecs = tavora::StartGdiplusCodecs();
  if (codecs) tavora::SetSystemCodec(&tavora::GdiplusCodecs());
  // Shapes and text are drawn by GDI+ too.
  if (codecs) tavora::SetSystemDrawing(&tavora::GdiplusDrawing());
#endif
  std::string out, err;
  const int status = tavora::RunCli(args, out, err);
#ifdef _WIN32
  tavora::SetSystemCodec(nullptr);
  tavora::SetSystemDrawing(nullptr);
  if (codecs) tavora::StopGdiplusCodecs();
#endif
  std::fwrite(out.data(), 1, out.size(), stdout);
  std::fwrite(err.data(), 1, err.size(), stderr);
  std::fflush(stdout);
  return status;
}

}  // namespace

#ifdef _WIN32
int wmain(int argc, wchar_t** argv) {
  std::vector<std::u16string> args;
  for (int i = 1; i < argc; ++i)
    args.emplace_back(reinterpret_cast<const char16_t*>(argv[i]));
  return Run(std::move(args));
}
#else
int main(int argc, char** argv) {
  std::vector<std::u16string> args;
  for (int i = 1; i < argc; ++i) args.push_back(tavora::Utf8ToUtf16(argv[i]));
  return Run(std::move(args));
}
#endif

// A stand-in for the Upscayl engine, run by the tests as a real process:
//   upscayl-bin -i in -o out -s N [-z 4] -m models -n name -f png [-x]
// It checks its arguments and the model files as the engine does, and
// writes the input enlarged N times (nearest neighbour) as a PNG.
// TAVORA_FAKE_UPSCAYL picks a misbehaviour: "fail" ends with exit code 3
// and an error text, "nooutput" ends with 0 and writes nothing, and
// "hold:<path>" waits until <path> exists before working.
#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/gdiplus_codecs_win32.h"

namespace {

int Usage(const char* why) {
  std::fprintf(stderr, "Usage: upscayl-bin -i infile -o outfile -s scale -m models -n name [-f png] [-x]\n%s\n", why);
  return 2;
}

std::wstring Environment(const wchar_t* name) {
  wchar_t value[1024];
  const DWORD n = GetEnvironmentVariableW(name, value, 1024);
  return n > 0 && n < 1024 ? std::wstring(value, n) : std::wstring();
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  // Line ends go out as written, as the engine's do.
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
  std::filesystem::path input, output, models;
  std::wstring name, format = L"png";
  int scale = 4;
  for (int i = 1; i < argc; ++i) {
    const std::wstring a = argv[i];
    if (a == L"-x") continue;
    if (i + 1 >= argc) return Usage("an option lacks its value");
    const wchar_t* v = argv[++i];
    if (a == L"-i") input = v;
    else if (a == L"-o") output = v;
    else if (a == L"-s") scale = _wtoi(v);
    else if (a == L"-z") continue;
    else if (a == L"-m") models = v;
    else if (a == L"-n") name = v;
    else if (a == L"-f") format = v;
    else return Usage("unknown option");
  }
  if (input.empty() || output.empty() || models.empty() || name.empty()) return Usage("missing option");
  if (scale < 2 || scale > 4 || format != L"png") return Usage("bad scale or format");

  const std::wstring mode = Environment(L"TAVORA_FAKE_UPSCAYL");
  if (mode.rfind(L"hold:", 0) == 0) {
    std::error_code ec;
    while (!std::filesystem::exists(mode.substr(5), ec)) Sleep(20);
  }
  if (mode == L"fail") {
    std::fprintf(stderr, "\r\n[0 Fake GPU]  queueC=0[1]  queueG=0[1]  queueT=0[1]\r\nvkCreateDevice failed -3\r\n");
    return 3;
  }
  std::error_code ec;
  if (!std::filesystem::exists(models / (name + L".param"), ec) || !std::filesystem::exists(models / (name + L".bin"), ec)) {
    std::fprintf(stderr, "fopen %ls.param failed\n", name.c_str());
    return 1;
  }
  std::printf("0.00%%\n");
  if (mode == L"nooutput") return 0;

  if (!tavora::StartGdiplusCodecs()) return 4;
  const auto decoded = tavora::GdiplusCodecs().decode(input);
  if (!decoded) {
    std::fprintf(stderr, "decode image %ls failed\n", input.c_str());
    tavora::StopGdiplusCodecs();
    return 5;
  }
  const tavora::Surface& in = decoded->pixels;
  tavora::Surface out(in.Width() * scale, in.Height() * scale);
  for (int32_t y = 0; y < out.Height(); ++y)
    for (int32_t x = 0; x < out.Width(); ++x) out.At(x, y) = in.At(x / scale, y / scale);
  const bool written = tavora::GdiplusCodecs().encode(output, out, decoded->dpi ? decoded->dpi : 72, {});
  tavora::StopGdiplusCodecs();
  if (!written) {
    std::fprintf(stderr, "encode image %ls failed\n", output.c_str());
    return 6;
  }
  std::printf("100.00%%\n");
  return 0;
}

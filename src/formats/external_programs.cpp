#include "formats/external_programs.h"

#include <algorithm>
#include <cstdio>

#include "base/unicode.h"

namespace tavora {
namespace {

constexpr UpscaylModel kModels[] = {
    {u"upscayl-standard", u"Upscayl Standard"},       {u"upscayl-lite", u"Upscayl Lite"},
    {u"high-fidelity", u"High Fidelity"},             {u"remacri", u"Remacri (Non-Commercial)"},
    {u"ultramix-balanced", u"Ultramix (Non-Commercial)"}, {u"ultrasharp", u"Ultrasharp (Non-Commercial)"},
    {u"digital-art", u"Digital Art"}};

std::u16string LowerExtension(const std::filesystem::path& p) {
  std::u16string e = p.extension().u16string();
  for (char16_t& c : e) c = (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c;
  return e;
}

bool IsFile(const std::filesystem::path& p) {
  std::error_code ec;
  return std::filesystem::is_regular_file(p, ec);
}

bool IsFolder(const std::filesystem::path& p) {
  std::error_code ec;
  return std::filesystem::is_directory(p, ec);
}

std::u16string Number(int64_t n) {
  const std::string s = std::to_string(n);
  return {s.begin(), s.end()};
}

}  // namespace

std::span<const UpscaylModel> UpscaylModels() { return kModels; }

UpscaylChoice LoadUpscaylChoice(const SettingsStore& settings) {
  UpscaylChoice c;
  const int32_t scale = settings.GetInt(u"External", u"UpscaylScale", 4);
  c.scale = scale >= 2 && scale <= 4 ? scale : 4;
  const std::u16string model = settings.GetString(u"External", u"UpscaylModel", u"upscayl-standard");
  for (std::size_t i = 0; i < std::size(kModels); ++i)
    if (kModels[i].name == model) c.model = static_cast<int32_t>(i);
  c.tta = settings.GetInt(u"External", u"UpscaylTTA", 0) == 1;
  return c;
}

void SaveUpscaylChoice(SettingsStore& settings, const UpscaylChoice& c) {
  const std::pair<std::u16string, std::u16string> values[] = {
      {u"UpscaylScale", Number(c.scale)},
      {u"UpscaylModel", std::u16string(kModels[std::clamp(c.model, 0, int32_t(std::size(kModels)) - 1)].name)},
      {u"UpscaylTTA", c.tta ? u"1" : u"0"}};
  settings.SetStrings(u"External", values);
}

bool UpscaylAccepts(const std::filesystem::path& file) {
  const std::u16string e = LowerExtension(file);
  return !file.empty() && (e == u".jpg" || e == u".jpeg" || e == u".png");
}

bool PhotoshopAccepts(const std::filesystem::path& file) {
  const std::u16string e = LowerExtension(file);
  return !file.empty() && e != u".tvl" && e != u".kzl";
}

std::optional<std::filesystem::path> FindUpscaylEngine(const std::filesystem::path& configured) {
  std::u16string name = configured.filename().u16string();
  for (char16_t& c : name) c = (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c;
  if (name == u"upscayl-bin.exe" && IsFile(configured)) return configured;
  const std::filesystem::path folder = configured.parent_path();
  for (const auto& candidate : {folder / "resources" / "bin" / "upscayl-bin.exe", folder / "upscayl-bin.exe"})
    if (IsFile(candidate)) return candidate;
  return std::nullopt;
}

std::optional<std::filesystem::path> FindUpscaylModels(const std::filesystem::path& engine) {
  const std::filesystem::path folder = engine.parent_path();
  std::filesystem::path models = folder / ".." / "models";
  if (!IsFolder(models)) models = folder / "models";
  if (!IsFolder(models)) return std::nullopt;
  std::error_code ec;
  std::filesystem::path canonical = std::filesystem::weakly_canonical(models, ec);
  if (ec) canonical = models.lexically_normal();
  // No trailing separator, except for a drive's root.
  std::u16string text = canonical.u16string();
  while (text.size() > 1 && (text.back() == u'\\' || text.back() == u'/') &&
         !(text.size() == 3 && text[1] == u':'))
    text.pop_back();
  return std::filesystem::path(text);
}

std::optional<std::filesystem::path> UpscaylOutputPath(const std::filesystem::path& file, std::u16string_view model,
                                                      int32_t scale) {
  std::filesystem::path stem = file;
  stem.replace_extension();
  const std::u16string base = stem.u16string() + u"_" + std::u16string(model) + u"-" + Number(scale) + u"x";
  std::error_code ec;
  for (int n = 1; n <= 99; ++n) {
    const std::filesystem::path candidate(base + (n == 1 ? u"" : u"_" + Number(n)) + u".png");
    if (!std::filesystem::exists(candidate, ec)) return candidate;
  }
  return std::nullopt;
}

std::u16string UpscaylCommandLine(const std::filesystem::path& engine, const std::filesystem::path& input,
                                  const std::filesystem::path& output, int32_t scale,
                                  const std::filesystem::path& models, std::u16string_view model, bool tta) {
  std::u16string s = u"\"" + engine.u16string() + u"\" -i \"" + input.u16string() + u"\" -o \"" +
                     output.u16string() + u"\" -s " + Number(scale);
  if (scale != 4) s += u" -z 4";
  s += u" -m \"" + models.u16string() + u"\" -n \"" + std::u16string(model) + u"-4x\" -f png";
  if (tta) s += u" -x";
  return s;
}

std::u16string KeepEngineOutput(std::u16string_view text) {
  while (!text.empty() && (text.front() == u'\r' || text.front() == u'\n')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == u'\r' || text.back() == u'\n')) text.remove_suffix(1);
  return std::u16string(text.substr(0, 390));
}

std::u16string PendingChangesQuestion(std::u16string_view documentName, std::u16string_view program) {
  return u"\u201C" + std::u16string(documentName) + u"\u201D has pending changes that are not saved. " +
         std::u16string(program) +
         u" works on the saved file on disk, so your latest edits will not be included.\n\nContinue anyway?";
}

std::u16string UpscaylFailedMessage(uint32_t exitCode, std::u16string_view output) {
  return u"Upscayl did not produce an image (exit code " + Number(exitCode) + u").\n\n" +
         (output.empty() ? std::u16string(u"(no output)") : std::u16string(output));
}

std::u16string UpscaylNotStartedMessage(uint32_t error) {
  return u"The Upscayl engine could not be started (error " + Number(error) + u").";
}

}  // namespace tavora

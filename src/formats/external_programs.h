#pragma once
// The hand-off of a document's saved file to outside programs: the Upscayl
// upscaler's command-line engine (run on a worker, its result opened) and
// Photoshop. The rules here are portable; starting the processes is the
// Windows side's.
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/settings_store.h"

namespace tavora {

struct UpscaylModel {
  std::u16string_view name;   // passed to the engine
  std::u16string_view label;  // shown in the dialog
};
std::span<const UpscaylModel> UpscaylModels();

// "External": "UpscaylScale" 2..4 (anything else reads as 4),
// "UpscaylModel" (an unknown name selects the first), "UpscaylTTA" 0/1.
struct UpscaylChoice {
  int32_t scale = 4;
  int32_t model = 0;  // index into UpscaylModels()
  bool tta = false;
};
UpscaylChoice LoadUpscaylChoice(const SettingsStore& settings);
void SaveUpscaylChoice(SettingsStore& settings, const UpscaylChoice& choice);

// Upscayl takes saved ".jpg", ".jpeg" and ".png" files; Photoshop any saved
// file that is not in the layered format.
bool UpscaylAccepts(const std::filesystem::path& file);
bool PhotoshopAccepts(const std::filesystem::path& file);

// The engine beside the configured program: the program itself when it is
// "upscayl-bin.exe", else "resources\bin\upscayl-bin.exe" beside it, else
// "upscayl-bin.exe" in its folder. Nothing when none exists.
std::optional<std::filesystem::path> FindUpscaylEngine(const std::filesystem::path& configured);
// "..\models" from the engine's folder when that is a folder, else "models"
// in it; canonical, without trailing separators. Nothing when missing.
std::optional<std::filesystem::path> FindUpscaylModels(const std::filesystem::path& engine);

// "<file without extension>_<model>-<scale>x.png", or with "_2" .. "_99"
// before ".png" when taken; nothing when all are taken.
std::optional<std::filesystem::path> UpscaylOutputPath(const std::filesystem::path& file,
                                                      std::u16string_view model, int32_t scale);

// "\"engine\" -i \"in\" -o \"out\" -s N[ -z 4] -m \"models\" -n \"model-4x\" -f png[ -x]".
std::u16string UpscaylCommandLine(const std::filesystem::path& engine, const std::filesystem::path& input,
                                  const std::filesystem::path& output, int32_t scale,
                                  const std::filesystem::path& models, std::u16string_view model, bool tta);
// The engine's text as kept for a message: line breaks trimmed at its
// ends, at most 390 characters.
std::u16string KeepEngineOutput(std::u16string_view text);

// The messages.
std::u16string PendingChangesQuestion(std::u16string_view documentName, std::u16string_view program);
std::u16string UpscaylFailedMessage(uint32_t exitCode, std::u16string_view output);
std::u16string UpscaylNotStartedMessage(uint32_t error);
inline constexpr std::u16string_view kUpscaylRunning = u"An Upscayl job is already running. Wait for it to finish.";
inline constexpr std::u16string_view kUpscaylMissing =
    u"The Upscayl engine (resources\\bin\\upscayl-bin.exe and the models folder) was not found next to the "
    u"program set in Edit > Settings.";
inline constexpr std::u16string_view kFileGone = u"This image's file no longer exists on disk. Save it first.";
inline constexpr std::u16string_view kPhotoshopMissing = u"The Photoshop program set in Edit > Settings was not found.";
inline constexpr std::u16string_view kPhotoshopFailed = u"Photoshop could not be started.";

}  // namespace tavora

#pragma once
// The Windows side of the outside programs. An Upscayl job runs the engine
// as a hidden process from a worker thread, one job at a time, and posts
// its result to the main window, which opens the image it made. Photoshop
// is simply started on the document's file.
#include <windows.h>

#include <filesystem>
#include <memory>
#include <string>
#include <variant>

#include "document/document.h"
#include "formats/external_programs.h"

namespace tavora {

// The private message that carries a finished job (its LPARAM) to the
// window named in the job.
inline constexpr UINT kUpscaylDoneMessage = WM_APP + 39;

struct UpscaylJob {
  std::wstring commandLine;            // at most 2200 characters
  std::filesystem::path engineFolder;  // the working directory
  std::filesystem::path output;
  HWND notify = nullptr;
  // Filled by the worker.
  bool started = false;
  DWORD error = 0;  // why the process could not be created
  DWORD exitCode = 0;
  std::u16string text;  // the engine's output as kept for a message
};

struct UpscaylSetup {
  std::filesystem::path engine, models;
};
// The engine and its models beside the configured program, or the message.
std::variant<UpscaylSetup, std::u16string> FindUpscaylSetup(const std::filesystem::path& configured);
// The job for `file`: its output name and command line; or the message when
// the file is gone or every output name is taken.
std::variant<std::unique_ptr<UpscaylJob>, std::u16string> MakeUpscaylJob(const UpscaylSetup& setup,
                                                                         const std::filesystem::path& file,
                                                                         const UpscaylChoice& choice,
                                                                         HWND notify);

bool UpscaylJobRunning();
enum class JobStart { Started, AlreadyRunning, NoThread };
// Takes the running flag and starts the worker, which owns the job until
// it posts it; a job that does not start is dropped.
[[nodiscard]] JobStart StartUpscaylJob(std::unique_ptr<UpscaylJob> job);

// A finished job: the image to open, or the message to show.
struct UpscaylOutcome {
  std::filesystem::path image;
  std::u16string message;
};
// Takes back the job posted with kUpscaylDoneMessage and clears the
// running flag, whatever the result.
UpscaylOutcome TakeUpscaylResult(LPARAM posted);

// Image > Upscayl…: the checks, the pending-changes question, the dialog
// and the start of the job; every refusal is shown here.
void UpscaylCommand(HWND owner, const Document& doc);
// For the main window's procedure: handles the job's message and returns
// true for it. A failure is shown; then `finished` is called with the image
// to open (empty after a failure). While a modal window has disabled the
// main window the outcome waits until it is enabled again.
bool HandleUpscaylMessage(HWND window, UINT msg, WPARAM wp, LPARAM lp,
                          void (*finished)(const std::filesystem::path& image));

// Image > Edit in Photoshop…: the checks, the question and the start.
void PhotoshopCommand(HWND owner, const Document& doc);
// Starts `program` on `file` and waits for nothing; false when no process
// could be created.
[[nodiscard]] bool StartPhotoshop(const std::filesystem::path& program, const std::filesystem::path& file);

}  // namespace tavora

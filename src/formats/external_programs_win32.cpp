#include "formats/external_programs_win32.h"

#include <algorithm>
#include <atomic>
#include <vector>

#include "base/settings_store.h"
#include "base/unicode.h"
#include "platform/form_dialog_win32.h"
#include "platform/message_box_win32.h"

namespace tavora {
namespace {

constexpr std::size_t kCommandLineLimit = 2200;
// Far more than a message keeps; the rest of the engine's output is read
// and dropped so that it never blocks on a full pipe.
constexpr std::size_t kOutputBytesKept = 8192;

std::atomic<bool> g_running{false};

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

bool IsFile(const std::filesystem::path& p) {
  std::error_code ec;
  return !p.empty() && std::filesystem::is_regular_file(p, ec);
}

void Warn(HWND owner, std::u16string_view text) {
  ShowMessageBox(owner, Wide(text), L"Tavora", MB_OK | MB_ICONWARNING);
}

// The outside program reads the file on disk, not what is on the screen.
bool AcceptUnsavedChanges(HWND owner, const Document& doc, std::u16string_view program) {
  if (!doc.modified) return true;
  return ShowMessageBox(owner, Wide(PendingChangesQuestion(doc.title, program)), L"Tavora",
                        MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2) == IDYES;
}

// The engine runs hidden, its standard output and error going to one pipe
// that is read until the engine closes it.
void RunEngine(UpscaylJob& job) {
  SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
  HANDLE readEnd = nullptr, writeEnd = nullptr;
  if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0)) {
    job.error = GetLastError();
    return;
  }
  SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  startup.hStdOutput = writeEnd;
  startup.hStdError = writeEnd;
  std::wstring commandLine = job.commandLine;  // the call may write into it
  const std::wstring folder = job.engineFolder.wstring();
  PROCESS_INFORMATION process{};
  const BOOL created = CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                                      nullptr, folder.empty() ? nullptr : folder.c_str(), &startup, &process);
  const DWORD error = GetLastError();
  // The engine now holds the only writing end: the reads end when it does.
  CloseHandle(writeEnd);
  if (!created) {
    CloseHandle(readEnd);
    job.error = error;
    return;
  }
  job.started = true;
  CloseHandle(process.hThread);
  std::string bytes;
  char piece[512];
  DWORD got = 0;
  while (ReadFile(readEnd, piece, sizeof piece, &got, nullptr) && got > 0)
    bytes.append(piece, std::min<std::size_t>(got, kOutputBytesKept - std::min(kOutputBytesKept, bytes.size())));
  CloseHandle(readEnd);
  WaitForSingleObject(process.hProcess, INFINITE);
  if (!GetExitCodeProcess(process.hProcess, &job.exitCode)) job.exitCode = GetLastError();
  CloseHandle(process.hProcess);
  job.text = KeepEngineOutput(Utf8ToUtf16(bytes));
}

DWORD WINAPI UpscaylWorker(void* parameter) {
  std::unique_ptr<UpscaylJob> job(static_cast<UpscaylJob*>(parameter));
  RunEngine(*job);
  HWND notify = job->notify;
  UpscaylJob* posted = job.release();
  // From here the window's thread owns the job; with no window to take it,
  // nobody will, and the next job may start.
  if (!PostMessageW(notify, kUpscaylDoneMessage, 0, reinterpret_cast<LPARAM>(posted))) {
    job.reset(posted);
    g_running = false;
  }
  return 0;
}

bool RunUpscaylDialog(HWND owner, UpscaylChoice& choice) {
  FormDialog form(L"Upscayl", 430);
  const int scale = form.AddChoice(L"Upscale size:", {L"2x", L"3x", L"4x"}, std::clamp(choice.scale, 2, 4) - 2);
  std::vector<std::wstring> labels;
  for (const UpscaylModel& m : UpscaylModels()) labels.push_back(Wide(m.label));
  const int model = form.AddChoice(L"Model:", labels, choice.model);
  const int tta = form.AddCheck(L"TTA mode (Test Time Augmentation)", choice.tta);
  form.AddText(
      L"TTA gives slightly better quality but is much slower (about 8x). The result is saved next to the "
      L"original as a PNG and opened when Upscayl finishes.");
  if (!form.Run(owner, L"Upscale")) return false;
  choice.scale = form.Choice(scale) + 2;
  choice.model = form.Choice(model);
  choice.tta = form.Checked(tta);
  return true;
}

// Outcomes that arrived while a modal window was up, oldest first. Touched
// by the window's thread only.
std::vector<UpscaylOutcome>& Waiting() {
  static std::vector<UpscaylOutcome> waiting;
  return waiting;
}

}  // namespace

std::variant<UpscaylSetup, std::u16string> FindUpscaylSetup(const std::filesystem::path& configured) {
  const auto engine = FindUpscaylEngine(configured);
  if (!engine) return std::u16string(kUpscaylMissing);
  const auto models = FindUpscaylModels(*engine);
  if (!models) return std::u16string(kUpscaylMissing);
  return UpscaylSetup{*engine, *models};
}

std::variant<std::unique_ptr<UpscaylJob>, std::u16string> MakeUpscaylJob(const UpscaylSetup& setup,
                                                                         const std::filesystem::path& file,
                                                                         const UpscaylChoice& choice,
                                                                         HWND notify) {
  if (!IsFile(file)) return std::u16string(kFileGone);
  const std::u16string model(UpscaylModels()[static_cast<std::size_t>(
                                                 std::clamp<int32_t>(choice.model, 0, UpscaylModels().size() - 1))]
                                 .name);
  const auto output = UpscaylOutputPath(file, model, choice.scale);
  // Every name up to _99 taken: the engine is not given one to overwrite.
  if (!output) return std::u16string(u"There is no free name left for the upscaled image next to the original.");
  auto job = std::make_unique<UpscaylJob>();
  job->commandLine = Wide(UpscaylCommandLine(setup.engine, file, *output, choice.scale, setup.models, model, choice.tta));
  if (job->commandLine.size() > kCommandLineLimit) return UpscaylNotStartedMessage(ERROR_FILENAME_EXCED_RANGE);
  job->engineFolder = setup.engine.parent_path();
  job->output = *output;
  job->notify = notify;
  return job;
}

bool UpscaylJobRunning() { return g_running.load(); }

JobStart StartUpscaylJob(std::unique_ptr<UpscaylJob> job) {
  bool idle = false;
  if (!g_running.compare_exchange_strong(idle, true)) return JobStart::AlreadyRunning;
  HANDLE thread = CreateThread(nullptr, 0, &UpscaylWorker, job.get(), 0, nullptr);
  if (!thread) {
    g_running = false;
    return JobStart::NoThread;
  }
  job.release();  // the worker's now
  CloseHandle(thread);
  return JobStart::Started;
}

UpscaylOutcome TakeUpscaylResult(LPARAM posted) {
  const std::unique_ptr<UpscaylJob> job(reinterpret_cast<UpscaylJob*>(posted));
  g_running = false;
  if (!job->started) return {{}, UpscaylNotStartedMessage(job->error)};
  if (job->exitCode == 0 && IsFile(job->output)) return {job->output, {}};
  return {{}, UpscaylFailedMessage(job->exitCode, job->text)};
}

void UpscaylCommand(HWND owner, const Document& doc) {
  const std::filesystem::path configured(AppSettings().GetString(u"External", u"Upscayl"));
  if (configured.empty() || !UpscaylAccepts(doc.path)) return;
  if (UpscaylJobRunning()) {
    Warn(owner, kUpscaylRunning);
    return;
  }
  const auto setup = FindUpscaylSetup(configured);
  if (const auto* message = std::get_if<std::u16string>(&setup)) {
    Warn(owner, *message);
    return;
  }
  if (!AcceptUnsavedChanges(owner, doc, u"Upscayl")) return;
  UpscaylChoice choice = LoadUpscaylChoice(AppSettings());
  if (!RunUpscaylDialog(owner, choice)) return;
  SaveUpscaylChoice(AppSettings(), choice);
  auto made = MakeUpscaylJob(std::get<UpscaylSetup>(setup), doc.path, choice, owner);
  if (const auto* message = std::get_if<std::u16string>(&made)) {
    Warn(owner, *message);
    return;
  }
  switch (StartUpscaylJob(std::move(std::get<std::unique_ptr<UpscaylJob>>(made)))) {
    case JobStart::Started: break;
    case JobStart::AlreadyRunning: Warn(owner, kUpscaylRunning); break;
    case JobStart::NoThread: Warn(owner, UpscaylNotStartedMessage(GetLastError())); break;
  }
}

bool HandleUpscaylMessage(HWND window, UINT msg, WPARAM wp, LPARAM lp,
                          void (*finished)(const std::filesystem::path& image)) {
  if (msg == WM_ENABLE) {
    // Enabled as a modal window goes, which is still on the screen: the
    // waiting outcomes follow once it has gone.
    if (wp && !Waiting().empty()) PostMessageW(window, kUpscaylDoneMessage, 0, 0);
    return false;
  }
  if (msg != kUpscaylDoneMessage) return false;
  if (lp) Waiting().push_back(TakeUpscaylResult(lp));
  // A dialog or message box is up: its work must not change under it.
  if (!IsWindowEnabled(window)) return true;
  while (!Waiting().empty()) {
    const UpscaylOutcome outcome = std::move(Waiting().front());
    Waiting().erase(Waiting().begin());
    if (!outcome.message.empty()) Warn(window, outcome.message);
    finished(outcome.image);
  }
  return true;
}

bool StartPhotoshop(const std::filesystem::path& program, const std::filesystem::path& file) {
  std::wstring commandLine = L"\"" + program.wstring() + L"\" \"" + file.wstring() + L"\"";
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process))
    return false;
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return true;
}

void PhotoshopCommand(HWND owner, const Document& doc) {
  const std::filesystem::path program(AppSettings().GetString(u"External", u"Photoshop"));
  if (program.empty() || !PhotoshopAccepts(doc.path)) return;
  if (!IsFile(program)) {
    Warn(owner, kPhotoshopMissing);
    return;
  }
  if (!AcceptUnsavedChanges(owner, doc, u"Photoshop")) return;
  if (!IsFile(doc.path)) {
    Warn(owner, kFileGone);
    return;
  }
  if (!StartPhotoshop(program, doc.path)) Warn(owner, kPhotoshopFailed);
}

}  // namespace tavora

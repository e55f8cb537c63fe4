// "KZBatchDlg": the Batch Conversion dialog, in the look of the effect
// dialogs. The job runs on its own threads; timer 77 polls it.
#include "formats/batch_dialog_window.h"

#include <commctrl.h>
#include <shlobj.h>
#include <shobjidl.h>

#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "base/settings_store.h"
#include "formats/batch.h"
#include "platform/dialog_win32.h"
#include "platform/dpi_win32.h"
#include "platform/message_box_win32.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"

namespace tavora {
namespace {

constexpr UINT_PTR kPollTimer = 77;
constexpr UINT kFirstPoll = 30, kPoll = 80;
constexpr int kSourceId = 100, kSourceBrowseId = 101, kSrcTypeId = 102, kDestId = 103, kDestBrowseId = 104,
              kDstFmtId = 105, kPng256Id = 110, kJpegQualityId = 111, kWebpQualityId = 112, kLosslessId = 113;

// The destinations in table order: PNG, JPEG, Bitmap, GIF, TIFF, WebP.
constexpr int kPng = 0, kJpeg = 1, kWebp = 5;
constexpr const wchar_t* kNotes[kBatchDestinationCount] = {
    nullptr,
    nullptr,
    L"Bitmap files have no options. Transparent areas are filled with white.",
    L"GIF files use a 256-color palette; pixels are either fully transparent or opaque.",
    L"TIFF files are saved uncompressed with full color and transparency.",
    nullptr,
};

struct DialogState {
  HWND window = nullptr;
  HWND source = nullptr, dest = nullptr, srcType = nullptr, dstFmt = nullptr;
  HWND png256 = nullptr, note = nullptr, lossless = nullptr;
  HWND jpegLabel = nullptr, jpegQuality = nullptr, jpegSpin = nullptr;
  HWND webpLabel = nullptr, webpQuality = nullptr, webpSpin = nullptr;
  HWND progress = nullptr, status = nullptr, start = nullptr;
  std::vector<HWND> inputs;  // disabled while a job runs
  BatchSettings remembered;
  std::unique_ptr<BatchJob> job;
  bool firstPoll = false;
  bool closeWhenDone = false;
  bool done = false;
  std::wstring shownStatus;
};
DialogState* g_dialog = nullptr;  // one batch dialog at a time

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

std::u16string WindowText(HWND h) {
  std::wstring s(static_cast<std::size_t>(GetWindowTextLengthW(h)) + 1, L'\0');
  s.resize(static_cast<std::size_t>(GetWindowTextW(h, s.data(), static_cast<int>(s.size()))));
  return std::u16string(s.begin(), s.end());
}

bool Checked(HWND h) { return SendMessageW(h, BM_GETCHECK, 0, 0) == BST_CHECKED; }

int Selected(HWND combo, int fallback) {
  const LRESULT i = SendMessageW(combo, CB_GETCURSEL, 0, 0);
  return i == CB_ERR ? fallback : static_cast<int>(i);
}

void SetStatus(DialogState& d, std::u16string_view text) {
  const std::wstring wide = Wide(text);
  if (wide == d.shownStatus) return;  // unchanged text would only flicker
  d.shownStatus = wide;
  SetWindowTextW(d.status, wide.c_str());
}

// The values on screen; a quality that is not a number from 1 to 100
// keeps the remembered one, and `badQuality` names it when its destination
// is the chosen one.
BatchSettings ReadValues(const DialogState& d, HWND* badQuality = nullptr) {
  BatchSettings v = d.remembered;
  v.source = WindowText(d.source);
  v.dest = WindowText(d.dest);
  v.srcType = Selected(d.srcType, 0);
  v.dstFmt = Selected(d.dstFmt, 1);
  v.png256 = Checked(d.png256);
  v.webpLossless = Checked(d.lossless);
  if (badQuality) *badQuality = nullptr;
  for (auto [edit, value, format] : {std::tuple{d.jpegQuality, &v.jpegQuality, kJpeg},
                                     std::tuple{d.webpQuality, &v.webpQuality, kWebp}}) {
    if (const auto q = ParseBatchQuality(WindowText(edit))) *value = *q;
    else if (badQuality && v.dstFmt == format) *badQuality = edit;
  }
  return v;
}

void Remember(DialogState& d, const BatchSettings& v) {
  WriteBatchSettings(AppSettings(), v);
  d.remembered = v;
}

// Only the chosen destination's options are shown.
void ShowOptions(const DialogState& d) {
  const int format = Selected(d.dstFmt, 1);
  auto show = [](HWND h, bool on) { ShowWindow(h, on ? SW_SHOW : SW_HIDE); };
  show(d.png256, format == kPng);
  for (HWND h : {d.jpegLabel, d.jpegQuality, d.jpegSpin}) show(h, format == kJpeg);
  for (HWND h : {d.webpLabel, d.webpQuality, d.webpSpin, d.lossless}) show(h, format == kWebp);
  show(d.note, kNotes[format] != nullptr);
  if (kNotes[format]) SetWindowTextW(d.note, kNotes[format]);
}

void SetRunning(DialogState& d, bool running) {
  for (HWND h : d.inputs) EnableWindow(h, running ? FALSE : TRUE);
  SetWindowTextW(d.start, running ? L"Stop" : L"Start");
  EnableWindow(d.start, TRUE);
}

void Refuse(const DialogState& d, std::u16string_view message, HWND focus, UINT icon = MB_ICONWARNING) {
  ShowMessageBox(d.window, Wide(message), Wide(kBatchTitle), MB_OK | icon);
  if (focus) {
    SetFocus(focus);
    SendMessageW(focus, EM_SETSEL, 0, -1);
  }
}

void Begin(DialogState& d) {
  HWND badQuality = nullptr;
  BatchSettings v = ReadValues(d, &badQuality);
  if (badQuality) return Refuse(d, kBatchQualityMessage, badQuality, MB_ICONINFORMATION);
  const std::u16string problem = PrepareBatchFolders(v.source, v.dest);
  SetWindowTextW(d.source, Wide(v.source).c_str());
  SetWindowTextW(d.dest, Wide(v.dest).c_str());
  if (!problem.empty()) return Refuse(d, problem, problem == kBatchNoSource ? d.source : d.dest);
  Remember(d, v);
  BatchOptions options = BatchOptionsFrom(v);
  if (ListBatchFiles(options.source, options.type).empty())
    return Refuse(d, kBatchNoFiles, nullptr, MB_ICONINFORMATION);

  d.job = std::make_unique<BatchJob>(std::move(options));
  SetRunning(d, true);
  d.shownStatus.clear();
  SetStatus(d, u"Looking for files");
  SendMessageW(d.progress, PBM_SETRANGE32, 0, 1);
  SendMessageW(d.progress, PBM_SETPOS, 0, 0);
  d.firstPoll = true;
  SetTimer(d.window, kPollTimer, kFirstPoll, nullptr);
  d.job->Start();
}

void Finish(DialogState& d) {
  KillTimer(d.window, kPollTimer);
  d.job->Wait();
  const BatchOutcome outcome = d.job->Outcome();
  d.job.reset();
  SendMessageW(d.progress, PBM_SETRANGE32, 0, outcome.found > 0 ? outcome.found : 1);
  SendMessageW(d.progress, PBM_SETPOS, outcome.converted + outcome.skipped + outcome.failed, 0);
  SetStatus(d, BatchStatusText(outcome));
  SetRunning(d, false);
  const BatchReport report = MakeBatchReport(outcome);
  ShowMessageBox(d.window, Wide(report.text), Wide(kBatchTitle),
                 MB_OK | (report.warning ? MB_ICONWARNING : MB_ICONINFORMATION));
  if (d.closeWhenDone) d.done = true;
}

void Poll(DialogState& d) {
  if (!d.job) return;
  if (d.firstPoll) {
    d.firstPoll = false;
    SetTimer(d.window, kPollTimer, kPoll, nullptr);
  }
  if (d.job->Done()) return Finish(d);
  const BatchOutcome now = d.job->Outcome();
  if (now.found > 0) {
    SendMessageW(d.progress, PBM_SETRANGE32, 0, now.found);
    SendMessageW(d.progress, PBM_SETPOS, now.converted + now.skipped + now.failed, 0);
  }
  SetStatus(d, BatchProgressText(*d.job));
}

void Stop(DialogState& d) {
  d.job->RequestStop();
  EnableWindow(d.start, FALSE);  // once is enough; the file in hand finishes
  SetStatus(d, BatchProgressText(*d.job));
}

void Close(DialogState& d) {
  if (d.job) {  // stop first; the report comes, then the dialog goes
    d.closeWhenDone = true;
    if (!d.job->StopRequested()) Stop(d);
    return;
  }
  Remember(d, ReadValues(d));
  d.done = true;
}

// The shell's folder picker; the older folder browser where it is missing.
constexpr CLSID kFileOpenDialogClass = {0xDC1C5A9C, 0xE88A, 0x4DDE, {0xA5, 0xA1, 0x60, 0xF8, 0x2A, 0x20, 0xAE, 0xF7}};

int CALLBACK BrowseCallback(HWND hwnd, UINT msg, LPARAM, LPARAM start) {
  if (msg == BFFM_INITIALIZED && start) SendMessageW(hwnd, BFFM_SETSELECTIONW, TRUE, start);
  return 0;
}

std::optional<std::wstring> PickFolder(HWND owner, const std::wstring& start, const wchar_t* title) {
  const HRESULT com = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  std::optional<std::wstring> chosen;
  IFileOpenDialog* dialog = nullptr;
  if (SUCCEEDED(CoCreateInstance(kFileOpenDialogClass, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IFileOpenDialog),
                                 reinterpret_cast<void**>(&dialog)))) {
    FILEOPENDIALOGOPTIONS options = 0;
    dialog->GetOptions(&options);
    dialog->SetOptions(options | FOS_PICKFOLDERS | FOS_FORCEFILESYSTEM | FOS_PATHMUSTEXIST);
    dialog->SetTitle(title);
    IShellItem* folder = nullptr;
    if (!start.empty() && SUCCEEDED(SHCreateItemFromParsingName(start.c_str(), nullptr, __uuidof(IShellItem),
                                                                  reinterpret_cast<void**>(&folder)))) {
      dialog->SetFolder(folder);
      folder->Release();
    }
    IShellItem* result = nullptr;
    if (SUCCEEDED(dialog->Show(owner)) && SUCCEEDED(dialog->GetResult(&result))) {
      PWSTR path = nullptr;
      if (SUCCEEDED(result->GetDisplayName(SIGDN_FILESYSPATH, &path))) {
        chosen = path;
        CoTaskMemFree(path);
      }
      result->Release();
    }
    dialog->Release();
  } else {
    BROWSEINFOW info{};
    info.hwndOwner = owner;
    info.lpszTitle = title;
    info.ulFlags = BIF_RETURNONLYFSDIRS | BIF_NEWDIALOGSTYLE;
    info.lpfn = &BrowseCallback;
    info.lParam = reinterpret_cast<LPARAM>(start.empty() ? nullptr : start.c_str());
    if (PIDLIST_ABSOLUTE list = SHBrowseForFolderW(&info)) {
      wchar_t path[MAX_PATH] = {};
      if (SHGetPathFromIDListW(list, path)) chosen = path;
      CoTaskMemFree(list);
    }
  }
  if (SUCCEEDED(com)) CoUninitialize();
  NoteModalEnded();
  return chosen;
}

void Browse(DialogState& d, HWND edit, const wchar_t* title) {
  const std::u16string typed = WindowText(edit);
  if (const auto folder = PickFolder(d.window, Wide(typed), title)) SetWindowTextW(edit, folder->c_str());
}

LRESULT CALLBACK DialogProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  DialogState* d = g_dialog;
  if (!d) return DefWindowProcW(hwnd, msg, wp, lp);
  switch (msg) {
    case WM_TIMER:
      if (wp == kPollTimer) Poll(*d);
      return 0;
    case WM_COMMAND: {
      const int id = LOWORD(wp), code = HIWORD(wp);
      if (id == IDOK) {
        if (!d->job) Begin(*d);
        else if (!d->job->StopRequested()) Stop(*d);
      } else if (id == IDCANCEL) {
        Close(*d);
      } else if (id == kSourceBrowseId && code == BN_CLICKED) {
        Browse(*d, d->source, L"Source folder");
      } else if (id == kDestBrowseId && code == BN_CLICKED) {
        Browse(*d, d->dest, L"Destination folder");
      } else if (id == kDstFmtId && code == CBN_SELCHANGE) {
        ShowOptions(*d);
      }
      return 0;
    }
    case WM_DRAWITEM:
      DrawPushButton(*reinterpret_cast<const DRAWITEMSTRUCT*>(lp),
                     reinterpret_cast<const DRAWITEMSTRUCT*>(lp)->CtlID == IDOK);
      return TRUE;
    case DM_GETDEFID:
      return DefaultButtonAnswer(hwnd, IDOK);
    case WM_ERASEBKGND: {
      RECT r;
      GetClientRect(hwnd, &r);
      FillRect(reinterpret_cast<HDC>(wp), &r,
               DialogBackgroundBrush());
      return 1;
    }
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLORBTN:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
      if (HBRUSH brush = DialogControlColor(msg, wp)) return reinterpret_cast<LRESULT>(brush);
      break;
    case WM_CLOSE:
      Close(*d);
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

}  // namespace

void RunBatchDialog(HWND owner) {
  if (g_dialog) return;
  static bool registered = false;
  if (!registered) {
    INITCOMMONCONTROLSEX icc{sizeof icc, ICC_STANDARD_CLASSES | ICC_UPDOWN_CLASS | ICC_PROGRESS_CLASS};
    InitCommonControlsEx(&icc);
    WNDCLASSEXW wc{sizeof wc};
    wc.lpfnWndProc = DialogProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    wc.lpszClassName = L"KZBatchDlg";
    RegisterClassExW(&wc);
    registered = true;
  }
  DialogState d;
  d.remembered = ReadBatchSettings(AppSettings().Snapshot());

  const UINT dpi = owner ? WindowDpi(owner) : SystemDpi();
  auto S = [dpi](int v) { return MulDiv(v, static_cast<int>(dpi), 96); };
  const int width = S(540), height = S(420);
  RECT area{};
  if (!owner || !GetWindowRect(owner, &area)) SystemParametersInfoW(SPI_GETWORKAREA, 0, &area, 0);
  g_dialog = &d;
  d.window = CreateWindowExW(WS_EX_DLGMODALFRAME, L"KZBatchDlg", Wide(kBatchTitle).c_str(),
                             WS_POPUP | WS_CAPTION | WS_SYSMENU, (area.left + area.right - width) / 2,
                             (area.top + area.bottom - height) / 2, width, height, owner, nullptr,
                             GetModuleHandleW(nullptr), nullptr);
  if (!d.window) {
    g_dialog = nullptr;
    return;
  }
  HFONT font = CreateFontW(-S(12), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0,
                           L"Segoe UI");
  RECT client;
  GetClientRect(d.window, &client);
  const int left = S(14), field = S(170), right = client.right - S(14);
  const int browseWidth = S(84), editWidth = right - browseWidth - S(8) - field;
  auto label = [&](const wchar_t* text, int y) { CreateControl(d.window, L"Static", text, SS_LEFT, left, y + S(4), field - left - S(6), S(20), -1, font); };
  auto combo = [&](int y, int id, auto rows, int chosen) {
    HWND c = CreateControl(d.window, L"ComboBox", L"", CBS_DROPDOWNLIST | WS_VSCROLL | WS_TABSTOP, field, y, S(250),
                     S(300), id, font);
    for (const auto& row : rows) SendMessageW(c, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(Wide(row.label).c_str()));
    SendMessageW(c, CB_SETCURSEL, static_cast<WPARAM>(chosen), 0);
    d.inputs.push_back(c);
    return c;
  };
  auto folderRow = [&](const wchar_t* text, int y, int id, int browseId, const std::u16string& value) {
    label(text, y);
    HWND edit = CreateControl(d.window, L"Edit", Wide(value).c_str(), ES_AUTOHSCROLL | WS_TABSTOP, field, y, editWidth,
                        S(24), id, font);
    SendMessageW(edit, EM_SETLIMITTEXT, 32767, 0);
    d.inputs.push_back(edit);
    d.inputs.push_back(CreateControl(d.window, L"Button", L"Browse...", PushButtonStyle(false) | WS_TABSTOP,
                               right - browseWidth, y - S(1), browseWidth, S(26), browseId, font));
    return edit;
  };
  auto quality = [&](int y, int id, int value, HWND& labelOut, HWND& spinOut) {
    labelOut = CreateControl(d.window, L"Static", L"Quality:", SS_LEFT, left + S(16), y + S(4), S(70), S(20), -1, font);
    HWND edit = CreateControl(d.window, L"Edit", std::to_wstring(value).c_str(), ES_AUTOHSCROLL | WS_TABSTOP,
                        left + S(90), y, S(56), S(24), id, font);
    spinOut = CreateWindowExW(0, UPDOWN_CLASSW, L"",
                              WS_CHILD | WS_VISIBLE | UDS_SETBUDDYINT | UDS_ALIGNRIGHT | UDS_ARROWKEYS | UDS_NOTHOUSANDS,
                              0, 0, 0, 0, d.window, nullptr, GetModuleHandleW(nullptr), nullptr);
    SendMessageW(spinOut, UDM_SETBUDDY, reinterpret_cast<WPARAM>(edit), 0);
    SendMessageW(spinOut, UDM_SETRANGE32, 1, 100);
    SendMessageW(spinOut, UDM_SETPOS32, 0, value);
    d.inputs.insert(d.inputs.end(), {edit, spinOut});
    return edit;
  };

  int y = S(14);
  d.source = folderRow(L"Source folder:", y, kSourceId, kSourceBrowseId, d.remembered.source);
  y += S(34);
  label(L"Convert files of type:", y);
  d.srcType = combo(y, kSrcTypeId, BatchSourceTypes(), d.remembered.srcType);
  y += S(44);
  d.dest = folderRow(L"Destination folder:", y, kDestId, kDestBrowseId, d.remembered.dest);
  y += S(34);
  label(L"Convert to type:", y);
  d.dstFmt = combo(y, kDstFmtId, BatchDestinations(), d.remembered.dstFmt);
  y += S(32);
  CreateControl(d.window, L"Static", Wide(kBatchOverwriteWarning).c_str(), SS_LEFT, left, y, right - left, S(20), -1, font);
  y += S(34);
  CreateControl(d.window, L"Static", L"Options for the chosen type", SS_LEFT, left, y, S(260), S(20), -1, font);
  CreateControl(d.window, L"Static", L"", SS_ETCHEDHORZ, left + S(180), y + S(9), right - left - S(180), S(2), -1, font);
  y += S(26);
  // One place for each destination's options; ShowOptions shows one set.
  d.png256 = CreateControl(d.window, L"Button", L"Reduce to 256 colors (smaller file, indexed PNG)",
                     BS_AUTOCHECKBOX | WS_TABSTOP, left + S(16), y, right - left - S(16), S(24), kPng256Id, font);
  SendMessageW(d.png256, BM_SETCHECK, d.remembered.png256 ? BST_CHECKED : BST_UNCHECKED, 0);
  d.inputs.push_back(d.png256);
  d.jpegQuality = quality(y, kJpegQualityId, d.remembered.jpegQuality, d.jpegLabel, d.jpegSpin);
  d.webpQuality = quality(y, kWebpQualityId, d.remembered.webpQuality, d.webpLabel, d.webpSpin);
  d.note = CreateControl(d.window, L"Static", L"", SS_LEFT, left + S(16), y + S(4), right - left - S(16), S(40), -1, font);
  d.lossless = CreateControl(d.window, L"Button", L"Lossless (ignores quality, larger file)", BS_AUTOCHECKBOX | WS_TABSTOP,
                       left + S(16), y + S(32), right - left - S(16), S(24), kLosslessId, font);
  SendMessageW(d.lossless, BM_SETCHECK, d.remembered.webpLossless ? BST_CHECKED : BST_UNCHECKED, 0);
  d.inputs.push_back(d.lossless);
  y += S(70);
  d.progress = CreateWindowExW(0, PROGRESS_CLASSW, L"", WS_CHILD | WS_VISIBLE | PBS_SMOOTH, left, y, right - left,
                               S(18), d.window, nullptr, GetModuleHandleW(nullptr), nullptr);
  y += S(26);
  d.status = CreateControl(d.window, L"Static", L"", SS_LEFT | SS_ENDELLIPSIS | SS_NOPREFIX, left, y, right - left, S(20),
                     -1, font);
  y += S(34);
  d.start = CreateControl(d.window, L"Button", L"Start", PushButtonStyle(true) | WS_TABSTOP, right - S(186), y, S(88),
                    S(28), IDOK, font);
  CreateControl(d.window, L"Button", L"Close", PushButtonStyle(false) | WS_TABSTOP, right - S(88), y, S(88), S(28),
          IDCANCEL, font);
  const int extra = (y + S(44)) - client.bottom;
  SetWindowPos(d.window, nullptr, 0, 0, width, height + extra, SWP_NOMOVE | SWP_NOZORDER);
  ShowOptions(d);
  ThemeDialog(d.window);

  {
    // Modal: the owner is disabled until the dialog ends.
    ModalWindow modal(d.window, owner);
    modal.Run(d.done, d.source);
    KillTimer(d.window, kPollTimer);
    if (d.job) {  // the loop ended early (the program is quitting): stop and wait
      d.job->RequestStop();
      d.job->Wait();
    }
  }
  DeleteObject(font);
  g_dialog = nullptr;
}

}  // namespace tavora

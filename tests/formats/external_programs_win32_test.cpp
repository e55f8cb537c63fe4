#include "formats/external_programs_win32.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>

#include "platform/gdiplus_codecs_win32.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::TempDir;

std::filesystem::path TestFolder() {
  wchar_t self[MAX_PATH];
  GetModuleFileNameW(nullptr, self, MAX_PATH);
  return std::filesystem::path(self).parent_path();
}

void Touch(const std::filesystem::path& p) {
  std::filesystem::create_directories(p.parent_path());
  std::ofstream(p) << "x";
}

std::filesystem::path g_opened;
bool g_finished = false;
void Finished(const std::filesystem::path& image) {
  g_finished = true;
  g_opened = image;
}

LRESULT CALLBACK Proc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  if (HandleUpscaylMessage(hwnd, msg, wp, lp, &Finished)) return 0;
  return DefWindowProcW(hwnd, msg, wp, lp);
}

// An installed Upscayl whose engine is the stand-in, a 3 x 2 PNG beside it
// and a window that takes the results as the main window does.
class UpscaylRun : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(StartGdiplusCodecs());
    program = dir / "Upscayl" / "Upscayl.exe";
    Touch(program);
    engine = dir / "Upscayl" / "resources" / "bin" / "upscayl-bin.exe";
    std::filesystem::create_directories(engine.parent_path());
    const auto standIn = TestFolder() / "fake_upscayl.exe";
    ASSERT_TRUE(std::filesystem::exists(standIn)) << "the stand-in engine is built beside core_tests.exe";
    std::filesystem::copy_file(standIn, engine);
    for (const auto& m : UpscaylModels()) {
      const std::u16string model = std::u16string(m.name) + u"-4x";
      Touch(dir / "Upscayl" / "resources" / "models" / (model + u".param"));
      Touch(dir / "Upscayl" / "resources" / "models" / (model + u".bin"));
    }
    photo = dir / "photo.png";
    Surface s(3, 2);
    for (int32_t y = 0; y < 2; ++y)
      for (int32_t x = 0; x < 3; ++x) s.At(x, y) = 0xFF000000u | uint32_t(x * 100) << 16 | uint32_t(y * 200);
    ASSERT_TRUE(GdiplusCodecs().encode(photo, s, 72, {}));
    WNDCLASSW wc{};
    wc.lpfnWndProc = &Proc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.lpszClassName = L"KZUpscaylTest";
    RegisterClassW(&wc);
    window = CreateWindowExW(0, L"KZUpscaylTest", L"", WS_POPUP, 0, 0, 10, 10, HWND_MESSAGE, nullptr,
                             GetModuleHandleW(nullptr), nullptr);
    ASSERT_TRUE(window);
    g_finished = false;
    g_opened.clear();
  }
  void TearDown() override {
    SetEnvironmentVariableW(L"TAVORA_FAKE_UPSCAYL", nullptr);
    if (window) DestroyWindow(window);
    StopGdiplusCodecs();
  }

  UpscaylSetup Installed() {
    auto found = FindUpscaylSetup(program);
    EXPECT_TRUE(std::holds_alternative<UpscaylSetup>(found));
    return std::get<UpscaylSetup>(found);
  }
  std::unique_ptr<UpscaylJob> Job(const UpscaylChoice& choice) {
    auto made = MakeUpscaylJob(Installed(), photo, choice, window);
    EXPECT_TRUE(std::holds_alternative<std::unique_ptr<UpscaylJob>>(made));
    return std::move(std::get<std::unique_ptr<UpscaylJob>>(made));
  }
  // The worker's posted job, as it reaches the window's queue.
  std::optional<MSG> WaitForResult() {
    for (;;) {
      MSG msg;
      if (PeekMessageW(&msg, window, kUpscaylDoneMessage, kUpscaylDoneMessage, PM_REMOVE)) return msg;
      // A guard against a hang, not a measure of speed.
      if (MsgWaitForMultipleObjects(0, nullptr, FALSE, 60000, QS_POSTMESSAGE) == WAIT_TIMEOUT) return std::nullopt;
    }
  }

  TempDir dir;
  std::filesystem::path program, engine, photo;
  HWND window = nullptr;
};

// The result waits while a modal window has disabled the main window, and
// is delivered once it is enabled again: the image twice as large.
TEST_F(UpscaylRun, SuccessOpensTheEnginesImageOnceTheWindowIsFree) {
  auto job = Job({2, 0, false});
  const auto expected = dir / "photo_upscayl-standard-2x.png";
  EXPECT_EQ(job->output, expected);
  EXPECT_EQ(job->engineFolder, engine.parent_path());
  ASSERT_EQ(StartUpscaylJob(std::move(job)), JobStart::Started);
  EXPECT_TRUE(UpscaylJobRunning());
  EnableWindow(window, FALSE);
  auto msg = WaitForResult();
  ASSERT_TRUE(msg);
  DispatchMessageW(&*msg);
  EXPECT_FALSE(UpscaylJobRunning());  // cleared on arrival
  EXPECT_FALSE(g_finished);
  EnableWindow(window, TRUE);
  msg = WaitForResult();  // the delivery posted by the enabling
  ASSERT_TRUE(msg);
  DispatchMessageW(&*msg);
  ASSERT_TRUE(g_finished);
  EXPECT_EQ(g_opened, expected);
  const auto image = GdiplusCodecs().decode(expected);
  ASSERT_TRUE(image);
  ASSERT_EQ(std::pair(image->pixels.Width(), image->pixels.Height()), std::pair(6, 4));
  EXPECT_EQ(image->pixels.At(5, 3), 0xFF0000C8u | 200u << 16);
  EXPECT_EQ(image->pixels.At(2, 1), 0xFF640000u);
}

TEST_F(UpscaylRun, FailuresComeBackAsTheirMessages) {
  struct Case {
    const wchar_t* mode;
    bool removeModels, removeEngine;
    std::u16string message;
  };
  const Case cases[] = {
      {L"fail", false, false,
       UpscaylFailedMessage(3, u"[0 Fake GPU]  queueC=0[1]  queueG=0[1]  queueT=0[1]\r\nvkCreateDevice failed -3")},
      {L"nooutput", false, false, UpscaylFailedMessage(0, u"0.00%")},
      {nullptr, true, false, UpscaylFailedMessage(1, u"fopen remacri-4x.param failed")},
      {nullptr, false, true, UpscaylNotStartedMessage(ERROR_FILE_NOT_FOUND)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << (c.mode ? c.mode : L"-") << c.removeModels << c.removeEngine);
    SetEnvironmentVariableW(L"TAVORA_FAKE_UPSCAYL", c.mode);
    auto job = Job({4, 3, true});
    EXPECT_EQ(job->commandLine.find(L" -z 4"), std::wstring::npos);
    if (c.removeModels) std::filesystem::remove(dir / "Upscayl" / "resources" / "models" / "remacri-4x.param");
    if (c.removeEngine) std::filesystem::rename(engine, engine.parent_path() / "moved.exe");
    ASSERT_EQ(StartUpscaylJob(std::move(job)), JobStart::Started);
    const auto msg = WaitForResult();
    ASSERT_TRUE(msg);
    const UpscaylOutcome outcome = TakeUpscaylResult(msg->lParam);
    EXPECT_FALSE(UpscaylJobRunning());
    EXPECT_TRUE(outcome.image.empty());
    EXPECT_EQ(outcome.message, c.message);
    EXPECT_FALSE(std::filesystem::exists(dir / "photo_remacri-4x.png"));
  }
}

// One job at a time: a second start is refused until the first has come back.
TEST_F(UpscaylRun, SecondJobWaitsForTheFirst) {
  const auto release = dir / "release";
  SetEnvironmentVariableW(L"TAVORA_FAKE_UPSCAYL", (L"hold:" + release.wstring()).c_str());
  ASSERT_EQ(StartUpscaylJob(Job({3, 6, false})), JobStart::Started);
  EXPECT_EQ(StartUpscaylJob(Job({3, 6, false})), JobStart::AlreadyRunning);
  Touch(release);
  const auto msg = WaitForResult();
  ASSERT_TRUE(msg);
  EXPECT_EQ(TakeUpscaylResult(msg->lParam).image, dir / "photo_digital-art-3x.png");
  auto next = Job({3, 6, false});
  EXPECT_EQ(next->output, dir / "photo_digital-art-3x_2.png");
  ASSERT_EQ(StartUpscaylJob(std::move(next)), JobStart::Started);
  const auto second = WaitForResult();
  ASSERT_TRUE(second);
  EXPECT_EQ(TakeUpscaylResult(second->lParam).image, dir / "photo_digital-art-3x_2.png");
}

TEST_F(UpscaylRun, MissingProgramsModelsOrFileAreRefused) {
  // Photoshop is started only when it is a real program.
  EXPECT_TRUE(StartPhotoshop(engine, photo));
  Touch(dir / "Photoshop.exe");
  EXPECT_FALSE(StartPhotoshop(dir / "Photoshop.exe", photo));
  EXPECT_FALSE(StartPhotoshop(dir / "Adobe" / "Photoshop.exe", photo));

  const auto missing = [](const std::filesystem::path& configured) {
    const auto found = FindUpscaylSetup(configured);
    return std::holds_alternative<std::u16string>(found) ? std::get<std::u16string>(found) : u"";
  };
  EXPECT_EQ(missing(dir / "Elsewhere" / "Upscayl.exe"), kUpscaylMissing);
  std::filesystem::remove_all(dir / "Upscayl" / "resources" / "models");
  EXPECT_EQ(missing(program), kUpscaylMissing);
  std::filesystem::create_directories(dir / "Upscayl" / "resources" / "models");
  EXPECT_EQ(missing(program), u"");

  std::filesystem::remove(photo);
  const auto made = MakeUpscaylJob(Installed(), photo, {}, window);
  ASSERT_TRUE(std::holds_alternative<std::u16string>(made));
  EXPECT_EQ(std::get<std::u16string>(made), kFileGone);
}

}  // namespace
}  // namespace tavora

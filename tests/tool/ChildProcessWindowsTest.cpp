#include "tool/ChildProcessWindows.h"

#include <gtest/gtest.h>
#include <shellapi.h>

#include <functional>
#include <optional>

#include "tests/support/TemporaryFolder.h"
#include "tool/Interruption.h"
#include "tool/Workers.h"

namespace harvane {
namespace {

std::vector<std::string> TakenApart(const std::wstring& line) {
  int count = 0;
  LPWSTR* const words = CommandLineToArgvW(line.c_str(), &count);
  std::vector<std::string> texts;
  for (int i = 0; i < count; ++i) texts.push_back(PlainText(words[i]));
  LocalFree(words);
  return texts;
}

TEST(ChildProcess, CommandLineIsTakenApartIntoItsWords) {
  const std::vector<std::string> words = {R"(C:\Program Files\x.exe)",
                                          "plain",
                                          "",
                                          "two words",
                                          R"(a"b)",
                                          R"(back\slash)",
                                          R"(end\)",
                                          R"(end of two\\)",
                                          R"(\"q\\")",
                                          R"(\\server\share\)",
                                          "tab\there",
                                          "\xC3\xA4\xE2\x82\xAC*?%"};
  EXPECT_EQ(TakenApart(CommandLineOf(words)), words);
}

TEST(ChildProcess, ExitCodesOfTheSystemHaveNames) {
  EXPECT_EQ(ExitText(0), "status 0");
  EXPECT_EQ(ExitText(3), "status 3");
  EXPECT_EQ(ExitText(0xC0000005), "0xC0000005 (access violation)");
  EXPECT_EQ(ExitText(0xC00000FD), "0xC00000FD (stack overflow)");
  EXPECT_EQ(ExitText(0xC0001234), "0xC0001234");
  EXPECT_TRUE(IsStrayAccess(0xC0000005));
  EXPECT_FALSE(IsStrayAccess(3));
}

TEST(ChildProcess, TextsComeBackFromUtf16) {
  const std::string text = "\xC3\xBC \xF0\x9D\x84\x9E x";
  EXPECT_EQ(WideText(text), L"\u00FC \xD834\xDD1E x");
  EXPECT_EQ(PlainText(WideText(text)), text);
  EXPECT_EQ(PlainText(WideText("")), "");
}

class StartedChild : public testing::Test {
 protected:
  SystemHandle Nothing() {
    return SystemHandle(CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, 0, nullptr));
  }
  const SystemHandle nothing = Nothing();
  const ChildProcess::Streams streams = {nothing.Get(), nothing.Get(), nothing.Get()};
};

TEST_F(StartedChild, ItsCodeIsTold) {
  ChildProcess child({HARVANE_PLAIN_WORKER, "7"}, streams);
  ASSERT_EQ(child.StartError(), "");
  EXPECT_EQ(child.AwaitEnd(20'000), std::optional<DWORD>(7));
}

TEST_F(StartedChild, AMissingProgramIsAnErrorInWords) {
  ChildProcess child({"missing program.exe"}, streams);
  EXPECT_NE(child.StartError().find("(Windows error 2)"), std::string::npos) << child.StartError();
  EXPECT_EQ(child.AwaitEnd(0), std::nullopt);
}

// Neither the process nor its pipes stay open in this one.
TEST(WorkersOnWindows, NoHandleIsLeftOpen) {
  Interruption interruption;
  WorkerListener listener;
  std::size_t ends = 0;
  listener.onEnd = [&](const JobEnd& /*end*/) { ++ends; };
  listener.onErrorLine = [](const std::string& /*line*/) {};
  const auto run = [&] {
    RunInWorkers({{HARVANE_PLAIN_WORKER}, 1, {}}, {"say a", "crash", "exit 2", "say b"}, listener,
                 &interruption);
    DWORD count = 0;
    GetProcessHandleCount(GetCurrentProcess(), &count);
    return count;
  };
  // What is made once and kept is there after the first.
  const DWORD before = run();
  EXPECT_EQ(run(), before);
  EXPECT_EQ(ends, 8U);
}

bool IsFree(const std::string& path) {
  return SystemHandle(CreateFileW(WideText(path).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                  0, nullptr))
      .IsOpen();
}

bool ComesTrue(const std::function<bool()>& condition) {
  constexpr int kTries = 400;
  constexpr DWORD kStepMs = 50;
  for (int i = 0; i < kTries; ++i) {
    if (condition()) return true;
    Sleep(kStepMs);
  }
  return false;
}

TEST(WorkersOnWindows, AWorkerEndsWithTheProgramThatIsKilled) {
  const support::TemporaryFolder folder;
  const std::string path = folder.FileIn("kept");
  support::WriteBytes(path, "x");
  std::wstring line = CommandLineOf({HARVANE_WORKER_BOSS, "boss", HARVANE_WORKER_BOSS, path});
  STARTUPINFOW start{};
  start.cb = sizeof start;
  PROCESS_INFORMATION made{};
  ASSERT_TRUE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                             &start, &made));
  const SystemHandle boss(made.hProcess);
  const SystemHandle thread(made.hThread);
  EXPECT_TRUE(ComesTrue([&] { return !IsFree(path); })) << "no worker came";
  TerminateProcess(boss.Get(), 1);
  EXPECT_TRUE(ComesTrue([&] { return IsFree(path); })) << "the worker lives on";
}

}  // namespace
}  // namespace harvane

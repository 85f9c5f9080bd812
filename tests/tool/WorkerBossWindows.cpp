// A program in charge of one worker: "boss PROGRAM FILE" starts PROGRAM, which is this one, as
// "own FILE", which keeps FILE to itself. Both stay until they are ended.

#include <windows.h>

#include <chrono>
#include <string>
#include <thread>

#include "tool/ChildProcessWindows.h"
#include "tool/WorkerProcess.h"

int main(int argumentCount, char** arguments) {
  const std::string verb = argumentCount > 2 ? arguments[1] : "";
  if (verb == "own") {
    const harvane::SystemHandle file(CreateFileW(harvane::WideText(arguments[2]).c_str(),
                                                 GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0,
                                                 nullptr));
    if (!file.IsOpen()) return 1;
    std::this_thread::sleep_for(std::chrono::minutes(1));
    return 0;
  }
  if (verb != "boss" || argumentCount != 4) return 2;
  harvane::WorkerProcess worker({arguments[2], "own", arguments[3]});
  std::this_thread::sleep_for(std::chrono::minutes(1));
  return 0;
}

// A worker whose jobs say what it shall do: "say TEXT", "news TEXT", "sleep SECONDS", "stay" (for
// ever, whatever it is asked to), "exit STATUS", "crash", "print TEXT", "complain TEXT", "input",
// "limit" (a long answer). With an argument it does that job by itself, or ends with the status
// that it is.

#ifdef _WIN32
#include <windows.h>
#endif

#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

#include "tool/Workers.h"

namespace {

#ifdef _WIN32
constexpr int kWishToEnd = SIGBREAK;
void Crash() { RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr); }
#else
constexpr int kWishToEnd = SIGTERM;
void Crash() { std::raise(SIGABRT); }
#endif

std::string Do(const std::string& job, const harvane::TellNews& tell) {
  std::istringstream words(job);
  std::string verb;
  std::string text;
  words >> verb >> std::ws;
  std::getline(words, text);
  if (verb == "news") tell(text);
  if (verb == "sleep") std::this_thread::sleep_for(std::chrono::duration<double>(std::stod(text)));
  if (verb == "stay") {
    std::signal(kWishToEnd, SIG_IGN);
    for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
  }
  if (verb == "exit") std::_Exit(std::stoi(text));
  if (verb == "crash") Crash();
  if (verb == "print") std::cout << text << std::endl;
  if (verb == "complain") std::cerr << text << std::endl;
  if (verb == "input" && std::cin.get() != EOF) return "not empty";
  if (verb == "limit") return std::string(1'000'000, 'x');
  return "did " + job;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount > 1) {
    if (std::isdigit(static_cast<unsigned char>(arguments[1][0])) != 0) {
      return std::stoi(arguments[1]);
    }
    Do(arguments[1], [](const std::string&) {});
    return 0;
  }
  harvane::ServeJobs(Do);
  return 0;
}

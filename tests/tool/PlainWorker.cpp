// A worker whose jobs say what it shall do: "say TEXT", "news TEXT", "sleep SECONDS", "stay" (for
// ever, whatever it is asked to), "exit STATUS", "signal NUMBER" (to itself), "print TEXT",
// "complain TEXT", "input", "limit" (a long answer). With an argument the process ends with that
// status before it does anything.

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "tool/Workers.h"

namespace {

std::string Do(const std::string& job, const harvane::TellNews& tell) {
  std::istringstream words(job);
  std::string verb;
  std::string text;
  words >> verb >> std::ws;
  std::getline(words, text);
  if (verb == "news") tell(text);
  if (verb == "sleep") usleep(static_cast<useconds_t>(std::stod(text) * 1e6));
  if (verb == "stay") {
    std::signal(SIGTERM, SIG_IGN);
    for (;;) pause();
  }
  if (verb == "exit") std::_Exit(std::stoi(text));
  if (verb == "signal") std::raise(std::stoi(text));
  if (verb == "print") std::cout << text << std::endl;
  if (verb == "complain") std::cerr << text << std::endl;
  if (verb == "input" && std::cin.get() != EOF) return "not empty";
  if (verb == "limit") return std::string(1'000'000, 'x');
  return "did " + job;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount > 1) return std::stoi(arguments[1]);
  harvane::ServeJobs(Do);
  return 0;
}

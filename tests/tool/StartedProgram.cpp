#include "tests/tool/StartedProgram.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <thread>

namespace support {

StartedProgram::StartedProgram(const Workplace& place, const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {"/usr/bin/env", "-C", place.FileIn(""), "HOME=" + home.Text(),
                                    HARVANE_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  constexpr int kWriting = O_WRONLY | O_CREAT | O_TRUNC;
  constexpr mode_t kMode = 0600;
  const std::string out = streams.FileIn("out");
  const std::string err = streams.FileIn("err");
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), kWriting, kMode);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), kWriting, kMode);
  EXPECT_EQ(posix_spawn(&process, pointers[0], &actions, nullptr, pointers.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
}

StartedProgram::~StartedProgram() {
  if (process <= 0) return;
  kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
}

std::string StartedProgram::Out() const { return ReadBytes(streams.FileIn("out")); }
std::string StartedProgram::Err() const { return ReadBytes(streams.FileIn("err")); }

std::vector<pid_t> StartedProgram::Workers() const {
  const std::string number = std::to_string(process);
  std::istringstream children(ReadBytes("/proc/" + number + "/task/" + number + "/children"));
  std::vector<pid_t> workers;
  for (pid_t child = 0; children >> child;) workers.push_back(child);
  return workers;
}

void StartedProgram::Signal(int signal) const { kill(process, signal); }

RunResult StartedProgram::Wait() {
  int status = 0;
  EXPECT_EQ(waitpid(process, &status, 0), process);
  process = -1;
  return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), Out(), Err()};
}

bool Comes(const std::function<bool()>& isSo) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!isSo()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

bool IsDead(pid_t process) {
  const std::string state = ReadBytes("/proc/" + std::to_string(process) + "/stat");
  const std::size_t name = state.rfind(") ");
  return name == std::string::npos || state[name + 2] == 'Z' || state[name + 2] == 'X';
}

}  // namespace support

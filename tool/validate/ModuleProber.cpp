#include "tool/validate/ModuleProber.h"

#include <utf8.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/FileAccess.h"
#include "host/ModuleExports.h"
#include "tool/validate/Probe.h"

namespace harvane {
namespace {

namespace files = std::filesystem;

constexpr int kDescribeSeconds = 60;  // a cold start of Wine takes some of them
constexpr std::size_t kMostErrorText = 2000;

// UTF-8 without control characters.
std::string Printable(const std::string& bytes) {
  std::string text;
  utf8::replace_invalid(bytes.begin(), bytes.end(), std::back_inserter(text), U'?');
  std::replace_if(
      text.begin(), text.end(),
      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, ' ');
  return text;
}

std::string EndOfFile(const std::string& path) {
  std::ifstream file(PathOf(path), std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (text.size() > kMostErrorText) text.erase(0, text.size() - kMostErrorText);
  text = Printable(text);
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

}  // namespace

ProbeFolder::~ProbeFolder() {
  std::error_code ignored;
  files::remove_all(PathOf(path), ignored);
}

std::string ProbeFolder::FileIn(const std::string& name) const {
  return (PathOf(path) / name).string();
}

ModuleProber::ModuleProber(const std::string& path)
    : modulePath(files::absolute(PathOf(path)).string()) {
  const std::ifstream file(PathOf(modulePath));
  if (!file || files::is_directory(PathOf(modulePath))) {
    throw ModuleError(path + ": cannot be read");
  }
  program = ProbeProgramFor(modulePath);
}

ProbeEnd ModuleProber::Run(const std::vector<std::string>& arguments, const ProbeFolder& folder,
                           int limitSeconds) const {
  ProbeEnd end = RunProbeProcess(program, arguments, folder.Path(), limitSeconds);
  end.errorText = EndOfFile(folder.FileIn(kProbeStreams));
  return end;
}

ModuleDescription ModuleProber::Describe() const {
  const ProbeFolder folder;
  const ProbeEnd end =
      Run({"describe", Module(), PathFor(folder.Path())}, folder, kDescribeSeconds);
  if (end.isTimedOut) throw ModuleError(modulePath + ": does not answer");
  if (end.status != kProbeDone) {
    throw ModuleError(modulePath + ": does not describe itself: " + end.errorText);
  }
  return LoadDescription(folder.Path());
}

}  // namespace harvane

#include "tests/host/cli/CliSupport.h"

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "delay_audio/PassObserver.h"
#include "host/HostSession.h"
#include "host/ModuleExports.h"
#include "tests/support/Signals.h"

namespace support {
namespace {

void Keep(const harvane::LogMeasurement& measurement, void* context) {
  static_cast<std::vector<harvane::LogMeasurement>*>(context)->push_back(measurement);
}

std::size_t SamplesOf(int rate, int channels, double seconds) {
  return static_cast<std::size_t>(rate * seconds) * static_cast<std::size_t>(channels);
}

}  // namespace

Workplace::Workplace() = default;

RunResult Workplace::Run(const std::string& arguments, const std::string& before) const {
  const TemporaryFolder streams;
  const std::string command = "cd '" + files.Text() + "'; export HOME='" + home.Text() +
                              "' XDG_CONFIG_HOME='" + home.Text() + "'; " + before +
                              " " HARVANE_PROGRAM " " + arguments + " >'" + streams.FileIn("out") +
                              "' 2>'" + streams.FileIn("err") + "'";
  const int status = std::system(command.c_str());
  const int code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  return {code, ReadBytes(streams.FileIn("out")), ReadBytes(streams.FileIn("err"))};
}

std::vector<std::string> Workplace::Names() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(files.Path())) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string Workplace::LogFolder() const { return home.FileIn("Documents/HarvaneLogs"); }

DirectResult RunDirectly(ParameterTexts texts, int rate, int channels,
                         const std::vector<std::int16_t>& interleaved) {
  const TemporaryFolder logs;
  texts.logPath = logs.Text();
  DirectResult result;
  harvane::HostSession session(harvane::LinkedModuleExports());
  harvane::SetPassObserver(session.Handle(), {Keep, &result.measurements});
  session.Configure(ParameterDocument(texts),
                    {static_cast<std::uint32_t>(rate), static_cast<std::uint32_t>(channels), {}});
  session.StartSequence();
  const int passes = texts.numberOfPasses == "1" ? 1 : 2;
  const auto frames =
      static_cast<std::uint32_t>(interleaved.size() / static_cast<std::size_t>(channels));
  for (int pass = 0; pass < passes; ++pass) {
    session.StartPass(static_cast<std::uint32_t>(pass));
    session.Deliver(interleaved.data(), frames, &result.output);
    session.EndPass();
  }
  session.EndSequence();
  harvane::WriteWaitingLogRows();
  return result;
}

std::vector<std::int16_t> QuietNoise(int rate, int channels, double seconds) {
  constexpr int kAmplitude = 1500;
  return NoiseInt16(7, SamplesOf(rate, channels, seconds), kAmplitude);
}

std::vector<std::int16_t> PeakyNoise(int rate, int channels, double seconds) {
  std::vector<std::int16_t> samples = NoiseInt16(9, SamplesOf(rate, channels, seconds), 600);
  const std::size_t spacing = samples.size() / 10;
  for (std::size_t i = spacing; i + 64 < samples.size(); i += spacing) {
    std::fill_n(samples.begin() + static_cast<std::ptrdiff_t>(i), 64, std::int16_t{20000});
  }
  return samples;
}

}  // namespace support

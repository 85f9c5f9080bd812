#include "tests/tool/JobSupport.h"

#include <CLI/CLI.hpp>
#include <filesystem>

#include "delay_audio/PassObserver.h"

namespace support {

harvane::JobOptions OptionsFor(harvane::JobKind kind, const std::string& arguments) {
  harvane::JobOptions options;
  CLI::App app;
  harvane::AddJobOptions(&app, &options, kind);
  app.parse(arguments, false);
  harvane::ResolveJobOptions(&options);
  return options;
}

JobPlace::JobPlace(int rate, int channels, const std::vector<std::int16_t>& interleaved) {
  WriteSound(folder.FileIn("in.wav"), kWav16, rate, channels, interleaved);
}

harvane::FileResult JobPlace::Measure(const std::string& arguments) const {
  return Run(harvane::JobKind::kMeasure, arguments, "");
}

harvane::FileResult JobPlace::Check(const std::string& arguments) const {
  return Run(harvane::JobKind::kCheck, arguments, "");
}

harvane::FileResult JobPlace::Normalise(const std::string& arguments) const {
  return Run(harvane::JobKind::kNormalise, arguments, folder.FileIn("out.wav"));
}

std::vector<std::int16_t> JobPlace::Output() const {
  return ReadSound(folder.FileIn("out.wav")).samples;
}

bool JobPlace::HasOutput() const { return std::filesystem::exists(folder.FileIn("out.wav")); }

harvane::FileResult JobPlace::Run(harvane::JobKind kind, const std::string& arguments,
                                  const std::string& output) const {
  harvane::JobOptions options = OptionsFor(kind, arguments);
  if (options.logFolder.empty()) options.parameters.logPath = folder.FileIn("logs");
  options.isOutputReplaced = true;
  harvane::FileResult result =
      harvane::RunFileJob(options, folder.FileIn("in.wav"), output, nullptr);
  harvane::WriteWaitingLogRows();
  return result;
}

std::vector<std::int16_t> ChannelOf(const std::vector<std::int16_t>& interleaved,
                                    std::size_t channels, std::size_t channel) {
  return ChannelsOf(interleaved, channels, {channel});
}

std::vector<std::int16_t> ChannelsOf(const std::vector<std::int16_t>& interleaved,
                                     std::size_t width, const std::vector<std::size_t>& channels) {
  std::vector<std::int16_t> picked;
  for (std::size_t frame = 0; frame < interleaved.size(); frame += width) {
    for (const std::size_t channel : channels) picked.push_back(interleaved[frame + channel]);
  }
  return picked;
}

}  // namespace support

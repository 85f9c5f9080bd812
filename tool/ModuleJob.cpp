#include "tool/ModuleJob.h"

namespace harvane {
ModuleJob::ModuleJob(const std::string& module, JobLayout layout, int sampleRate,
                     const std::string& document)
    : layout(std::move(layout)),
      format{static_cast<std::uint32_t>(sampleRate),
             static_cast<std::uint32_t>(this->layout.moduleChannels),
             {}},
      isModuleFile(!module.empty()),
      session(isModuleFile ? JobSession(module) : JobSession()) {
  if (!isModuleFile) recorder.Attach(&session);
  session.Configure(document, format);
  session.StartSequence();
}

void ModuleJob::StartPass(std::uint32_t number) {
  if (isModuleFile && number == 0) witness.emplace(layout.groupFormats, format);
  session.StartPass(number);
}

void ModuleJob::Deliver(const std::int16_t* file, std::size_t frames, std::size_t width) {
  const std::int16_t* delivered = file;
  if (!IsIdentity(width)) {
    row.assign(frames * ModuleChannels(), 0);
    for (const JobLayout::Track& track : layout.tracks) {
      for (std::size_t k = 0; k < track.fileChannels.size(); ++k) {
        const std::int16_t* from = file + track.fileChannels[k];
        std::int16_t* to = row.data() + track.moduleChannels[k];
        for (std::size_t s = 0; s < frames; ++s) to[s * ModuleChannels()] = from[s * width];
      }
    }
    delivered = row.data();
  }
  output.clear();
  session.Deliver(delivered, static_cast<std::uint32_t>(frames), &output);
  if (witness) witness->Hear(delivered, static_cast<std::uint32_t>(frames));
}

bool ModuleJob::IsIdentity(std::size_t width) const {
  if (width != ModuleChannels()) return false;
  std::size_t taken = 0;
  for (const JobLayout::Track& track : layout.tracks) {
    if (track.fileChannels != track.moduleChannels) return false;
    taken += track.fileChannels.size();
  }
  return taken == width;
}

std::vector<LogMeasurement> ModuleJob::EndPass() {
  session.EndPass();
  std::vector<LogMeasurement> measured = witness ? witness->Finish() : recorder.Take();
  witness.reset();
  return measured;
}

void ModuleJob::EndSequence() { session.EndSequence(); }

}  // namespace harvane

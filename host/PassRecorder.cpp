#include "host/PassRecorder.h"

#include <utility>

#include "host/ParameterDocument.h"
#include "parameters/ChannelLayouts.h"

namespace harvane {

// Room for all tracks, so that the observer never needs memory.
PassRecorder::PassRecorder() { measurements.reserve(kMaxChannels); }

void PassRecorder::Attach(JobSession* session) { session->Observe({OnTrack, this}); }

std::vector<LogMeasurement> PassRecorder::Take() {
  std::vector<LogMeasurement> taken;
  taken.reserve(kMaxChannels);
  std::swap(taken, measurements);
  return taken;
}

void PassRecorder::OnTrack(const LogMeasurement& measurement, void* context) {
  static_cast<PassRecorder*>(context)->measurements.push_back(measurement);
}

Witness::Witness(const std::vector<int>& groupFormats, const SessionFormat& format) {
  JobParameters parameters;
  parameters.numberOfPasses = 1;
  parameters.groupFormats = groupFormats;
  parameters.logPath = kNoLogFolder;
  recorder.Attach(&session);
  session.Configure(ParameterDocument(parameters), format);
  session.StartSequence();
  session.StartPass(0);
}

void Witness::Hear(const std::int16_t* interleaved, std::uint32_t frames) {
  unused.clear();
  session.Deliver(interleaved, frames, &unused);
}

std::vector<LogMeasurement> Witness::Finish() {
  session.EndPass();
  session.EndSequence();
  return recorder.Take();
}

}  // namespace harvane

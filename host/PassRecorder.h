#ifndef HARVANE_HOST_PASSRECORDER_H
#define HARVANE_HOST_PASSRECORDER_H

#include <cstdint>
#include <vector>

#include "host/JobSession.h"
#include "logging/LogMeasurement.h"

namespace harvane {

// Measurements of a pass, one per track in track order, as the observed instance
// hands them over.
class PassRecorder {
 public:
  PassRecorder();
  PassRecorder(const PassRecorder&) = delete;
  PassRecorder& operator=(const PassRecorder&) = delete;

  // Listens to `session`, which is on the linked module. Must outlive it.
  void Attach(JobSession* session);

  // What came since the last call.
  std::vector<LogMeasurement> Take();

 private:
  static void OnTrack(const LogMeasurement& measurement, void* context);

  std::vector<LogMeasurement> measurements;
};

// Measures audio beside a module that tells nobody its values: a job of one pass on
// the linked module, whose log goes nowhere.
//
// Errors     as HostSession.
// Thread     one caller at a time.
class Witness {
 public:
  Witness(const std::vector<int>& groupFormats, const SessionFormat& format);
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  void Hear(const std::int16_t* interleaved, std::uint32_t frames);
  // Ends the job.
  std::vector<LogMeasurement> Finish();

 private:
  PassRecorder recorder;
  JobSession session;
  std::vector<std::int16_t> unused;
};

}  // namespace harvane

#endif  // HARVANE_HOST_PASSRECORDER_H

#ifndef HARVANE_DELAY_AUDIO_PASSOBSERVER_H
#define HARVANE_DELAY_AUDIO_PASSOBSERVER_H

namespace harvane {

struct LogMeasurement;

// Listens to the measurements at the end of each pass, unrounded, for a program
// that links the instance in. Called on the host's thread inside xEndPass, once
// per track in track order, just before the row is queued. Must not throw.
struct PassObserver {
  void (*onTrack)(const LogMeasurement& measurement, void* context) = nullptr;
  void* context = nullptr;
};

// Neither function is among the exports: the module never has an observer.

// `handle` as xOpen stored it. The default observer ends the listening.
void SetPassObserver(void* handle, PassObserver observer);

// Writes all rows that wait, however many wake-ups of the writer they would take;
// for the end of a program.
void WriteWaitingLogRows();

}  // namespace harvane

#endif  // HARVANE_DELAY_AUDIO_PASSOBSERVER_H

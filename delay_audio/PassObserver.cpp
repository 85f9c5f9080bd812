#include "delay_audio/PassObserver.h"

#include "delay_audio/DelayAudio.h"
#include "logging/OrvelSingletonLoudnessLogger.h"

namespace harvane {

void SetPassObserver(void* handle, PassObserver observer) {
  static_cast<DelayAudio*>(handle)->SetObserver(observer);
}

void WriteWaitingLogRows() {
  OrvelSingletonLoudnessLogger& logger = OrvelSingletonLoudnessLogger::SingletonInstance();
  while (logger.WaitingEntries() > 0) logger.DrainQueue();
}

}  // namespace harvane

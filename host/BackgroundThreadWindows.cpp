#include <system_error>
#include <utility>

#include "host/BackgroundThread.h"

namespace harvane {

bool BackgroundThread::Start(std::function<void()> work) {
  try {
    thread = std::thread(std::move(work));
  } catch (const std::system_error&) {
  }
  return thread.joinable();
}

void BackgroundThread::Join() {
  if (thread.joinable()) thread.join();
}

}  // namespace harvane

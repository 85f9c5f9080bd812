#include "host/BackgroundThread.h"

#include <csignal>
#include <system_error>
#include <utility>

namespace harvane {

bool BackgroundThread::Start(std::function<void()> work) {
  sigset_t all;
  sigset_t former;
  sigfillset(&all);
  // A thread has the mask of the one that begins it.
  pthread_sigmask(SIG_SETMASK, &all, &former);
  try {
    thread = std::thread(std::move(work));
  } catch (const std::system_error&) {
  }
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  return thread.joinable();
}

void BackgroundThread::Join() {
  if (thread.joinable()) thread.join();
}

}  // namespace harvane

#include "tool/Interruption.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <ctime>

#include "tool/FileResult.h"

namespace harvane {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<int> signalCount{0};

extern "C" void NoteInterruption(int /*signal*/) {
  if (signalCount.fetch_add(1) > 0) _exit(kExitInterrupted);
}

}  // namespace

Interruption::Interruption() {
  signalCount = 0;
  for (const int signal : kSignals) {
    struct sigaction present {};
    sigaction(signal, nullptr, &present);
    if (present.sa_handler == SIG_IGN) continue;
    former.push_back({signal, present});
    struct sigaction noted {};
    noted.sa_handler = NoteInterruption;
    sigemptyset(&noted.sa_mask);
    sigaction(signal, &noted, nullptr);
  }
}

Interruption::~Interruption() {
  for (const Former& one : former) sigaction(one.signal, &one.action, nullptr);
}

bool Interruption::HasCome() {
  isTold = signalCount.load() > 0;
  return isTold;
}

bool Interruption::Poll(std::vector<pollfd>* descriptors, int milliseconds) const {
  // Between the look at the count and the waiting no signal may slip through.
  sigset_t held;
  sigset_t open;
  sigemptyset(&held);
  for (const Former& one : former) sigaddset(&held, one.signal);
  sigprocmask(SIG_BLOCK, &held, &open);
  const bool isNew = signalCount.load() > 0 && !isTold;
  const timespec wait = {isNew ? 0 : milliseconds / 1000,
                         isNew ? 0 : milliseconds % 1000 * 1'000'000L};
  const int ready = ppoll(descriptors->data(), descriptors->size(), &wait, &open);
  sigprocmask(SIG_SETMASK, &open, nullptr);
  if (ready > 0) return true;
  for (pollfd& one : *descriptors) one.revents = 0;
  return false;
}

}  // namespace harvane

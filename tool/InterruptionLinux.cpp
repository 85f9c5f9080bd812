#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <ctime>

#include "tool/FileResult.h"
#include "tool/Interruption.h"

namespace harvane {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<int> signalCount{0};

extern "C" void NoteInterruption(int /*signal*/) {
  if (signalCount.fetch_add(1) > 0) _exit(kExitInterrupted);
}

}  // namespace

struct Interruption::Former {
  struct Handler {
    int signal;
    struct sigaction action;
  };
  std::vector<Handler> handlers;
};

Interruption::Interruption() : former(std::make_unique<Former>()) {
  signalCount = 0;
  for (const int signal : kSignals) {
    struct sigaction present {};
    sigaction(signal, nullptr, &present);
    if (present.sa_handler == SIG_IGN) continue;
    former->handlers.push_back({signal, present});
    struct sigaction noted {};
    noted.sa_handler = NoteInterruption;
    sigemptyset(&noted.sa_mask);
    sigaction(signal, &noted, nullptr);
  }
}

Interruption::~Interruption() {
  for (const Former::Handler& one : former->handlers) sigaction(one.signal, &one.action, nullptr);
}

bool Interruption::HasCome() {
  isTold = signalCount.load() > 0;
  return isTold;
}

void Interruption::Await(const std::vector<Awaited>& awaited, int milliseconds) const {
  std::vector<pollfd> descriptors;
  for (const Awaited one : awaited) descriptors.push_back({one, POLLIN, 0});
  // Between the look at the count and the waiting no signal may slip through.
  sigset_t held;
  sigset_t open;
  sigemptyset(&held);
  for (const Former::Handler& one : former->handlers) sigaddset(&held, one.signal);
  sigprocmask(SIG_BLOCK, &held, &open);
  const bool isNew = signalCount.load() > 0 && !isTold;
  const timespec wait = {isNew ? 0 : milliseconds / 1000,
                         isNew ? 0 : milliseconds % 1000 * 1'000'000L};
  ppoll(descriptors.data(), descriptors.size(), &wait, &open);
  sigprocmask(SIG_SETMASK, &open, nullptr);
}

}  // namespace harvane

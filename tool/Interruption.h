#ifndef HARVANE_TOOL_INTERRUPTION_H
#define HARVANE_TOOL_INTERRUPTION_H

#include <poll.h>

#include <csignal>
#include <vector>

namespace harvane {

// While it lives, SIGINT, SIGTERM and SIGHUP are noted, for the work to end in order; the second
// one ends the process at once, with exit code 130. A signal that was ignored before stays ignored.
// One object at a time. Thread: one.
class Interruption {
 public:
  Interruption();
  // What the signals did before, they do again.
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  // True after the first.
  bool HasCome();

  // As poll(); a signal that HasCome has not told of, or that comes now, ends the waiting. False
  // where no descriptor has anything to tell.
  bool Poll(std::vector<pollfd>* descriptors, int milliseconds) const;

 private:
  struct Former {
    int signal;
    struct sigaction action;
  };
  std::vector<Former> former;
  bool isTold = false;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_INTERRUPTION_H

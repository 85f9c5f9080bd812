#ifndef HARVANE_TOOL_INTERRUPTION_H
#define HARVANE_TOOL_INTERRUPTION_H

#include <memory>
#include <vector>

namespace harvane {

// What Interruption::Await looks at: a descriptor to read from. Windows: any number for what has
// been read already; the end of a read in the background of the thread (ReadFileEx) ends the
// waiting by itself.
using Awaited = int;

// While it lives, the user's wish to end the program is noted, for the work to end in order; the
// second one ends the process at once, with exit code 130. One object at a time. Thread: one.
//
// Linux      SIGINT, SIGTERM and SIGHUP. One that was ignored before stays ignored.
// Windows    Ctrl-C, Ctrl-Break, the closing of the console, the end of the user's session, and
//            SIGTERM, which a program there can only raise by itself. A console that closes gives
//            the program a few seconds.
class Interruption {
 public:
  Interruption();
  // What such a wish did before, it does again.
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  // True after the first.
  bool HasCome();

  // Waits until one of them has something to tell, `milliseconds` at most. An interruption that
  // HasCome has not told of, or that comes now, ends the waiting.
  void Await(const std::vector<Awaited>& awaited, int milliseconds) const;

 private:
  struct Former;  // what was there before
  std::unique_ptr<Former> former;
  bool isTold = false;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_INTERRUPTION_H

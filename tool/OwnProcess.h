#ifndef HARVANE_TOOL_OWNPROCESS_H
#define HARVANE_TOOL_OWNPROCESS_H

#include <memory>
#include <string>

namespace harvane {

// What the program wants of the system for its own process.

// Once, before anything else is done. Standard streams that are closed lead nowhere, so that no
// file that is opened later takes their place. A write to nobody, or beyond the limit of file
// sizes, fails as an error. Windows: no dialog where something goes wrong, and what goes to
// standard output and error are bytes, in UTF-8 at a console too.
void PrepareProcess();

// A path that starts this program once more. Linux: also where its file was moved or replaced
// meanwhile.
std::string OwnProgram();

// How many processors it may use, which a cluster makes fewer than there are; 1 at least.
int UsableProcessors();

// The turn of one of all processes of this program on this machine, from the beginning of the
// object to its end. Where none can be had it goes on without.
class ProgramTurn {
 public:
  // Waits for it.
  ProgramTurn();
  ~ProgramTurn();
  ProgramTurn(const ProgramTurn&) = delete;
  ProgramTurn& operator=(const ProgramTurn&) = delete;

 private:
  struct Lock;
  std::unique_ptr<Lock> lock;
};

}  // namespace harvane

#endif  // HARVANE_TOOL_OWNPROCESS_H

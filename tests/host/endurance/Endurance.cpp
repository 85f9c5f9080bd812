// Runs the module for long and watches what it takes and what it gives.
//
//   endurance programme MINUTES           one instance, two passes over a programme; 1440 is a day
//   endurance jobs COUNT                  jobs one after another; 10000
//   endurance instances SECONDS [COUNT]   so many instances, 64 by default, at once; 4
//
// Exit status: 0 if all is as it should be, 1 if not, 2 for wrong arguments.
#include "tests/host/endurance/Endurance.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/support/LiveMemory.h"

int main(int argc, char** argv) {
  const std::string form = argc >= 3 && argc <= 4 ? argv[1] : "";
  const double amount = argc >= 3 ? std::atof(argv[2]) : 0.0;
  const int instances = argc == 4 ? std::atoi(argv[3]) : 64;
  const bool isKnown = form == "programme" || form == "jobs" || form == "instances";
  if (!isKnown || amount <= 0.0 || instances <= 0) {
    std::fprintf(stderr,
                 "usage: endurance programme MINUTES | jobs COUNT | instances SECONDS [COUNT]\n");
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  try {
    support::CheckLiveMemory();
    if (form == "programme") endurance::RunProgramme(static_cast<int>(amount));
    if (form == "jobs") endurance::RunJobs(static_cast<int>(amount));
    if (form == "instances") endurance::RunInstances(amount, instances);
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s: %s\n", form.c_str(), failure.what());
    return 1;
  }
}

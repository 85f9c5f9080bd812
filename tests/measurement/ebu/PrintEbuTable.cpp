// Prints the table of docs/ebu-conformance.md as it is measured now.
#include <cstdio>
#include <exception>

#include "tests/measurement/ebu/EbuTable.h"
#include "tests/measurement/ebu/PeerReadings.h"

int main() {
  try {
    std::printf("%s\n", ebu::TableHead().c_str());
    for (const ebu::EbuCase& ebuCase : ebu::EbuCases()) {
      const auto peer = ebuCase.read(ebu::MeasuredByPeer, ebu::kAllTones);
      std::printf("%s\n", ebu::TableRow(ebuCase, peer).c_str());
    }
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}

#ifndef HARVANE_TESTS_MEASUREMENT_EBU_PEERREADINGS_H
#define HARVANE_TESTS_MEASUREMENT_EBU_PEERREADINGS_H

#include "tests/measurement/ebu/Readings.h"

namespace ebu {

// libebur128 on the same samples. Its latest 0.4 s are looked at every 10 ms, its latest 3 s every
// 100 ms.
Readings MeasuredByPeer(const Sound& sound);

}  // namespace ebu

#endif  // HARVANE_TESTS_MEASUREMENT_EBU_PEERREADINGS_H

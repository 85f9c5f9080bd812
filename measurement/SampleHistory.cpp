#include "measurement/SampleHistory.h"

namespace harvane {

SampleHistory::SampleHistory(int length)
    : storage(new float[static_cast<unsigned>(length)]()), length(length) {
  first = storage.get();
  last = first + (length - 1);
  cursor = first;
}

}  // namespace harvane

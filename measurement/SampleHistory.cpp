#include "measurement/SampleHistory.h"

namespace harvane {

SampleHistory::SampleHistory(int length)
    : storage(new float[static_cast<unsigned>(length)]()), length(length) {
  first = storage.get();
  last = first + (length - 1);
  cursor = first;
}

void SampleHistory::ReadNewestFirst(float* out, int count) const {
  const float* read = cursor == first ? last : cursor - 1;
  for (int i = 0; i < count; ++i) {
    out[i] = *read;
    read = read == first ? last : read - 1;
  }
}

}  // namespace harvane

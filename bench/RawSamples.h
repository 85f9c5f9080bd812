#ifndef HARVANE_BENCH_RAWSAMPLES_H
#define HARVANE_BENCH_RAWSAMPLES_H

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

// All samples of a file of raw 16-bit samples in this machine's order. Throws
// std::runtime_error where it cannot be read.
inline std::vector<std::int16_t> ReadRawSamples(const std::string& path) {
  std::FILE* const file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) throw std::runtime_error("cannot open " + path);
  std::vector<std::int16_t> samples;
  std::vector<std::int16_t> piece(1U << 20);
  std::size_t got = 0;
  while ((got = std::fread(piece.data(), sizeof piece[0], piece.size(), file)) > 0) {
    samples.insert(samples.end(), piece.begin(),
                   piece.begin() + static_cast<std::vector<std::int16_t>::difference_type>(got));
  }
  std::fclose(file);
  return samples;
}

}  // namespace bench

#endif  // HARVANE_BENCH_RAWSAMPLES_H

#ifndef HARVANE_TESTS_FUZZ_FUZZTARGET_H
#define HARVANE_TESTS_FUZZ_FUZZTARGET_H

#include <cstddef>
#include <cstdint>

// One input of a target. libFuzzer calls it with what it invents; FeedInputs.cpp, in every other
// build, with the inputs that are kept. Always 0. Each program has one.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

namespace fuzz {

// Ends the process where `isTrue` is not: that input is a finding. `what` says what should be so.
void Require(bool isTrue, const char* what);

// While one lives, `operator new` throws std::bad_alloc for more than `bytes` at a time, as a
// machine without memory does. (AddressSanitizer's own ends the process.) One at a time.
class AllocationLimit {
 public:
  explicit AllocationLimit(std::size_t bytes);
  ~AllocationLimit();
  AllocationLimit(const AllocationLimit&) = delete;
  AllocationLimit& operator=(const AllocationLimit&) = delete;
};

// The bytes of an input as decisions, one after the other. Zeros behind the end.
class InputBytes {
 public:
  InputBytes(const std::uint8_t* bytes, std::size_t size) : next(bytes), end(bytes + size) {}

  bool IsEmpty() const { return next == end; }
  std::uint8_t Byte() { return next == end ? std::uint8_t{0} : *next++; }
  std::uint32_t Word() {
    std::uint32_t word = 0;
    for (int i = 0; i < 4; ++i) word |= static_cast<std::uint32_t>(Byte()) << (8 * i);
    return word;
  }
  // Below `limit`, which is 1 to 256.
  unsigned Below(unsigned limit) { return Byte() % limit; }
  template <class T, std::size_t count>
  const T& OneOf(const T (&choices)[count]) {
    static_assert(count <= 256);
    return choices[Below(count)];
  }

 private:
  const std::uint8_t* next;
  const std::uint8_t* end;
};

}  // namespace fuzz

#endif  // HARVANE_TESTS_FUZZ_FUZZTARGET_H

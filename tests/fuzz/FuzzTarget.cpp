#include "tests/fuzz/FuzzTarget.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <new>

namespace fuzz {
namespace {

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
std::atomic<std::size_t> largestAllocation{kNoLimit};

void* Allocate(std::size_t size) {
  if (size > largestAllocation.load(std::memory_order_relaxed)) return nullptr;
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void Require(bool isTrue, const char* what) {
  if (isTrue) return;
  std::fprintf(stderr, "not so: %s\n", what);
  std::fflush(stderr);
  std::abort();
}

AllocationLimit::AllocationLimit(std::size_t bytes) { largestAllocation = bytes; }
AllocationLimit::~AllocationLimit() { largestAllocation = kNoLimit; }

}  // namespace fuzz

// The program's own, in place of the library's and the sanitizer's. Over-aligned ones stay.

void* operator new(std::size_t size) {
  void* const memory = fuzz::Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return fuzz::Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return fuzz::Allocate(size);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept { std::free(memory); }

#include "tests/measurement/FailingAllocations.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

bool limited = false;
std::size_t allowedLeft = 0;

void* Allocate(std::size_t size) noexcept {
  if (limited) {
    if (allowedLeft == 0) return nullptr;
    --allowedLeft;
  }
  return std::malloc(size != 0 ? size : 1);
}

void* AllocateOrThrow(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace measurement_tests {

FailingAllocations::FailingAllocations(std::size_t allowed) {
  allowedLeft = allowed;
  limited = true;
}

FailingAllocations::~FailingAllocations() { limited = false; }

TEST(FailingAllocations, FailsAfterTheAllowedNumberAndEndsWithItsScope) {
  const auto allocateTwice = [] {
    ::operator delete(::operator new(1));
    ::operator delete[](::operator new[](1));
  };
  EXPECT_FALSE(SucceedsWithAllocations(0, allocateTwice));
  EXPECT_FALSE(SucceedsWithAllocations(1, allocateTwice));
  EXPECT_TRUE(SucceedsWithAllocations(2, allocateTwice));
  EXPECT_NO_THROW(allocateTwice());
}

}  // namespace measurement_tests

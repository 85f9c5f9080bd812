#include "tests/support/LiveMemory.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <stdexcept>

namespace {

// In front of each block, with its size; keeps the alignment.
constexpr std::size_t kHead = alignof(std::max_align_t) < 16 ? 16 : alignof(std::max_align_t);

std::atomic<std::int64_t> liveBlocks{0};
std::atomic<std::int64_t> liveBytes{0};

void* Allocate(std::size_t size) noexcept {
  if (size > SIZE_MAX - kHead) return nullptr;
  void* const memory = std::malloc(size + kHead);
  if (memory == nullptr) return nullptr;
  *static_cast<std::size_t*>(memory) = size;
  ++liveBlocks;
  liveBytes += static_cast<std::int64_t>(size);
  return static_cast<unsigned char*>(memory) + kHead;
}

void* AllocateOrThrow(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void Free(void* memory) noexcept {
  if (memory == nullptr) return;
  void* const start = static_cast<unsigned char*>(memory) - kHead;
  --liveBlocks;
  liveBytes -= static_cast<std::int64_t>(*static_cast<std::size_t*>(start));
  std::free(start);
}

}  // namespace

void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { Free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { Free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { Free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { Free(memory); }

namespace support {

LiveMemory MemoryInUse() { return {liveBlocks.load(), liveBytes.load()}; }

void CheckLiveMemory() {
  constexpr std::size_t kProbeBytes = 1000;
  const LiveMemory before = MemoryInUse();
  void* const probe = ::operator new(kProbeBytes);
  const LiveMemory during = MemoryInUse();
  ::operator delete(probe);
  const LiveMemory wanted = {before.blocks + 1,
                             before.bytes + static_cast<std::int64_t>(kProbeBytes)};
  if (!(during == wanted) || !(MemoryInUse() == before)) {
    throw std::logic_error("live memory is not counted");
  }
}

}  // namespace support

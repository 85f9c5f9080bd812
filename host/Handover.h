#ifndef HARVANE_HOST_HANDOVER_H
#define HARVANE_HOST_HANDOVER_H

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

namespace harvane {

// A ring of blocks between two threads: one fills them, the other uses them up, in the same
// order. A block keeps its memory when its turn comes again.
//
// Waking     a waking costs more than a block, so who waits for a free block sleeps until half of
//            the ring is free. Who waits for a filled one is woken at once with Eager, else when
//            half of the ring is filled or no more will come.
// Thread     one filling and one using thread; Stop from either.
template <class Block>
class Handover {
 public:
  enum class Waking { kEager, kLazy };

  // `count`: 2 or more.
  Handover(std::size_t count, Waking waking)
      : blocks(count), half(count / 2), filledToWake(waking == Waking::kEager ? 1 : half) {}
  Handover(const Handover&) = delete;
  Handover& operator=(const Handover&) = delete;

  // The next block to fill, with what it held before; waits for one. Null once it was stopped.
  Block* ForFilling() {
    std::unique_lock lock(mutex);
    if (filled == blocks.size()) {
      freed.wait(lock, [this] { return isStopped || blocks.size() - filled >= half; });
    }
    return isStopped ? nullptr : &blocks[next];
  }
  // The block is full.
  void Filled() {
    const std::lock_guard lock(mutex);
    next = (next + 1) % blocks.size();
    if (++filled >= filledToWake) came.notify_one();
  }
  // No block will be filled any more.
  void End() {
    const std::lock_guard lock(mutex);
    isEnded = true;
    came.notify_one();
  }

  // The oldest filled block; waits for one. Null behind the last one and once it was stopped.
  Block* ForUse() {
    std::unique_lock lock(mutex);
    if (filled == 0) {
      came.wait(lock, [this] { return isStopped || isEnded || filled >= filledToWake; });
    }
    return isStopped || filled == 0 ? nullptr
                                    : &blocks[(next + blocks.size() - filled) % blocks.size()];
  }
  // The block may be filled again.
  void Used() {
    const std::lock_guard lock(mutex);
    if (blocks.size() - --filled >= half) freed.notify_one();
  }

  // Ends all waiting.
  void Stop() {
    const std::lock_guard lock(mutex);
    isStopped = true;
    came.notify_one();
    freed.notify_one();
  }

 private:
  std::vector<Block> blocks;
  const std::size_t half;
  const std::size_t filledToWake;
  std::size_t next = 0;    // to be filled
  std::size_t filled = 0;  // before it
  bool isEnded = false;
  bool isStopped = false;
  std::mutex mutex;
  std::condition_variable came;
  std::condition_variable freed;
};

}  // namespace harvane

#endif  // HARVANE_HOST_HANDOVER_H

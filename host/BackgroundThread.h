#ifndef HARVANE_HOST_BACKGROUNDTHREAD_H
#define HARVANE_HOST_BACKGROUNDTHREAD_H

#include <functional>
#include <thread>

namespace harvane {

// A thread that works beside the one that made it, and hears no signals: they stay with the
// program's own threads.
//
// Thread     one caller at a time.
class BackgroundThread {
 public:
  BackgroundThread() = default;
  // Waits for the end of `work`; whoever made it stops it before.
  ~BackgroundThread() { Join(); }
  BackgroundThread(const BackgroundThread&) = delete;
  BackgroundThread& operator=(const BackgroundThread&) = delete;

  // Begins `work`, which lets no exception out. False where the system gives no thread; the
  // caller then does the work itself.
  bool Start(std::function<void()> work);
  void Join();
  bool IsRunning() const { return thread.joinable(); }

 private:
  std::thread thread;
};

}  // namespace harvane

#endif  // HARVANE_HOST_BACKGROUNDTHREAD_H

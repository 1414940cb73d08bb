#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace zelk {

// A manual-reset event: once set it releases every wait until it is reset.
// Thread: any. Wait and WaitFor block; Set on an event that is already set costs one atomic read.
// What a thread wrote before Set is seen by a thread that a wait released.
class CEvent {
 public:
  void Set();
  void Reset();
  void Wait();
  // False when the time ran out before the event was set.
  bool WaitFor(uint32_t timeoutMs);

 private:
  std::mutex mutex;
  std::condition_variable changed;
  std::atomic<bool> set{false};  // written under mutex; read without it only to see that there is nothing to do
};

}  // namespace zelk

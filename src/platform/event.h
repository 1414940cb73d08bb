#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace zelk {

// A manual-reset event: once set it releases every wait until it is reset.
// Thread: any. Wait and WaitFor block.
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
  bool set = false;  // guarded by mutex
};

}  // namespace zelk

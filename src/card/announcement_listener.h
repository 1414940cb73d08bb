#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

#include "card/card.h"
#include "card/discovery.h"
#include "platform/thread.h"

namespace zelk {

// Hears the announcement of a card that has restarted and re-opens that card.
// Thread: Start and Stop the initialising thread; the work is done on a thread of its own.
class CAnnouncementListener {
 public:
  // cards[i] was found at discovered[i]; both must outlive the listener's thread.
  bool Start(std::vector<CCard*> cards, std::vector<SDiscoveredCard> discovered);
  void Stop();  // waits up to 3000 ms

 private:
  std::atomic<bool> stopRequested{false};
  CThread thread;
};

}  // namespace zelk

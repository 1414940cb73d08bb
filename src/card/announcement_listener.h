// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "card/card.h"
#include "card/discovery.h"
#include "platform/thread.h"

namespace zelk {

// Hears the announcement of a card that has restarted and re-opens that card.
// Thread: Start and Stop the initialising thread; the work is done on a thread of its own, which Start fails without.
// A re-open under way is cut short by Stop. A thread that is held in a callback for longer than Stop waits touches no
// card when it comes back. Without its port the thread ends and nothing is ever re-opened. Memory that runs out costs
// the re-open at hand.
class CAnnouncementListener {
 public:
  ~CAnnouncementListener();  // Stops.

  // cards[i] was found at discovered[i]; both must outlive the listener's thread.
  bool Start(std::vector<CCard*> cards, std::vector<SDiscoveredCard> discovered);
  void Stop();  // waits up to 3000 ms

 private:
  class CWorker;
  std::shared_ptr<CWorker> worker;
  CThread thread;
};

}  // namespace zelk

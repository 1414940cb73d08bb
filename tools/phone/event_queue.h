// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <deque>

namespace phone {

struct SPhoneEvent {
  int32_t channel = 0;
  uint32_t code = 0;
  int32_t param = 0;
};

// Events in the order of their arrival. Thread: none of its own, the owner locks.
class CEventQueue {
 public:
  void Push(const SPhoneEvent& event) { events.push_back(event); }
  bool IsEmpty() const { return events.empty(); }
  // The oldest event; false when there is none.
  bool Take(SPhoneEvent& event);
  // When the end of the channel's call waits in the queue: takes it out, with all that the channel said before it, and
  // returns true. A new call on the channel may stand after it and stays.
  bool TakeEnd(int32_t channel);

 private:
  std::deque<SPhoneEvent> events;
};

}  // namespace phone

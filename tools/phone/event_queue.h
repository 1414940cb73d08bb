// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace phone {

// What is known of a call when it is offered.
struct SCaller {
  std::string calling;
  std::string called;
  std::string redirecting;
  std::string callType;
};

struct SPhoneEvent {
  int32_t channel = 0;
  uint32_t code = 0;
  int32_t param = 0;
  std::chrono::system_clock::time_point time{};  // when it came from the library
  SCaller caller{};                              // of an offered call
};

// Events in the order of their arrival. Thread: none of its own, the owner locks.
class CEventQueue {
 public:
  void Push(const SPhoneEvent& event) { events.push_back(event); }
  bool IsEmpty() const { return events.empty(); }
  // The oldest event; false when there is none.
  bool Take(SPhoneEvent& event);
  // When the end of the channel's call waits in the queue: takes it out, with all that the channel said before it, and
  // returns it. A new call on the channel may stand after it and stays.
  std::optional<SPhoneEvent> TakeEnd(int32_t channel);

 private:
  std::deque<SPhoneEvent> events;
};

}  // namespace phone

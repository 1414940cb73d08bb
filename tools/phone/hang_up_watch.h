// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <optional>

namespace phone {

// Job: tells when a call that was hung up is lost: nothing is heard of its end. The library frees the channel a moment
// before it posts the event of the end, so a free channel alone is no loss. Thread: main. Nothing fails.
class CHangUpWatch {
 public:
  using Time = std::chrono::steady_clock::time_point;
  // The network confirms a hang-up in well under a second.
  static constexpr std::chrono::seconds kConfirmLimit{10};
  static constexpr std::chrono::seconds kEventLimit{1};

  void Begin(Time now) { begun = now; }
  bool HasBegun() const { return begun.has_value(); }
  // After Begin, as long as no event has told the end.
  bool IsLost(bool isChannelInUse, Time now);

 private:
  std::optional<Time> begun;
  std::optional<Time> freed;  // when the channel was first seen free
};

}  // namespace phone

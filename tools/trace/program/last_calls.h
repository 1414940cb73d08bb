// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "trace/core/analysis.h"

namespace trace {

// A message of a call.
struct SMessageLine {
  Time time = 0;
  bool isToLibrary = false;
  std::string name;
  std::string details;
};

struct SLastCall {
  SCall call;
  std::deque<SMessageLine> messages;  // the last kMostMessages
  bool isOver = false;
};

// Job: the call that each channel has, or had last, with its messages, and the causes of those before. Thread: one.
// What it keeps is bounded by the channels and the calls under way.
class CLastCalls : public ITraceSink {
 public:
  static constexpr std::size_t kMostMessages = 40;
  static constexpr std::size_t kMostCauses = 8;

  void OnCallBegins(const SCall& call) override { calls[call.number].call = call; }
  void OnCallMessage(const SCall& call, const SSignal& signal) override;
  void OnCallEnds(const SCall& call) override;

  // The call of this number while it goes on; else the channel's last one; else null. 0 is no call.
  const SLastCall* Find(std::uint64_t number, std::uint32_t card, int trunk, int timeslot) const;
  // The newest first.
  std::vector<int> Causes(std::uint32_t card, int trunk, int timeslot) const;

 private:
  using Place = std::tuple<std::uint32_t, int, int>;  // card, trunk, timeslot

  std::map<std::uint64_t, SLastCall> calls;  // under way
  std::map<Place, SLastCall> last;
  std::map<Place, std::deque<int>> causes;
};

// Job: how loud one channel is, each way, as the mean over the last second. Thread: one.
class CLevelMeter : public ITraceSink {
 public:
  // From here on this channel; `trunks` of its card.
  void Watch(std::uint32_t card, int trunk, int timeslot, int trunks);
  void OnAudio(const SAudio& audio) override;
  // "-12.3 dBm0", or "not heard yet".
  const std::string& Text(EDirection direction) const {
    return sides[direction == EDirection::kToLibrary ? 0 : 1].text;
  }

 private:
  struct SSide {
    Bytes codes;  // of the second under way
    std::string text = "not heard yet";
  };

  std::uint32_t watched = 0;
  std::size_t at = 0;
  std::size_t step = 0;  // 0: none is watched
  SSide sides[2];
};

}  // namespace trace

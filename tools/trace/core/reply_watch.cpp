// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/reply_watch.h"

#include <algorithm>
#include <utility>

namespace trace {
namespace {

constexpr std::uint8_t kHintAnsweredByNone = 4;
constexpr int kOldToStartAnew = 10;
constexpr Time kFineBin = kMillisecond / 100;
constexpr Time kNeverComes = 3 * kSecond;
// A jump of the library's counter beyond this is a new numbering.
constexpr std::uint32_t kLargestLoss = 1000;

}  // namespace

void CReplyWatch::Restart(bool isWhole) {
  next = isWhole ? std::optional<std::uint32_t>(1) : std::nullopt;
  isFirst = isWhole;
  oldInARow = 0;
  early.reset();
  owed.clear();
  lastReply.reset();
}

void CReplyWatch::OnPacket(std::uint32_t sequence, std::uint8_t hint, Time time) {
  ++counts.packets;
  Expire(time);
  const auto kept = std::exchange(early, std::nullopt);
  if (!next) {
    next = sequence;
    isFirst = false;
  }
  if (sequence == *next && !isFirst) {
    Owe(sequence, 1, time);
    if (kept) {
      Owe(kept->first, 1, time);
    }
  } else if (sequence == *next || sequence > *next + 1) {
    counts.lost += sequence - *next - (kept ? 1 : 0);
    StartAnew(sequence, hint, time);
  } else if (sequence == *next + 1) {
    early = {sequence, time};
  } else {
    ++counts.repeated;
    if (++oldInARow >= kOldToStartAnew) {
      StartAnew(sequence, hint, time);
    }
  }
}

void CReplyWatch::StartAnew(std::uint32_t sequence, std::uint8_t hint, Time time) {
  isFirst = false;
  Owe(sequence, hint > kHintAnsweredByNone ? hint - kHintAnsweredByNone : 0, time);
}

void CReplyWatch::Owe(std::uint32_t sequence, int replies, Time time) {
  owed.insert(owed.end(), static_cast<std::size_t>(replies), time);
  next = sequence + 1;
  oldInARow = 0;
}

void CReplyWatch::Expire(Time now) {
  while (!owed.empty() && now - owed.front() > kNeverComes) {
    owed.pop_front();
    ++counts.missing;
  }
}

void CReplyWatch::OnReply(std::uint32_t sequence, Time time) {
  ++counts.replies;
  const std::uint32_t passed = lastReply ? sequence - *lastReply - 1 : 0;
  lastReply = sequence;
  for (std::uint32_t i = 0; passed <= kLargestLoss && i < passed && !owed.empty(); ++i) {
    owed.pop_front();
    ++counts.missing;
  }
  if (owed.empty()) {
    ++counts.surplus;
    return;
  }
  const Time delay = std::max<Time>(0, time - owed.front());
  owed.pop_front();
  counts.late += delay > kLate ? 1 : 0;
  const std::size_t fine = static_cast<std::size_t>(delay / kFineBin);
  const std::size_t coarse = kFineBins + static_cast<std::size_t>(delay / kMillisecond);
  ++bins[fine < kFineBins ? fine : std::min(coarse, kBins - 1)];
}

std::optional<double> CReplyWatch::DelayMs(double share) const {
  std::uint64_t all = 0;
  for (const std::uint64_t count : bins) {
    all += count;
  }
  if (all == 0) {
    return std::nullopt;
  }
  std::uint64_t seen = 0;
  std::size_t bin = 0;
  for (; bin + 1 < kBins; ++bin) {
    seen += bins[bin];
    if (static_cast<double>(seen) >= share * static_cast<double>(all)) {
      break;
    }
  }
  return bin < kFineBins ? static_cast<double>(bin + 1) / 100 : static_cast<double>(bin - kFineBins + 1);
}

}  // namespace trace

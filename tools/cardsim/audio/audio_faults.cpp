// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/audio_faults.h"

#include <algorithm>
#include <utility>

namespace cardsim {

void CAudioFaults::Set(const SAudioFaults& faults) {
  settings = faults;
  random.seed(faults.seed);
  active = faults.loss > 0 || faults.duplicates > 0 || faults.reordered > 0 || faults.delay.count() > 0 ||
           faults.jitter.count() > 0;
}

bool CAudioFaults::IsIdle(Time now) const {
  return !active && !aside && underWay.empty() && now >= pauseEnd;
}

// The generator's numbers are the same everywhere, which the library's distributions are not.
bool CAudioFaults::Happens(double percent) {
  return percent > 0 && static_cast<double>(random()) * 100.0 < percent * 4294967296.0;
}

void CAudioFaults::Push(SAudioPacket packet, Time now) {
  if (Happens(settings.loss)) {
    ++counts.lost;
    return;
  }
  if (!aside && Happens(settings.reordered)) {
    ++counts.reordered;
    aside = std::move(packet);
    return;
  }
  const bool twice = Happens(settings.duplicates);
  if (twice) {
    ++counts.duplicated;
    Launch(packet, now);
  }
  Launch(std::move(packet), now);
  if (aside) {
    Launch(*std::exchange(aside, std::nullopt), now);
  }
}

void CAudioFaults::Launch(SAudioPacket packet, Time now) {
  const auto widest = std::chrono::duration_cast<std::chrono::microseconds>(settings.jitter).count();
  const auto extra = widest > 0 ? static_cast<std::int64_t>(random()) % (widest + 1) : 0;
  underWay.emplace(now + settings.delay + std::chrono::microseconds(extra), std::move(packet));
}

std::optional<SAudioPacket> CAudioFaults::Pop(Time now) {
  const auto due = NextDue();
  if (!due || *due > now) {
    return std::nullopt;
  }
  SAudioPacket packet = std::move(underWay.begin()->second);
  underWay.erase(underWay.begin());
  return packet;
}

std::optional<CAudioFaults::Time> CAudioFaults::NextDue() const {
  if (underWay.empty()) {
    return std::nullopt;
  }
  return std::max(underWay.begin()->first, pauseEnd);
}

void CAudioFaults::Clear() {
  aside.reset();
  underWay.clear();
}

}  // namespace cardsim

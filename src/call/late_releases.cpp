// SPDX-License-Identifier: GPL-2.0-only
#include "call/late_releases.h"

#include <algorithm>

#include "call/application_events.h"
#include "call/disconnect_cause.h"
#include "runtime/config.h"

namespace zelk {

namespace {

constexpr uint64_t kMsPerSecond = 1000;

}  // namespace

CLateReleases::CLateReleases(const CCardChannels& cardChannels) : channels(cardChannels) {
  awaited.reserve(size_t{kMaxTrunks} * kChannelsPerTrunk);
}

void CLateReleases::Await(uint32_t channel, PriCall call, int32_t cause) {
  if (Config().clearedCallTimeoutS <= 0) {
    return;
  }
  const CScopedLock<CMutex> held(lock);
  std::erase_if(awaited, [channel](const SAwaited& entry) { return entry.channel == channel; });
  awaited.push_back({channel, call, cause > 0 ? cause : kCauseNormalClearing, std::nullopt});
  count = awaited.size();
}

void CLateReleases::OnTime(CCard& card, uint32_t nowMs, const CStopFlag& caller) {
  while (!caller.IsSet() && IsAwaited()) {
    const std::optional<SAwaited> due = NextDue(nowMs);
    if (!due) {
      return;
    }
    Release(card, *due);
  }
}

std::optional<CLateReleases::SAwaited> CLateReleases::NextDue(uint32_t nowMs) {
  const auto timeoutMs = static_cast<uint64_t>(std::max<int32_t>(Config().clearedCallTimeoutS, 0)) * kMsPerSecond;
  const CScopedLock<CMutex> held(lock);
  for (SAwaited& entry : awaited) {
    if (!entry.sinceMs) {
      entry.sinceMs = nowMs;
    }
    if (nowMs - *entry.sinceMs >= timeoutMs) {
      const SAwaited due = entry;
      std::swap(entry, awaited.back());
      awaited.pop_back();
      count = awaited.size();
      return due;
    }
  }
  return std::nullopt;
}

// Whatever gave the channel up or put another call on it was quicker.
void CLateReleases::Release(CCard& card, const SAwaited& due) const {
  CDevice* device = channels.At(due.channel);
  if (device == nullptr) {
    return;
  }
  const CScopedLock<CRecursiveMutex> held(card.Trunk(static_cast<uint32_t>(device->TrunkIndex())).lock);
  if (device->Call().View().callHandle != due.call) {
    return;
  }
  device->EndCall(due.cause);
  ApplicationEvents().Post(due.channel, EVENT_DISCONNECTED, due.cause);
}

}  // namespace zelk

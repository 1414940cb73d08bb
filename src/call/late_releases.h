// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "call/card_channels.h"
#include "card/pri_adapter.h"
#include "platform/mutex.h"

namespace zelk {

// Calls of one card that libpri has released without a word for the application: it confirms a clearing that the
// library began when the other side ends it by RELEASE COMPLETE, by a STATUS that knows no call, or not at all. The
// channel keeps the dead call for "ClearedCallTimeout" seconds; if nothing else has freed it by then it is reset and
// the application told, as the release itself would have done.
//
//   Hangup -> DISCONNECT -> ... -> HANGUP_ACK: Await --- timeout ---> reset, EVENT_DISCONNECTED
//
// Thread: Await and OnTime control; IsAwaited any. No lock but the trunk's is held while the application's callback
// runs; once the caller has been given up meanwhile, nothing is touched any more. Nothing allocates after construction.
class CLateReleases {
 public:
  explicit CLateReleases(const CCardChannels& channels);

  // The time begins with the next OnTime. A cause of 0 or below is none: the reset then says 16.
  void Await(uint32_t channel, PriCall call, int32_t cause);
  bool IsAwaited() const { return count != 0; }
  void OnTime(CCard& card, uint32_t nowMs, const CStopFlag& caller);

 private:
  struct SAwaited {
    uint32_t channel;
    PriCall call;
    int32_t cause;
    std::optional<uint32_t> sinceMs;
  };

  std::optional<SAwaited> NextDue(uint32_t nowMs);
  void Release(CCard& card, const SAwaited& due) const;

  const CCardChannels& channels;
  CMutex lock;
  std::vector<SAwaited> awaited ZELK_GUARDED_BY(lock);  // at most one a channel
  std::atomic<size_t> count{0};                         // of awaited
};

}  // namespace zelk

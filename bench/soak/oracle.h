// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

#include "zelk/ZelkApi.h"

namespace soak {

// What an application knows of a channel from its own calls and the events alone, and which event may come when:
//
//   idle      INCOMING_CALL -> offered
//   dialled   PROCEEDING, ALERTING, PROGRESS; CONNECTED -> connected; DISCONNECTED -> idle
//   offered   DISCONNECTED -> idle
//   answered  CONNECTED -> connected; DISCONNECTED -> idle
//   connected DISCONNECTED -> idle
//   clearing  what was under way when the application hung up; DISCONNECTED -> idle
//   anywhere  INCOMING_CALL -> offered, but of a channel that is down; CHANNEL_STATE 0 -> down; of a channel that is
//   down CHANNEL_STATE 1 -> idle
//
// A call that the network offers on a channel with another call takes it; the end of the other one, and of a call that
// was rejected, may then be told of a channel that is idle.
//
// Digits and the ends of plays come from other threads, in no order with these. Thread: one at a time.
class COracle {
 public:
  enum class EState : uint8_t { kIdle, kDialled, kOffered, kAnswered, kConnected, kClearing, kDown };

  EState State() const { return state; }
  void Dialled() { state = EState::kDialled; }
  void NotDialled() { state = state == EState::kDialled ? EState::kIdle : state; }
  void Answered() { state = EState::kAnswered; }
  void HungUp() { state = EState::kClearing; }
  // Frees the channel at once; the network's confirmation may come as a further end.
  void Rejected() {
    state = EState::kIdle;
    ++spareEnds;
  }

  // Whether the event may come now.
  bool Take(uint32_t event, int32_t parameter) {
    switch (event) {
      case ZELK_EVENT_INCOMING_CALL:
        spareEnds += Is(EState::kConnected) || Is(EState::kAnswered) || Is(EState::kOffered) ? 1 : 0;
        return Enter(EState::kOffered, !Is(EState::kDown));
      case ZELK_EVENT_CONNECTED:
        return Enter(EState::kConnected, Is(EState::kDialled) || Is(EState::kAnswered));
      case ZELK_EVENT_DISCONNECTED:
        return TakeEnd();
      case ZELK_EVENT_PROCEEDING:
      case ZELK_EVENT_ALERTING:
      case ZELK_EVENT_PROGRESS:
        return Is(EState::kDialled) || Is(EState::kClearing);
      case ZELK_EVENT_CHANNEL_STATE:
        spareEnds = 0;
        return Enter(parameter == 0 ? EState::kDown : EState::kIdle, parameter == 0 || Is(EState::kDown));
      default:
        return event == ZELK_EVENT_DTMF || event == ZELK_EVENT_PLAY_DONE;
    }
  }

  static std::string NameOf(EState state) {
    static constexpr const char* kNames[] = {"idle", "dialled", "offered", "answered", "connected", "clearing", "down"};
    return kNames[static_cast<size_t>(state)];
  }

 private:
  bool Is(EState other) const { return state == other; }
  bool Enter(EState next, bool isAllowed) {
    state = next;
    return isAllowed;
  }
  bool TakeEnd() {
    if (Is(EState::kDown)) {
      return false;
    }
    return !Is(EState::kIdle) ? Enter(EState::kIdle, true) : spareEnds > 0 && spareEnds-- > 0;
  }

  EState state = EState::kDown;
  int spareEnds = 0;
};

}  // namespace soak

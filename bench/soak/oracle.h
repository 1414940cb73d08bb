// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

#include "world/call_grammar.h"
#include "zelk/ZelkApi.h"

namespace soak {

// What an application knows of a channel from its own calls and the events alone. By the state it chooses what it does
// next; whether an event or a result may come is judged by the grammar, which keeps all that may be true.
//
// Digits and the ends of plays come from other threads, in no order with these. Thread: one at a time; at most one
// export is under way.
class COracle {
 public:
  enum class EState : uint8_t { kIdle, kDialled, kOffered, kAnswered, kConnected, kClearing, kDown };

  // The network loses calls without a word: faults of the channel's card.
  void SetForgetful() { grammar.SetForgetful(); }

  EState State() const { return state; }
  // Before the export.
  void Dial() { Begin(world::EAction::kDial, EState::kDialled); }
  void Answer() { Begin(world::EAction::kAnswer, EState::kAnswered); }
  void HangUp() { Begin(world::EAction::kHangup, EState::kClearing); }
  void Reject() { Begin(world::EAction::kReject, EState::kIdle); }
  // After it. Empty when the result fits.
  std::string Returned(bool result) {
    if (!result && state == EState::kDialled) {
      state = EState::kIdle;
    }
    return grammar.Return(ticket, result);
  }

  // Empty when the event may come now.
  std::string Take(uint32_t event, int32_t parameter) {
    if (event == ZELK_EVENT_CHANNEL_STATE && parameter != 0 && state != EState::kDown) {
      return "came up where it was " + NameOf(state);
    }
    state = After(event, parameter);
    return grammar.Event(event, parameter);
  }

  static std::string NameOf(EState state) {
    static constexpr const char* kNames[] = {"idle", "dialled", "offered", "answered", "connected", "clearing", "down"};
    return kNames[static_cast<size_t>(state)];
  }

 private:
  void Begin(world::EAction action, EState next) {
    state = next;
    ticket = grammar.Begin(action);
  }
  EState After(uint32_t event, int32_t parameter) const {
    switch (event) {
      case ZELK_EVENT_INCOMING_CALL:
        return EState::kOffered;
      case ZELK_EVENT_CONNECTED:
        return EState::kConnected;
      case ZELK_EVENT_DISCONNECTED:
        return state == EState::kDown ? state : EState::kIdle;
      case ZELK_EVENT_CHANNEL_STATE:
        return parameter == 0 ? EState::kDown : EState::kIdle;
      default:
        return state;
    }
  }

  EState state = EState::kDown;
  world::CCallGrammar grammar;
  int ticket = -1;
};

}  // namespace soak

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <map>
#include <string>
#include <utility>

#include "common/q931_decode.h"
#include "replay/library_trunk.h"
#include "replay/report.h"

namespace replay {

// Job: does what the application did, as far as a frame that the library sent tells: SETUP it dialled, CONNECT it
// answered, clearing with cause 16 it hung up, with cause 21 it rejected. What the library sends by itself has other
// causes, or is a step of a clearing that has begun. Thread: one. The trunk and the report must outlive it.
class CApplication {
 public:
  // `numberTypeIsGiven`: by the settings; else it is that of each number dialled.
  CApplication(CLibraryTrunk& libraryTrunk, CReport& eventReport, bool numberTypeIsGiven)
      : trunk(libraryTrunk), report(eventReport), isNumberTypeGiven(numberTypeIsGiven) {}

  // A message that has been sent or received.
  void Note(const tool::SQ931Message& message, bool isSent);
  // Does what leads to a message that the library has not sent yet. False when that is nothing.
  bool ActFor(const tool::SQ931Message& message);
  // Whether the message, which the library has not sent yet, clears the call of a channel that nothing clears so far.
  bool Clears(const tool::SQ931Message& message, std::int32_t channel) const;
  // The calls went with the card.
  void ForgetCalls() { calls.clear(); }

 private:
  struct SCall {
    int timeslot = -1;
    bool isUnderWay = false;  // it has got more than a SETUP
    bool isClearing = false;
  };
  // Whether the library chose the reference; the reference.
  using Key = std::pair<bool, int>;

  bool Dial(const tool::SQ931Message& message);
  bool Clear(const SCall& call, const tool::SQ931Message& message);

  CLibraryTrunk& trunk;
  CReport& report;
  const bool isNumberTypeGiven;
  std::map<Key, SCall> calls;
};

}  // namespace replay

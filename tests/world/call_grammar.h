// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <string>

namespace world {

enum class EAction { kDial, kAnswer, kHangup, kReject };

// Job: the events of one channel must be those of a call, one after the other, as far as the application can know: an
// export takes effect at some moment between its begin and its return, and what the library knew then shows only in
// what comes later. All that may be true is kept; where an event or a result leaves nothing, the grammar is broken.
//
//   free -- INCOMING_CALL --> offered -- Answer --> answered --- CONNECTED --> connected
//   free -- Dial ----------> dialled -- PROCEEDING, ALERTING, PROGRESS --> dialled -- CONNECTED --> connected
//   any call -- Hangup --> clearing;  any call -- DISCONNECTED --> free;  any -- CHANNEL_STATE 0 --> free
//   any unconnected call -- Reject --> given up: free, but for one DISCONNECTED of the network's release
//   A call that gives way to an offered one, or was given up, may bring its DISCONNECTED once the channel is free
//   again; one that was dialled also what a call brings before, its CONNECTED included: its SETUP may have waited for
//   layer 2, and the channel is told of it as of any other. Where the library plays the network an answer connects at
//   once, whatever there is to answer (empty: connected without a call), and CONNECTED may come once more.
//
// Thread: one at a time. After a report it goes on as if the event had been right.
class CCallGrammar {
 public:
  // The library plays the network.
  void SetNetworkSide(bool on) { isNetworkSide = on; }
  // The network loses calls without a word: it may offer one where it has lost one.
  void SetForgetful() { isForgetful = true; }
  // From now on the network sends messages that fit nothing: what they bring is not judged until the next free.
  void SetOdd() { isOdd = true; }

  // A ticket for the return. At most kMostAtOnce under way.
  int Begin(EAction action);
  std::string Return(int ticket, bool result);      // empty when it fits
  std::string Event(uint32_t code, int32_t param);  // the same
  bool IsFree() const;

 private:
  static constexpr int kMostAtOnce = 8;
  static constexpr uint8_t kMostStrays = 3;
  enum class EPhase : uint8_t { kFree, kGivenUp, kEmpty, kOffered, kAnswered, kDialled, kConnected, kClearing };
  struct SPossible {
    EPhase phase = EPhase::kFree;
    uint8_t stray = 0;                                   // DISCONNECTED of earlier calls that may come
    bool hasStrayDial = false;                           // one of those was dialled
    uint8_t done = 0;                                    // tickets that have taken effect
    uint8_t results = 0;                                 // and what they return
    auto operator<=>(const SPossible&) const = default;  // NOLINT(modernize-use-nullptr): the check misreads it
  };
  struct STicket {
    bool isUsed = false;
    EAction action = EAction::kDial;
  };

  void Close();
  static bool IsFree(EPhase phase) {
    return phase == EPhase::kFree || phase == EPhase::kGivenUp || phase == EPhase::kEmpty;
  }
  template <class Visit>
  void AnswerOutcomes(EPhase phase, Visit visit) const;
  template <class Visit>
  void Outcomes(EPhase phase, EAction action, Visit visit) const;
  void After(const SPossible& one, uint32_t code, int32_t param, std::set<SPossible>& left) const;
  void AfterDisconnected(SPossible one, std::set<SPossible>& left) const;
  static SPossible Moved(SPossible one, EPhase phase);
  static SPossible Down(SPossible one);
  std::string Describe() const;

  bool isNetworkSide = false;
  bool isForgetful = false;
  bool isOdd = false;
  std::array<STicket, kMostAtOnce> tickets{};
  std::set<SPossible> possible{SPossible{}};
};

}  // namespace world

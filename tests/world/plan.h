// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace world {

// What happens in one world, as plain data: it can be printed, and parts of it left out. All times in milliseconds of
// the world; those of faults, calls and steps count from the time at which every trunk was up first.

enum class EFault {
  kDropControl,   // the card closes the connection and announces itself
  kResetControl,  // the same by a reset
  kSilence,       // the card says nothing for so long, then announces itself
  kAnnounce,      // amount announcements, one every 10 ms
  kLineDown,      // layer 1 is lost for so long
  kFramesLost,    // D-channel frames are, for so long
  kLayer2Down,    // a DISC
  kSlowExchange,  // frames of the library wait for so long at the card
  kRestartSlot,   // RESTART of timeslot amount
  kRestartAll,    // RESTART of the interface
  kOddMessage,    // a Q.931 message that fits nothing; amount draws it
  kHdlcErrors,    // amount of them in one piece
  kAudioStops,    // no packet is sent for so long
  kAudioPause,    // packets wait for so long and come in a burst
  kAudioBad,      // loss, duplicates, disorder and jitter for so long; amount percent of each
  kTornControl,   // the control stream comes in pieces of amount bytes for so long
  kSequenceJump,  // packets are numbered anew, so that the numbers begin again at 0 after amount of them
};
constexpr int kFaultKinds = 17;

struct SFault {
  int64_t atMs = 0;
  EFault kind = EFault::kDropControl;
  int card = 0;
  int trunk = 0;
  int64_t lengthMs = 0;
  int amount = 0;
};

// The far end of a call, whoever placed it.
struct SFarEndPlan {
  int64_t alertAfterMs = 0;
  std::optional<int64_t> answerAfterMs = 0;  // of a call from the library
  std::optional<int> refuseCause;            // of a call from the library
  std::optional<int64_t> giveUpAfterMs;      // of a call to the library
  std::optional<int64_t> hangupAfterMs;      // after it was connected
  int hangupCause = 16;
  int clearing = 0;          // how it answers a DISCONNECT: as cardsim::EClearing
  bool sendsDigits = false;  // digits instead of sound
};

// A call that the exchange offers.
struct SOffer {
  int64_t atMs = 0;
  int card = 0;
  int trunk = 0;
  int timeslot = 1;
  SFarEndPlan farEnd;
};

enum class EStep { kDial, kAnswer, kReject, kHangup, kHangupTwice, kPlay, kStopPlay, kReadInfo, kReopen };
constexpr int kStepKinds = 9;

// What a thread of the application does out of itself.
struct SStep {
  int64_t atMs = 0;
  int thread = 0;
  EStep what = EStep::kDial;
  int channel = 0;
  SFarEndPlan farEnd;  // of a kDial
};

enum class EReaction { kNone, kAtOnce, kLater };

// How the application treats the calls of a channel.
struct SManner {
  EReaction answers = EReaction::kAtOnce;   // an offered call; at once: in the callback
  EReaction rejects = EReaction::kNone;     // one that it does not answer
  EReaction hangsUp = EReaction::kNone;     // a connected call
  EReaction dialsAgain = EReaction::kNone;  // once a call has ended
  bool plays = true;                        // into a connected call
  bool stopsInCallback = false;             // and stops at once
  int64_t laterMs = 500;
  int64_t callbackMs = 0;  // what a callback takes
};

// A callback that is under way when the library is shut down.
enum class EMoment { kAnyTime, kChannelState, kDisconnected, kIncoming, kPlayDone, kBlock };
constexpr int kMoments = 6;

// The application shuts the library down in the middle of calls, and starts it again.
struct SLifeEnd {
  int64_t afterMs = 0;  // of calls
  EMoment moment = EMoment::kAnyTime;
  int64_t callbackMs = 0;        // so long the callback takes from then on
  bool isUnderLock = false;      // and waits for a lock of the application, under which the library is shut down
  bool callsEverything = false;  // it has called every function for its channel
  // A play callback of the trunk dials meanwhile, and waits for the trunk. Not drawn: a call that it gets through is
  // nobody's for the checks.
  bool dialsInBlock = false;
  int64_t downMs = 0;
};

// What is put into a world on purpose, to see that it is found. Nothing that is drawn.
enum class EPlanted {
  kNothing,
  kFarSound,      // far ends play one byte that is not theirs
  kOwnSound,      // the application does
  kDigit,         // far ends leave out a digit
  kSwappedCalls,  // the watch takes each call for the next channel's
  kSlowCallback,  // callbacks take longer than the bounds know
  kDeadCard,      // the first card falls silent and stays so
  kHungThread,    // a thread of the application waits for nothing
  kSocket,        // a socket is left open
  kLateReplies,   // every reply counts as late
  kLeftCall,      // the exchange has a call after the end
  kEatenBlock,    // a byte of what was played after a stop is not the one that was heard
  kLostLine,      // a line of the log is not written
  kTwoOrders,     // the application takes two locks in two orders
  kEarlyDown,     // the library counts as down before it is shut down
};

struct SCardPlan {
  int trunks = 1;
  int framesPerPacket = 0;
};

struct SWorldPlan {
  uint64_t seed = 1;
  int policy = 0;  // as zelk::sim::EPolicy
  uint32_t switchPerMillion = 100'000;
  uint32_t stallPerMillion = 0;
  std::vector<SCardPlan> cards;
  bool isNetworkSide = false;  // the library plays the network
  int threads = 1;
  std::vector<SManner> manners;  // of channel i: the (i modulo their number)-th
  std::vector<SFault> faults;
  std::vector<SOffer> offers;
  std::vector<SStep> steps;
  int64_t lengthMs = 60'000;    // until all is left alone
  std::vector<SLifeEnd> lives;  // then, one after the other
  int stopTrials = 0;           // and at last
  bool watchesLog = false;
  EPlanted planted = EPlanted::kNothing;

  int Trunks() const;
  int64_t LastFaultMs() const;  // the end of the last one; 0 without any
  // Callbacks take so long that sound is torn and replies are late: that is described.
  bool HasSlowCallbacks() const;
  // One alone does not, but those of a card's channels one after the other: the pacer calls them all.
  bool MayTearSound() const;
  // Or they do so only when the library is shut down.
  bool HasLateReplies() const;
};

// The world of a seed: the same one for ever.
SWorldPlan DrawPlan(uint64_t seed);

// One line a part.
std::string ToText(const SWorldPlan& plan);

}  // namespace world

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cardsim/base/bytes.h"
#include "cardsim/exchange/call_plan.h"

namespace cardsim {

enum class EVerb {
  kExpect,      // a message of the library for this call
  kSend,        // a message of this call, past the exchange's own view of it
  kRaw,         // any Q.931 bytes on the trunk
  kAlert,       // of a call from the library
  kProgress,    //
  kAnswer,      //
  kHangup,      //
  kHear,        // a sound of the library
  kPlay,        // a sound to the library, to its end
  kDigits,      // the same: DTMF
  kTone,        // the same: a sum of tones
  kWait,        //
  kLine,        // of the trunk: cut or restored
  kAlarm,       // of the trunk: its layer 1 status
  kHdlcErrors,  // of the trunk: so many
  kLoss,        // of the card: percent of its audio packets
  kRestart,     // RESTART of the timeslot or the trunk, or the card anew
};

// One step of a far end. What a verb does not have stays empty.
struct SStep {
  EVerb verb = EVerb::kWait;
  std::string text;                    // as the file has it, for people
  std::string word;                    // message, file, digits, line state, what is restarted
  int number = 0;                      // cause, status, count
  double percent = 0;                  // kLoss
  std::chrono::milliseconds time{0};   // how long it may take, or takes
  Bytes bytes;                         // elements, message or sound
  std::optional<int> cause;            // expected of a message
  std::optional<int> timeslot;         // expected of a message
  std::map<int, std::string> numbers;  // expected of a message: digits of number elements by their identifiers
};

// One far end, and how often it acts.
struct SScenarioCall {
  std::string name;
  bool isFromLibrary = false;
  int card = 0;   // counted from 0; of a call from the library -1 for any
  int trunk = 0;  // the same
  int timeslot = SCallRequest::kAutoTimeslot;
  std::string calling;  // of a call from the library: empty for any
  std::string called;   // the same
  std::string redirecting;
  int repeat = 1;
  double perSecond = 0;                     // 0: one after another
  std::chrono::milliseconds within{60000};  // until the trunk is up, or the call has come
  std::vector<SStep> steps;
};

struct SScenario {
  std::string name;
  std::vector<SScenarioCall> calls;
};

// A scenario that cannot be used; the text names file, line and column.
class CScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace cardsim

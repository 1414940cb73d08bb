// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

struct q931_call;

namespace cardsim {

// One event of the controller in plain terms. `call` identifies a call until it is cleared.
struct SPriEvent {
  int code = 0;  // PRI_EVENT_*
  q931_call* call = nullptr;
  int timeslot = -1;  // -1: none named
  int cause = 0;
  std::string calling;
  std::string called;
  std::string digits;
};

// A call as libpri has it: its reference as the library sends it, flag included, and the call states of Q.931.
struct SHeldCall {
  int reference = 0;
  int state = 0;
  int peerState = 0;
};

}  // namespace cardsim

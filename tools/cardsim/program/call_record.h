// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "cardsim/exchange/call.h"

namespace cardsim {

// One call as the report tells it.
struct SCallRecord {
  std::uint64_t number = 0;  // in the order of ending, from 1
  int card = 0;
  int trunk = 0;
  int timeslot = -1;
  bool fromLibrary = false;
  std::string calling;
  std::string called;
  bool connected = false;
  double setupMs = -1;    // SETUP to connected
  double durationMs = 0;  // connected to the begin of clearing
  int cause = 0;
  EClearedBy clearedBy = EClearedBy::kNobody;
  std::size_t recordedBytes = 0;
  std::string file;
};

// What a call that has ended leaves; number and file are whoever's who keeps the records.
SCallRecord RecordOf(const CCall& call);
// The record in one line, for a person.
std::string LineOf(const SCallRecord& record);
std::string ClearedByName(EClearedBy by);

}  // namespace cardsim

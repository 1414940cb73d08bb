// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/program/call_record.h"

#include <gtest/gtest.h>

namespace cardsim::test {
namespace {

TEST(CallRecord, IsOneLineForAPerson) {
  SCallRecord record;
  record.number = 7;
  record.card = 1;
  record.timeslot = 31;
  record.fromLibrary = true;
  record.calling = "700";
  record.called = "5555";
  record.connected = true;
  record.cause = 16;
  record.clearedBy = EClearedBy::kLibrary;
  EXPECT_EQ(LineOf(record),
            "call 7: card 2 trunk 1 timeslot 31 from the library 700 -> 5555, connected, cause 16 by library");
  record.fromLibrary = false;
  record.connected = false;
  record.clearedBy = EClearedBy::kLost;
  EXPECT_EQ(LineOf(record),
            "call 7: card 2 trunk 1 timeslot 31 to the library 700 -> 5555, not connected, cause 16 by lost");
}

TEST(CallRecord, NamesWhoClearedACall) {
  EXPECT_EQ(ClearedByName(EClearedBy::kLibrary), "library");
  EXPECT_EQ(ClearedByName(EClearedBy::kNetwork), "network");
  EXPECT_EQ(ClearedByName(EClearedBy::kLost), "lost");
  EXPECT_EQ(ClearedByName(EClearedBy::kNobody), "nobody");
}

}  // namespace
}  // namespace cardsim::test

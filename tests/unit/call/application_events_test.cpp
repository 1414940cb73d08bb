// SPDX-License-Identifier: GPL-2.0-only
#include "call/application_events.h"

#include <gtest/gtest.h>

#include <string>

namespace zelk {
namespace {

std::string seen;

void ZELK_CALL NoteEvent(int32_t channel, uint32_t event, int32_t param) {
  seen += "event " + std::to_string(channel) + " " + std::to_string(event) + " " + std::to_string(param) + ";";
}
void ZELK_CALL NoteOther(int32_t, uint32_t, int32_t) {
  seen += "other;";
}
void ZELK_CALL NotePlay(uint32_t channel, uint8_t* data, uint32_t length) {
  data[0] = 7;
  seen += "play " + std::to_string(channel) + " " + std::to_string(length) + ";";
}
void ZELK_CALL NoteRecord(uint32_t channel, const uint8_t* data, uint32_t length) {
  seen += "record " + std::to_string(channel) + " " + std::to_string(data[0]) + " " + std::to_string(length) + ";";
}

class ApplicationCallbacks : public ::testing::Test {
 protected:
  void SetUp() override { seen.clear(); }

  CApplicationEvents events;
  uint8_t block[160] = {};
};

TEST_F(ApplicationCallbacks, MissingCallbacksAreSkipped) {
  events.Post(1, EVENT_DTMF, 2);
  EXPECT_EQ(events.PlayCallback(), nullptr);
  events.Record(1, block, sizeof(block));
  EXPECT_EQ(seen, "");
}

TEST_F(ApplicationCallbacks, EachGoesToItsOwn) {
  events.SetEventCallback(&NoteEvent);
  events.SetPlayCallback(&NotePlay);
  events.SetRecordCallback(&NoteRecord);
  events.Post(1023, EVENT_DISCONNECTED, 17);
  events.PlayCallback()(5, block, 160);
  events.Record(6, block, 160);
  EXPECT_EQ(seen, "event 1023 771 17;play 5 160;record 6 7 160;");
}

TEST_F(ApplicationCallbacks, ALaterOneReplacesAndNullRemoves) {
  events.SetEventCallback(&NoteEvent);
  events.SetEventCallback(&NoteOther);
  events.Post(1, EVENT_DTMF, 2);
  events.SetEventCallback(nullptr);
  events.Post(1, EVENT_DTMF, 2);
  EXPECT_EQ(seen, "other;");
}

TEST_F(ApplicationCallbacks, CodesAreThoseOfTheInterface) {
  EXPECT_EQ(EVENT_DTMF, 0x101U);
  EXPECT_EQ(EVENT_PLAY_DONE, 0x201U);
  EXPECT_EQ(EVENT_INCOMING_CALL, 0x301U);
  EXPECT_EQ(EVENT_CONNECTED, 0x302U);
  EXPECT_EQ(EVENT_DISCONNECTED, 0x303U);
  EXPECT_EQ(EVENT_ALERTING, 0x401U);
  EXPECT_EQ(EVENT_PROCEEDING, 0x402U);
  EXPECT_EQ(EVENT_PROGRESS, 0x403U);
  EXPECT_EQ(EVENT_CHANNEL_STATE, 0x501U);
}

TEST_F(ApplicationCallbacks, OneInstanceAProcess) {
  EXPECT_EQ(&ApplicationEvents(), &ApplicationEvents());
}

}  // namespace
}  // namespace zelk

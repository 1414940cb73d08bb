// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/d_channel_file.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "findings.h"
#include "support/temp_dir.h"
#include "trace/core/trace_error.h"

namespace doctor {
namespace {

using test::Said;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using tool::Bytes;
using trace::test::CauseElement;
using trace::test::ChannelElement;
using trace::test::Information;
using trace::test::Message;

class DoctorDChannel : public testing::Test {
 protected:
  // A line of the library's; minutes count from 2013-05-09 14:00.
  void Line(bool isSent, int minute, const Bytes& frame) {
    text += fmt::format("{} 2013-05-{:02} {:02}:{:02}:00 0000 ", isSent ? 'O' : 'I', 9 + minute / 1440,
                        14 + minute % 1440 / 60, minute % 60);
    for (const unsigned char byte : frame) {
      text += fmt::format("{:02X} ", byte);
    }
    text += "\r\n";
  }
  void Begin(int minute) {
    Line(true, minute, trace::test::Sabme(true));
    sent = heard = 0;
  }
  void Signal(bool isSent, int minute, const Bytes& message) {
    int& own = isSent ? sent : heard;
    Line(isSent, minute, Information(isSent, own++ % 128, isSent ? heard % 128 : sent % 128, message));
  }
  // A call of the library that the exchange clears; of its frames those that the library notes.
  void Refused(int minute, int reference, int cause) {
    Signal(true, minute, Message(reference, false, 0x05, ChannelElement(5)));
    heard += 3;  // that made no event
    Signal(false, minute, Message(reference, true, 0x5A, CauseElement(cause)));
  }
  SWireFacts Facts(bool lastDayAlone = false) {
    std::ofstream(path, std::ios::binary) << text;
    return ReadDChannelFile(path, lastDayAlone);
  }

  zelk::CTempDir folder;
  const std::string path = folder.Path() + "/zelk-100001-2.hdlc";
  std::string text;
  int sent = 0;
  int heard = 0;
};

TEST_F(DoctorDChannel, TellsTheSameAsACapture) {
  Begin(0);
  Refused(1, 1, 34);
  Refused(2, 2, 44);
  Refused(3, 3, 16);
  const Findings findings = DChannelRules(Facts());
  EXPECT_THAT(Said(findings),
              ElementsAre("warning no-channel: Trunk 100001-2: the exchange had no channel for 2 calls."));
  ASSERT_FALSE(findings.empty());
  EXPECT_EQ(findings[0].trunk, "100001-2");
  ASSERT_EQ(findings[0].evidence.size(), 2U);
  EXPECT_THAT(findings[0].evidence[0], testing::StartsWith(path + ", line 3 ("));
  EXPECT_THAT(findings[0].evidence[1], testing::StartsWith(path + ", line 5 ("));
}

TEST_F(DoctorDChannel, OfOnesLastDayAlone) {
  Begin(0);
  Refused(0, 1, 34);
  Refused(1, 2, 34);
  Refused(1440, 3, 16);
  EXPECT_EQ(Said(DChannelRules(Facts(false))).size(), 1U);
  EXPECT_THAT(Said(DChannelRules(Facts(true))),
              ElementsAre("warning no-channel: Trunk 100001-2: the exchange had no channel for 1 call."));
}

TEST_F(DoctorDChannel, ACallOfWhichNothingIsHeardIsHeld) {
  Begin(0);
  Signal(false, 0, Message(7, false, 0x05, ChannelElement(5)));
  Signal(true, 0, Message(7, true, 0x07));
  Refused(61, 1, 16);
  EXPECT_THAT(Said(DChannelRules(Facts())),
              ElementsAre("warning channel-held: Trunk 100001-2: call 1 holds timeslot 5, and for 3660 s no message of "
                          "it came."));
}

// The library was started again, and the file goes on.
TEST_F(DoctorDChannel, ACallOfTheRunBeforeIsNot) {
  Begin(0);
  Signal(false, 0, Message(7, false, 0x05, ChannelElement(5)));
  Signal(true, 0, Message(7, true, 0x07));
  Begin(60);
  Refused(61, 1, 16);
  EXPECT_THAT(Said(DChannelRules(Facts())), IsEmpty());
}

TEST_F(DoctorDChannel, WhatBreaksOffIsToldAndReadUntilThen) {
  Begin(0);
  Refused(1, 1, 34);
  text += "O 2013-05-09 14:0";
  const std::vector<std::string> said = Said(DChannelRules(Facts()));
  ASSERT_EQ(said.size(), 2U);
  EXPECT_EQ(said[0], "warning no-channel: Trunk 100001-2: the exchange had no channel for 1 call.");
  EXPECT_THAT(said[1], EndsWith("zelk-100001-2.hdlc: line 4 is none of a D-channel; this is what stands before it."));
  EXPECT_THAT(said[1], testing::StartsWith("not seen capture-cut: "));
}

TEST_F(DoctorDChannel, OneWithoutLinesAndOneOfOneLine) {
  EXPECT_THAT(Said(DChannelRules(Facts())), IsEmpty());
  text.assign(10'000'000, '0');
  EXPECT_THAT(Facts().fault, EndsWith("line 1 is none of a D-channel; this is what stands before it"));
  EXPECT_THROW(ReadDChannelFile(folder.Path() + "/zelk-1-1.hdlc", true), trace::CTraceError);
}

}  // namespace
}  // namespace doctor

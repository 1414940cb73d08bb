// SPDX-License-Identifier: GPL-2.0-only
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "findings.h"

namespace doctor {
namespace {

using test::Begun;
using test::FactsOf;
using test::Said;
using testing::ElementsAre;
using testing::IsEmpty;
using tool::Bytes;
using trace::kSecond;
using trace::test::CauseElement;
using trace::test::CConversation;
using trace::test::ChannelElement;
using trace::test::Message;

constexpr std::uint8_t kSetup = 0x05;
constexpr std::uint8_t kConnect = 0x07;
constexpr std::uint8_t kRestart = 0x46;
constexpr std::uint8_t kReleaseComplete = 0x5A;
constexpr std::uint8_t kStatus = 0x7D;

// The library dials, the exchange clears.
void Refused(CConversation& talk, int reference, int cause) {
  talk.Signal(true, 0, Message(reference, false, kSetup, ChannelElement(reference)));
  talk.Signal(false, 0, Message(reference, true, kReleaseComplete, CauseElement(cause)));
}

Findings CallFindings(const CConversation& talk) {
  return CallRules(FactsOf(talk.wire));
}

TEST(DoctorCalls, OrdinaryCallsHaveNothingToRemark) {
  CConversation talk = Begun();
  talk.Call(1, 1, "0301", 16);
  talk.Call(2, 2, "0302", 17);
  Refused(talk, 3, 1);  // a number that is none, once
  Refused(talk, 4, 31);
  talk.Signal(false, 0, Message(0, false, kRestart, ChannelElement(1)));
  EXPECT_THAT(Said(CallFindings(talk)), IsEmpty());
}

TEST(DoctorCalls, AWrongDialectIsToldWithItsDiagnostics) {
  CConversation talk = Begun();
  const Bytes cause{0x08, 0x04, 0x81, 0xE3, 0x7E, 0x40};  // 99, of elements 7E and 40
  talk.Signal(true, 0, Message(1, false, kSetup, ChannelElement(1)));
  talk.Signal(false, 0, Message(1, true, kStatus, cause));
  const Findings findings = CallFindings(talk);
  EXPECT_THAT(Said(findings), ElementsAre("warning wrong-dialect: Trunk 100001-1: the exchange does not understand 1 "
                                          "message of the library."));
  EXPECT_THAT(findings[0].evidence,
              ElementsAre("packet 18 (2023-11-14T22:13:20.017Z): cause 99 IE_NONEXIST, diagnostics 7E 40"));
  CConversation other = Begun();
  other.Signal(false, 0, Message(1, false, kSetup, ChannelElement(1)));
  other.Signal(true, 0, Message(1, true, kReleaseComplete, CauseElement(96)));
  EXPECT_THAT(Said(CallFindings(other)),
              ElementsAre("warning wrong-dialect: Trunk 100001-1: the library does not understand 1 "
                          "message of the exchange."));
}

TEST(DoctorCalls, MessagesThatCrossAreNoDialect) {
  CConversation talk = Begun();
  for (int i = 1; i <= 2; ++i) {
    talk.Signal(false, 0, Message(i, true, kStatus, CauseElement(101)));
  }
  EXPECT_THAT(Said(CallFindings(talk)), IsEmpty());
  talk.Signal(false, 0, Message(3, true, kStatus, CauseElement(101)));
  EXPECT_THAT(Said(CallFindings(talk)),
              ElementsAre("warning wrong-dialect: Trunk 100001-1: the exchange does not understand 3 "
                          "messages of the library."));
}

TEST(DoctorCalls, AWrongNumberTypeIsTold) {
  CConversation talk = Begun();
  for (int i = 1; i <= 3; ++i) {
    Refused(talk, i, 1);
  }
  Refused(talk, 4, 17);
  EXPECT_THAT(Said(CallFindings(talk)),
              ElementsAre("warning number-type: Trunk 100001-1: the exchange does not know the numbers "
                          "of 3 of 4 calls dialled."));
  CConversation other = Begun();
  Refused(other, 1, 28);
  EXPECT_THAT(Said(CallFindings(other)),
              ElementsAre("warning number-type: Trunk 100001-1: the exchange does not know the numbers "
                          "of 1 of 1 call dialled."));
}

TEST(DoctorCalls, MissingChannelsAreTold) {
  CConversation talk = Begun();
  Refused(talk, 1, 34);
  Refused(talk, 2, 44);
  talk.Signal(false, 0, Message(1, false, kSetup, ChannelElement(1)));
  talk.Signal(true, 0, Message(1, true, kReleaseComplete, CauseElement(34)));
  EXPECT_THAT(Said(CallFindings(talk)),
              ElementsAre("warning no-channel: Trunk 100001-1: the exchange had no channel for 2 calls.",
                          "warning no-channel: Trunk 100001-1: the library had no channel for 1 call."));
}

TEST(DoctorCalls, GlareIsTold) {
  CConversation talk = Begun();
  talk.Signal(true, 0, Message(1, false, kSetup, ChannelElement(5)));
  talk.Signal(false, 0, Message(9, false, kSetup, ChannelElement(6)));
  EXPECT_THAT(Said(CallFindings(talk)), IsEmpty());
  talk.Signal(false, 0, Message(10, false, kSetup, ChannelElement(5)));
  EXPECT_THAT(Said(CallFindings(talk)),
              ElementsAre("warning glare: Trunk 100001-1: both sides took the same channel at the same "
                          "time in 1 case."));
}

TEST(DoctorCalls, AnExpiredTimerIsTold) {
  CConversation talk = Begun();
  Refused(talk, 1, 102);
  EXPECT_THAT(Said(CallFindings(talk)),
              ElementsAre("warning timer-expired: Trunk 100001-1: a side waited in vain for the "
                          "other's message in 1 call."));
}

TEST(DoctorCalls, RestartsThatDoNotEndAreTold) {
  CConversation talk = Begun();
  for (int i = 0; i < 4; ++i) {
    talk.Signal(false, 0, Message(0, false, kRestart, ChannelElement(3)));
    talk.Wait(10 * kSecond);
  }
  EXPECT_THAT(Said(CallFindings(talk)),
              ElementsAre("warning restart-storm: Trunk 100001-1: timeslot 3 was restarted 4 times in a minute."));
  CConversation slow = Begun();
  for (int i = 0; i < 4; ++i) {
    slow.Signal(false, 0, Message(0, false, kRestart, ChannelElement(3)));
    slow.Wait(31 * kSecond);
  }
  EXPECT_THAT(Said(CallFindings(slow)), IsEmpty());
}

TEST(DoctorCalls, AChannelThatIsHeldIsTold) {
  CConversation talk = Begun();
  talk.Signal(false, 0, Message(1, false, kSetup, ChannelElement(5)));
  talk.Wait(170 * kSecond);
  talk.Send(false, tool::BuildTrunkStatus(Bytes{0}));
  EXPECT_THAT(Said(CallFindings(talk)), IsEmpty());
  talk.Wait(30 * kSecond);
  talk.Send(false, tool::BuildTrunkStatus(Bytes{0}));
  EXPECT_THAT(Said(CallFindings(talk)),
              ElementsAre("warning channel-held: Trunk 100001-1: call 1 holds timeslot 5, and for 200 s "
                          "no message of it came."));
  talk.Signal(true, 0, Message(1, true, kConnect));
  talk.Wait(3599 * kSecond);
  talk.Send(false, tool::BuildTrunkStatus(Bytes{0}));
  EXPECT_THAT(Said(CallFindings(talk)), IsEmpty());
  talk.Wait(2 * kSecond);
  talk.Send(false, tool::BuildTrunkStatus(Bytes{0}));
  EXPECT_THAT(Said(CallFindings(talk)),
              ElementsAre("warning channel-held: Trunk 100001-1: call 1 holds timeslot 5, and for 3601 "
                          "s no message of it came."));
}

}  // namespace
}  // namespace doctor

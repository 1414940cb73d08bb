// SPDX-License-Identifier: GPL-2.0-only
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "findings.h"

namespace doctor {
namespace {

using test::Begun;
using test::FactsOf;
using test::Measured;
using test::Said;
using testing::ElementsAre;
using testing::IsEmpty;
using tool::Bytes;
using trace::kSecond;
using trace::test::CConversation;
using trace::test::FromLibrary;
using trace::test::Sabme;
using trace::test::ToLibrary;
using trace::test::Ua;

void Status(CConversation& talk, std::uint8_t status) {
  talk.Send(false, tool::BuildTrunkStatus(Bytes{status}));
}

Findings LineFindings(const CConversation& talk) {
  return LineRules(FactsOf(talk.wire));
}

TEST(DoctorLine, ASoundTrunkHasNothingToRemark) {
  CConversation talk = Begun(2);
  talk.Call(1, 1, "0301", 16);
  talk.Close();
  EXPECT_THAT(LineFindings(talk), IsEmpty());
}

TEST(DoctorLine, Layer1IsOutOrWasOut) {
  CConversation talk = Begun();
  Status(talk, 1);
  const Findings out = LineFindings(talk);
  EXPECT_THAT(Said(out), ElementsAre("fault layer1-out: Trunk 100001-1: layer 1 is out of service (status 1)."));
  EXPECT_THAT(out[0].evidence, ElementsAre("packet 16 (2023-11-14T22:13:20.015Z): the card tells it"));
  Status(talk, 0);
  EXPECT_THAT(Said(LineFindings(talk)),
              ElementsAre("warning layer1-flapping: Trunk 100001-1: layer 1 went out of service once, "
                          "and is in service now."));
}

TEST(DoctorLine, HdlcErrorsAreWeighed) {
  CConversation talk = Begun();
  talk.Send(false, tool::BuildHdlcError(0, 2));
  EXPECT_THAT(Said(LineFindings(talk)), IsEmpty());
  EXPECT_THAT(Measured(LineFindings(talk)),
              ElementsAre("hdlc-few: Trunk 100001-1: 1 HDLC error in 0 s beside 1 good frame (CRC "
                          "1), which layer 2 repairs."));
  talk.Wait(7 * kSecond);
  talk.Send(false, tool::BuildHdlcError(0, 3));
  talk.Wait(2 * kSecond);
  talk.Send(false, tool::BuildHdlcError(0, 2));
  EXPECT_THAT(Said(LineFindings(talk)),
              ElementsAre("warning hdlc-errors: Trunk 100001-1: the line has errors: 3 HDLC errors in 9 "
                          "s beside 1 good frame (CRC 2, abort 1)."));
  for (int i = 0; i < 7; ++i) {
    talk.Wait(i * kSecond);
    talk.Send(false, tool::BuildHdlcError(0, 2));
  }
  EXPECT_THAT(Said(LineFindings(talk)),
              ElementsAre("fault hdlc-line-bad: Trunk 100001-1: the line cannot be read: 10 HDLC errors "
                          "in 30 s beside 1 good frame (CRC 9, abort 1)."));
}

TEST(DoctorLine, ErrorsOfALineOutOfServiceAreNone) {
  CConversation talk = Begun();
  Status(talk, 1);
  for (int i = 0; i < 12; ++i) {
    talk.Send(false, tool::BuildHdlcError(0, 2));
  }
  Status(talk, 0);
  EXPECT_THAT(Said(LineFindings(talk)), testing::Not(testing::Contains(testing::HasSubstr("hdlc"))));
}

TEST(DoctorLine, RegularErrorsAreSlips) {
  CConversation talk = Begun();
  for (int i = 0; i < 7; ++i) {
    talk.Wait(5 * kSecond);
    talk.Send(false, tool::BuildHdlcError(0, 2));
  }
  EXPECT_THAT(Said(LineFindings(talk)),
              ElementsAre("warning hdlc-slips: Trunk 100001-1: an HDLC error comes every 5.0 s, as it "
                          "does where two clocks are 25.0 ppm apart: 7 HDLC errors in 35 s beside 1 "
                          "good frame (CRC 7)."));
  CConversation irregular = Begun();
  for (int i = 0; i < 7; ++i) {
    irregular.Wait((i % 2 == 0 ? 9 : 1) * kSecond);
    irregular.Send(false, tool::BuildHdlcError(0, 2));
  }
  EXPECT_THAT(Said(LineFindings(irregular)),
              ElementsAre("warning hdlc-errors: Trunk 100001-1: the line has errors: 7 HDLC errors "
                          "in 39 s beside 1 good frame (CRC 7)."));
}

TEST(DoctorLine, ACardThatLosesFramesIsTold) {
  CConversation talk = Begun();
  for (const std::uint8_t code : Bytes{4, 8, 8, 9}) {
    talk.Send(false, tool::BuildHdlcError(0, code));
  }
  EXPECT_THAT(Said(LineFindings(talk)),
              ElementsAre("warning hdlc-card: Trunk 100001-1: the card loses frames: 4 HDLC errors in 0 "
                          "s beside 1 good frame (overrun 1, buffer overflow 2, code 9 1)."));
}

// The library asks three times; what the exchange says comes after each.
CConversation Asking(const Bytes& fromLine) {
  CConversation talk;
  talk.Open();
  talk.Send(true, {0xFF, 0x01});
  talk.Send(false, tool::BuildInformation({.trunks = 1, .serial = trace::test::kSerial}));
  for (int i = 0; i < 3; ++i) {
    talk.Send(true, FromLibrary(0, Sabme(true)));
    talk.Wait(kSecond);
    if (!fromLine.empty()) {
      talk.Send(false, ToLibrary(0, fromLine));
    }
  }
  return talk;
}

TEST(DoctorLine, ASabmeWithoutAnswerIsTold) {
  EXPECT_THAT(Said(LineFindings(Asking({}))),
              ElementsAre("fault layer2-no-answer: Trunk 100001-1: the exchange does not answer the library's SABME; "
                          "nothing at all comes from the line."));
  EXPECT_THAT(Said(LineFindings(Asking(Sabme(false)))),
              ElementsAre("fault layer2-no-answer: Trunk 100001-1: the exchange does not answer the library's SABME; 3 "
                          "other frames came."));
}

TEST(DoctorLine, TwoSidesOfTheSameKindAreTold) {
  const Findings user = LineFindings(Asking(Sabme(true)));  // its commands are those of a user side
  EXPECT_THAT(Said(user), ElementsAre("fault layer2-same-side: Trunk 100001-1: both ends play the user side of the "
                                      "D-channel, so layer 2 does not come up."));
  EXPECT_THAT(user[0].evidence, ElementsAre("packet 8 (2023-11-14T22:13:20.007Z): SABME of the library",
                                            "packet 10 (2023-11-14T22:13:21.009Z): SABME of the exchange"));
}

TEST(DoctorLine, ALinkThatGoesDownIsTold) {
  CConversation talk = Begun();
  const Bytes disconnect{0x02, 0x01, 0x53};  // DISC of the network side
  talk.Send(false, ToLibrary(0, disconnect));
  EXPECT_THAT(Said(LineFindings(talk)),
              ElementsAre("fault layer2-down: Trunk 100001-1: layer 2 went down and did not come up again."));
  for (int i = 0; i < 2; ++i) {
    talk.Send(true, FromLibrary(0, Sabme(true)));
    talk.Send(false, ToLibrary(0, Ua(false)));
    EXPECT_THAT(Said(LineFindings(talk)), IsEmpty());
    talk.Send(false, ToLibrary(0, disconnect));
  }
  EXPECT_THAT(Said(LineFindings(talk)),
              ElementsAre("warning layer2-flapping: Trunk 100001-1: layer 2 went down 3 times."));
}

TEST(DoctorLine, ALinkThatWentWithItsConnectionIsNoFault) {
  CConversation talk = Begun();
  talk.Send(true, FromLibrary(0, Bytes{0x00, 0x01, 0x53}));
  talk.Close();
  EXPECT_THAT(Said(LineFindings(talk)), IsEmpty());
}

}  // namespace
}  // namespace doctor

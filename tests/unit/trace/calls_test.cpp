// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/calls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "conversation.h"

namespace trace {
namespace {

using test::CauseElement;
using test::ChannelElement;
using test::Information;
using test::Join;
using test::kConnect;
using test::kDisconnect;
using test::kSetup;
using test::Message;
using test::NumberElement;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::uint8_t kRelease = 0x4D;
constexpr std::uint8_t kReleaseComplete = 0x5A;
constexpr std::uint8_t kRestartAcknowledge = 0x4E;

class Calls : public testing::Test {
 protected:
  void Frame(bool fromLibrary, const Bytes& frame, bool isAfterGap = false, bool isFcsGood = true) {
    SControl control;
    control.kind = EControl::kFrame;
    control.direction = fromLibrary ? EDirection::kFromLibrary : EDirection::kToLibrary;
    control.time = ++now;
    control.trunk = 0;
    control.body = frame;
    control.isAfterGap = isAfterGap;
    control.isFcsGood = isFcsGood;
    calls.OnControl(connection, control);
  }
  void Signal(bool fromLibrary, const Bytes& message) {
    int& own = sent[fromLibrary ? 1 : 0];
    Frame(fromLibrary, Information(fromLibrary, own++, sent[fromLibrary ? 0 : 1], message));
  }
  const std::vector<SCall>& Ended() const { return heard.calls; }

  test::CHeard heard;
  SConnection connection;
  CCalls calls{heard};
  Time now = 0;
  int sent[2] = {};
};

TEST_F(Calls, ReferencesOfBothSidesAreTwoCalls) {
  Signal(true, Message(1, false, kSetup, ChannelElement(1)));
  Signal(false, Message(1, false, kSetup, ChannelElement(2)));
  Signal(false, Message(1, true, kReleaseComplete, CauseElement(34)));
  Signal(true, Message(1, true, kReleaseComplete, CauseElement(21)));
  ASSERT_THAT(Ended(), SizeIs(2));
  EXPECT_TRUE(Ended()[0].fromLibrary);
  EXPECT_EQ(Ended()[0].cause, 34);
  EXPECT_EQ(Ended()[0].clearedBy, EDirection::kToLibrary);
  EXPECT_FALSE(Ended()[1].fromLibrary);
  EXPECT_EQ(Ended()[1].cause, 21);
}

TEST_F(Calls, TheCauseIsTheFirstOne) {
  Signal(false, Message(1, false, kSetup, ChannelElement(1)));
  Signal(true, Message(1, true, kDisconnect, CauseElement(17)));
  Signal(false, Message(1, false, kRelease, CauseElement(16)));
  Signal(true, Message(1, true, kReleaseComplete, CauseElement(16)));
  ASSERT_THAT(Ended(), SizeIs(1));
  EXPECT_EQ(Ended()[0].cause, 17);
  EXPECT_EQ(Ended()[0].clearedBy, EDirection::kFromLibrary);
}

TEST_F(Calls, ReleasesThatCrossEndTheCall) {
  Signal(false, Message(1, false, kSetup, ChannelElement(1)));
  Signal(true, Message(1, true, kRelease, CauseElement(16)));
  EXPECT_THAT(Ended(), IsEmpty());
  Signal(false, Message(1, false, kRelease, CauseElement(16)));
  EXPECT_THAT(Ended(), SizeIs(1));
}

TEST_F(Calls, ARepeatedFrameIsNoSecondMessage) {
  const Bytes setup = Information(false, 0, 0, Message(1, false, kSetup, ChannelElement(1)));
  Frame(false, setup);
  Frame(false, setup);
  Signal(true, Message(1, true, kReleaseComplete, CauseElement(21)));
  Frame(false, setup);
  calls.Finish();
  EXPECT_THAT(Ended(), SizeIs(1));
  EXPECT_EQ(calls.LinkCounts().repeated, 2U);
}

TEST_F(Calls, AFrameOutOfSequenceComesAgain) {
  Signal(false, Message(1, false, kSetup, ChannelElement(1)));
  const Bytes second = Information(false, 1, 0, Message(2, false, kSetup, ChannelElement(2)));
  const Bytes third = Information(false, 2, 0, Message(3, false, kSetup, ChannelElement(3)));
  Frame(false, second, false, false);  // broken on the line
  Frame(false, third);
  Frame(false, second);
  Frame(false, third);
  calls.Finish();
  EXPECT_EQ(test::Short(Ended()), (std::vector<std::string>{" 1 -1", " 2 -1", " 3 -1"}));
  EXPECT_EQ(calls.LinkCounts().outOfSequence, 1U);
  EXPECT_EQ(calls.LinkCounts().broken, 1U);
}

TEST_F(Calls, AGapIsMarkedOnTheCallsUnderWay) {
  Signal(false, Message(1, false, kSetup, ChannelElement(1)));
  Frame(true, Information(true, 5, 1, Message(1, true, kConnect)), true);
  calls.Finish();
  ASSERT_THAT(Ended(), SizeIs(1));
  EXPECT_TRUE(Ended()[0].isPassedGap);
  EXPECT_NE(Ended()[0].connected, 0);
  EXPECT_EQ(Ended()[0].how, ECallEnd::kOpen);
}

TEST_F(Calls, WithoutItsSetupIsBegunBefore) {
  Signal(true, Message(9, true, kConnect, ChannelElement(3)));
  Signal(false, Message(9, false, kDisconnect, CauseElement(16)));
  calls.Finish();
  ASSERT_THAT(Ended(), SizeIs(1));
  EXPECT_TRUE(Ended()[0].isBegunBefore);
  EXPECT_FALSE(Ended()[0].fromLibrary);
  EXPECT_EQ(Ended()[0].timeslot, 3);
}

TEST_F(Calls, AReferenceUsedAnewEndsTheOldCall) {
  Signal(false, Message(1, false, kSetup, ChannelElement(1)));
  Signal(false, Message(1, false, kSetup, ChannelElement(1)));  // repeated by a timer
  Signal(true, Message(1, true, kConnect));
  Signal(false, Message(1, false, kSetup, ChannelElement(5)));
  ASSERT_THAT(Ended(), SizeIs(1));
  EXPECT_EQ(Ended()[0].how, ECallEnd::kReplaced);
  EXPECT_EQ(Ended()[0].timeslot, 1);
}

TEST_F(Calls, ARestartEndsThoseOfItsChannel) {
  Signal(false, Message(1, false, kSetup, ChannelElement(1)));
  Signal(false, Message(2, false, kSetup, ChannelElement(2)));
  Signal(true, Message(0, true, kRestartAcknowledge, Join({ChannelElement(2), {0x79, 1, 0x80}})));
  ASSERT_THAT(Ended(), SizeIs(1));
  EXPECT_EQ(Ended()[0].timeslot, 2);
  EXPECT_EQ(Ended()[0].how, ECallEnd::kRestarted);
  Signal(true, Message(0, true, kRestartAcknowledge, {0x79, 1, 0x87}));
  EXPECT_THAT(Ended(), SizeIs(2));
}

TEST_F(Calls, OverlapSendingAddsDigits) {
  Signal(true, Message(1, false, kSetup, Join({ChannelElement(1), NumberElement(0x70, "03")})));
  Signal(true, Message(1, false, 0x7B, NumberElement(0x70, "05")));
  calls.Finish();
  ASSERT_THAT(Ended(), SizeIs(1));
  EXPECT_EQ(Ended()[0].called, "0305");
}

TEST_F(Calls, LearnsWhichSideIsTheNetwork) {
  CDataLink user;
  SControl control;
  control.direction = EDirection::kFromLibrary;
  EXPECT_FALSE(user.IsLibraryNetwork());
  user.OnFrame(control, tool::DecodeFrame(test::Sabme(true)));
  EXPECT_EQ(user.IsLibraryNetwork(), false);
  CDataLink network;
  network.OnFrame(control, tool::DecodeFrame(Bytes{0x02, 0x01, 0x7F}));
  EXPECT_EQ(network.IsLibraryNetwork(), true);
  CDataLink answered;
  answered.OnFrame(control, tool::DecodeFrame(test::Ua(true)));
  EXPECT_EQ(answered.IsLibraryNetwork(), false);
}

}  // namespace
}  // namespace trace

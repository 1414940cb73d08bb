// SPDX-License-Identifier: GPL-2.0-only

// Calls that the network offers.
#include "call/call_events.h"
#include "call/disconnect_cause.h"
#include "call_fixture.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;

using CallRing = CTrunkFixture;

TEST_F(CallRing, IsOfferedAndAnsweredWithProceedingAndAlerting) {
  Offer(5);
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_INCOMING_CALL, 0}}));
  EXPECT_EQ(Info(4, "CLI"), "030123456");
  EXPECT_EQ(Info(4, "DLI"), "4711");
  EXPECT_EQ(Info(4, "RLI"), "");
  EXPECT_EQ(Info(4, "CALLTYPE"), "Voice");
  EXPECT_EQ(Info(4, "CHANNELSTATE"), "INUSE");
  EXPECT_EQ(Info(4, "DIRECTION"), "OUTGOING");
  EXPECT_NE(trunk.PeerEvent(kPriProceeding).call, nullptr);
  EXPECT_NE(trunk.PeerEvent(kPriRinging).call, nullptr);
}

TEST_F(CallRing, TimeslotAboveTheSignallingOneMapsOneLower) {
  Offer(17);
  EXPECT_EQ(application.Take(), (Posted{{15, EVENT_INCOMING_CALL, 0}}));
}

TEST_F(CallRing, IsOfferedOnAClosedChannelToo) {
  ASSERT_FALSE(Channel(0).IsOpen());
  Offer(1);
  EXPECT_EQ(application.Take(), (Posted{{0, EVENT_INCOMING_CALL, 0}}));
}

TEST_F(CallRing, OnAChannelThatAllowsNoneIsClearedWithCause44) {
  SetInfo(Channel(4), "ALLOWINCOMING", "0");
  Offer(5);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(View(4).callHandle, nullptr);
  EXPECT_EQ(Info(4, "CLI"), "");
  EXPECT_EQ(trunk.PeerEvent(kPriHangup).cause, kCauseChannelUnavailable);
}

TEST_F(CallRing, OnFramingOrSignallingTimeslotGetsNoReply) {
  for (const uint16_t timeslot : {uint16_t{0}, uint16_t{16}}) {
    trunk.us.channelSeen = timeslot;
    trunk.them.events.clear();
    Offer(5);
    EXPECT_EQ(application.Take(), Posted{});
    EXPECT_TRUE(trunk.them.events.empty());
  }
}

TEST_F(CallRing, RedirectedCallKeepsTheReasonWhenTheNumberIsValid) {
  // The peer sends no redirecting number by itself: one is put after the last element of its SETUP.
  AddToMessage(0x05, {0x74, 6, 0x21, 0x01, 0x81, '5', '5', '5'});
  Offer(3);
  EXPECT_EQ(application.Take(), (Posted{{2, EVENT_INCOMING_CALL, 0}}));
  EXPECT_EQ(Info(2, "RLI"), "555");
  EXPECT_EQ(Info(2, "CALLTYPE"), "Voice RedirectBusy");
}

TEST_F(CallRing, ReasonWithoutAValidRedirectingNumberStaysVoice) {
  PriCall call = trunk.peer->NewCall();
  trunk.peer->Setup(call, 3, "1", "2", 33);
  trunk.Run();
  SPriEvent ring;
  ring.call = View(2).callHandle;
  ring.redirectingReason = 1;
  Raise(3, kPriRing, ring);
  EXPECT_EQ(Info(2, "CALLTYPE"), "Voice");
}

TEST_F(CallRing, CallbackMayCallForItsOwnChannel) {
  application.reaction = [this](const SPosted& posted) {
    if (posted.event == EVENT_INCOMING_CALL) {
      Info(posted.channel, "CLI");
      Answer(Channel(posted.channel));
    }
  };
  Offer(5);
  EXPECT_NE(trunk.PeerEvent(kPriAnswer).call, nullptr);
}

// ---- the network names no channel ----

using RingWithoutChannel = CTrunkFixture;

TEST_F(RingWithoutChannel, TakesTheFirstFreeOpenOneThatAllowsIncoming) {
  Channel(0).Open();
  Channel(1).Open();
  Channel(2).Open();
  SetInfo(Channel(0), "ALLOWINCOMING", "0");
  Raise(2, kPriRing, OfCall(kNobodysCall));  // any call makes it busy
  application.Take();
  trunk.us.channelSeen = kNoBchannel;
  Offer(31);
  EXPECT_EQ(application.Take(), (Posted{{2, EVENT_INCOMING_CALL, 0}}));
}

TEST_F(RingWithoutChannel, CountsTheSignallingTimeslot) {
  Channel(15).Open();
  trunk.us.channelSeen = kNoBchannel;
  Offer(1);
  EXPECT_EQ(application.Take(), (Posted{{15, EVENT_INCOMING_CALL, 0}}));
}

TEST_F(RingWithoutChannel, OnTimeslot15IsTheLastBelowTheSignallingOne) {
  Channel(14).Open();
  trunk.us.channelSeen = kNoBchannel;
  Offer(1);
  EXPECT_EQ(application.Take(), (Posted{{14, EVENT_INCOMING_CALL, 0}}));
}

TEST_F(RingWithoutChannel, AndNoFreeOneIsClearedWithCause44AndALine) {
  CLogCapture log(2);
  trunk.us.channelSeen = kNoBchannel;
  Offer(1);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(trunk.PeerEvent(kPriHangup).cause, kCauseChannelUnavailable);
  EXPECT_EQ(log.Lines(),
            std::vector<std::string>{"  G :Card 0: Trunk 0 - New Call aborted due to BCHANNEL unavailable"});
}

TEST_F(RingWithoutChannel, OnTheSecondTrunkLandsOneTrunkFurtherOn) {
  CMemoryTrunk second(firstCard, firstHandlers, 1);
  second.Run();
  application.Take();
  Channel(30).Open();
  second.us.channelSeen = kNoBchannel;
  second.peer->Setup(second.peer->NewCall(), 1, "1", "2", 33);
  second.Run();
  // Flat index 30 gives B-channel number 32, and that is looked up from the second trunk on.
  EXPECT_EQ(application.Take(), (Posted{{60, EVENT_INCOMING_CALL, 0}}));
  EXPECT_EQ(View(30).callHandle, nullptr);
}

// Something has been sent already: the refusal is a DISCONNECT then (ITU-T Q.931, 5.3.2), not a RELEASE COMPLETE.
TEST_F(RingWithoutChannel, RefusedAfterSetupAcknowledgeIsClearedByDisconnect) {
  CMemoryTrunk second(firstCard, firstHandlers, 1);
  second.Run();
  application.Take();
  Channel(30).Open();
  SetInfo(Channel(60), "ALLOWINCOMING", "0");  // where the number that is formed for channel 30 leads
  second.us.channelSeen = kNoBchannel;
  second.peer->Setup(second.peer->NewCall(), 1, "1", "2", 33);
  second.Run();
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(second.PeerEvent(kPriHangup).call, nullptr);
  EXPECT_EQ(second.PeerEvent(kPriHangupRequest).cause, kCauseChannelUnavailable);
}

TEST_F(RingWithoutChannel, NeverReachesAnotherCard) {
  // On the second card (channels 120-149) the number formed from the flat index is far outside of it.
  CMemoryTrunk second(secondCard, secondHandlers, 0);
  second.Run();
  application.Take();
  Channel(120).Open();
  second.us.channelSeen = kNoBchannel;
  second.peer->Setup(second.peer->NewCall(), 1, "1", "2", 33);
  second.Run();
  EXPECT_EQ(application.Take(), Posted{});
  for (int32_t channel = 0; channel < table.Count(); ++channel) {
    EXPECT_EQ(View(channel).callHandle, nullptr) << channel;
  }
}

}  // namespace
}  // namespace zelk::test

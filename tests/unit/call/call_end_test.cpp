// SPDX-License-Identifier: GPL-2.0-only

// Calls that the network ends, and calls whose end nobody waits for any more.
#include "call/call_events.h"
#include "call/disconnect_cause.h"
#include "call_fixture.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;

using CallEnd = CTrunkFixture;

// Nothing in the library makes a channel incoming.
class CallEndOfIncoming : public CTrunkFixture {
 protected:
  CallEndOfIncoming() : CTrunkFixture(1) {}
};

TEST_F(CallEndOfIncoming, HangupOfTheNetworkResetsTheChannelAndBringsItsCause) {
  PriCall call = Offer(5);
  application.Take();
  firstCard.Trunk(0).echoEnabled = true;
  Raise(5, kPriConnectAck, OfCall(View(4).callHandle));
  ASSERT_TRUE(firstCard.Audio().EchoSwitch(0));
  application.Take();
  Channel(4).EndQueue().Push(7);
  ASSERT_EQ(View(4).direction, 1);
  trunk.peer->Hangup(call, 17);
  trunk.Run();
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_DISCONNECTED, 17}}));
  for (const char* key : {"CLI", "DLI", "RLI", "CALLTYPE"}) {
    EXPECT_EQ(Info(4, key), "") << key;
  }
  uint32_t value = 0;
  EXPECT_FALSE(Channel(4).EndQueue().Pop(value));
  EXPECT_EQ(View(4).callHandle, nullptr);
  EXPECT_FALSE(View(4).connected);
  EXPECT_FALSE(firstCard.Audio().EchoSwitch(0));
  EXPECT_EQ(Info(4, "CHANNELSTATE"), "READY");
  EXPECT_EQ(View(4).direction, 0);
  EXPECT_EQ(Channel(4).LastCause(), 17);
  // The release that answers the network's clearing.
  EXPECT_EQ(trunk.PeerEvent(kPriHangup).cause, kCauseNormalClearing);
}

TEST_F(CallEnd, HangupRequestClearsTheChannelsOwnCall) {
  Connect(6);
  SPriEvent event;
  event.call = View(6).callHandle;
  event.cause = 31;
  Raise(7, kPriHangupRequest, event);
  trunk.Run();
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_DISCONNECTED, 31}}));
  EXPECT_NE(trunk.PeerEvent(kPriHangupRequest).call, nullptr);
}

TEST_F(CallEnd, HangupOnAChannelWithoutCallStillBringsDisconnected) {
  SPriEvent event;
  event.cause = 18;
  Raise(9, kPriHangup, event);
  Raise(9, kPriHangupRequest, event);
  EXPECT_EQ(application.Take(), (Posted{{8, EVENT_DISCONNECTED, 18}, {8, EVENT_DISCONNECTED, 18}}));
}

TEST_F(CallEnd, HangupReleasesTheEventsCallAndHangupRequestOnlyTheChannelsOwn) {
  SPriEvent event;
  event.call = OwnCall();
  Raise(9, kPriHangupRequest, event);  // the channel has none
  EXPECT_TRUE(IsValid(event.call));
  Raise(9, kPriHangup, event);
  EXPECT_FALSE(IsValid(event.call));
}

TEST_F(CallEnd, HangupOfAnotherCallLeavesTheChannelsCallAlone) {
  Connect(6);
  PriCall current = View(6).callHandle;
  PriCall other = OwnCall();
  SPriEvent event;
  event.call = other;
  event.cause = 16;
  for (const EPriEventCode code : {kPriHangup, kPriHangupRequest}) {
    Raise(7, code, event);
    EXPECT_EQ(application.Take(), Posted{});
    EXPECT_EQ(View(6).callHandle, current);
    EXPECT_TRUE(View(6).connected);
  }
  EXPECT_FALSE(IsValid(other));
}

TEST_F(CallEnd, CallLostWithItsTrunkEndsSilentlyAndLeavesANewerCallAlone) {
  Connect(6);
  SPriEvent late;
  late.call = View(6).callHandle;
  late.cause = 27;
  firstHandlers.OnDchannelDown(0, caller);
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  ASSERT_TRUE(Dial(Channel(6), "222", nullptr));
  PriCall newer = View(6).callHandle;
  ASSERT_NE(newer, late.call);

  Raise(7, kPriAnswer, late);
  Raise(7, kPriConnectAck, late);
  Raise(7, kPriRinging, late);
  Raise(7, kPriProgress, late);
  Raise(7, kPriHangup, late);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(View(6).callHandle, newer);
  EXPECT_FALSE(View(6).connected);
  EXPECT_EQ(Info(6, "DLI"), "222");
}

TEST_F(CallEnd, CallLostWithItsTrunkEndsSilentlyOnAnIdleChannel) {
  Connect(6);
  SPriEvent late;
  late.call = View(6).callHandle;
  firstHandlers.OnDchannelDown(0, caller);
  application.Take();
  Raise(7, kPriHangup, late);
  EXPECT_EQ(application.Take(), Posted{});
  {
    const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
    firstCard.Trunk(0).controller->DestroyCall(late.call);
  }
  // Only that once: what libpri may say later of a call at the same place is about another one.
  Raise(7, kPriHangup, late);
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_DISCONNECTED, 0}}));
}

TEST_F(CallEnd, RestartClearsTheCallAndResetsNothing) {
  Connect(6);
  Raise(7, kPriRestart);
  trunk.ToPeer();
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_NE(View(6).callHandle, nullptr);
  EXPECT_TRUE(View(6).connected);
  EXPECT_EQ(View(6).state, ECallState::kClearing);
  EXPECT_NE(trunk.PeerEvent(kPriHangupRequest).call, nullptr);
  EXPECT_EQ(trunk.PeerEvent(kPriHangupRequest).cause, kCauseNormalClearing);
}

// Each of the three ends of a lost call is its last word: the next one on the channel is the channel's.
TEST_F(CallEnd, EveryKindOfEndIsTheLastWordOfALostCall) {
  for (const EPriEventCode code : {kPriHangup, kPriHangupRequest, kPriHangupAck}) {
    Connect(6);
    SPriEvent late;
    late.call = View(6).callHandle;
    firstHandlers.OnDchannelDown(0, caller);
    firstHandlers.OnDchannelUp(0, caller);
    application.Take();
    ASSERT_TRUE(Channel(6).Call().IsLost(late.call));
    Raise(7, code, late);
    EXPECT_EQ(application.Take(), Posted{});
    EXPECT_FALSE(Channel(6).Call().IsLost(late.call)) << code;
    trunk.Run();
  }
}

TEST_F(CallEnd, TheEndOfACallWithoutAChannelIsConfirmedAndNothingElseOfIt) {
  constexpr uint16_t kSignallingTimeslot = 16;
  for (const EPriEventCode code : {kPriHangup, kPriHangupRequest, kPriProceeding, kPriAnswer}) {
    SPriEvent event;
    event.call = OwnCall();
    Raise(kSignallingTimeslot, code, event);
    EXPECT_EQ(IsValid(event.call), code != kPriHangup && code != kPriHangupRequest) << code;
  }
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(CallEnd, AConfirmedClearingOfAnotherCallFreesNoChannel) {
  Connect(6);
  SPriEvent event;
  event.call = OwnCall();
  Raise(7, kPriHangupAck, event);
  firstHandlers.OnTime(firstCard, 0, caller);
  firstHandlers.OnTime(firstCard, 60000, caller);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_FALSE(firstHandlers.AwaitsTime());
  EXPECT_TRUE(View(6).connected);
}

}  // namespace
}  // namespace zelk::test

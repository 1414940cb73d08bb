// SPDX-License-Identifier: GPL-2.0-only
#include "call/call_events.h"

#include "call_fixture.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;

using CallEvents = CTrunkFixture;

TEST_F(CallEvents, EventsBeyondTheCardOrTheTableAreIgnored) {
  SPriEvent event;
  for (const uint16_t bchannel : {uint16_t{122}, uint16_t{1026}, uint16_t{0xFFFE}, uint16_t{0xFFFF}}) {
    Raise(bchannel, kPriAnswer, event);
    Raise(bchannel, kPriHangup, event);
    Raise(bchannel, kPriRestart, event);
  }
  // Timeslots of a trunk that the card does not have lead to the next card's channels.
  firstHandlers.OnCallEvent(firstCard, 4, 1, CALLEV_ANSWER, event);
  firstHandlers.OnCallEvent(firstCard, 8, 1, CALLEV_ANSWER, event);
  firstHandlers.OnCallEvent(firstCard, 0xFFFF, 1, CALLEV_ANSWER, event);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_FALSE(View(120).connected);
}

TEST_F(CallEvents, CallProgressOfTheFarEndIsPosted) {
  ASSERT_TRUE(Dial(Channel(6), "999", "111"));
  trunk.Run();
  const SPriEvent ring = trunk.PeerEvent(kPriRing);
  trunk.peer->Proceeding(ring.call, ring.channel);
  trunk.Run();
  trunk.peer->Alerting(ring.call, ring.channel);
  trunk.Run();
  const Posted posted = application.Take();
  ASSERT_EQ(posted.size(), 2U);
  EXPECT_EQ(posted[0].event, EVENT_PROCEEDING);
  EXPECT_EQ(posted[1], (SPosted{6, EVENT_ALERTING, 0}));
}

TEST_F(CallEvents, ProceedingAndProgressCarryTheEventsCause) {
  SPriEvent event;
  event.cause = 42;
  Raise(1, kPriProceeding, event);
  Raise(1, kPriProgress, event);
  EXPECT_EQ(application.Take(), (Posted{{0, EVENT_PROCEEDING, 42}, {0, EVENT_PROGRESS, 42}}));
}

TEST_F(CallEvents, AlertingHangsUpAConnectedCallWhenTheTrunkSaysSo) {
  Connect(6);
  firstCard.Trunk(0).hangupOnAlerting = true;
  SPriEvent event;
  event.call = View(6).callHandle;
  event.hangupCall = View(6).callHandle;
  event.cause = 31;
  Raise(7, kPriRinging, event);
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_DISCONNECTED, 16}}));
  EXPECT_EQ(Channel(6).LastCause(), 16);
  EXPECT_EQ(View(6).callHandle, nullptr);
  trunk.ToPeer();
  EXPECT_NE(trunk.PeerEvent(kPriHangupRequest).call, nullptr);
}

TEST_F(CallEvents, AlertingHangsUpWhatTheHangupMemberOfTheEventHolds) {
  Connect(6);
  firstCard.Trunk(0).hangupOnAlerting = true;
  SPriEvent event;
  event.call = View(6).callHandle;
  event.hangupCall = kNobodysCall;  // no call of libpri's: nothing is sent
  trunk.them.events.clear();
  Raise(7, kPriRinging, event);
  trunk.ToPeer();
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_DISCONNECTED, 16}}));
  EXPECT_TRUE(trunk.them.events.empty());
}

TEST_F(CallEvents, AlertingIsPostedUnlessItHangsTheCallUp) {
  firstCard.Trunk(0).hangupOnAlerting = true;
  Raise(7, kPriRinging);
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_ALERTING, 0}}));
  firstCard.Trunk(0).hangupOnAlerting = false;
  Raise(7, kPriConnectAck);
  ASSERT_TRUE(View(6).connected);
  application.Take();
  Raise(7, kPriRinging);
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_ALERTING, 0}}));
}

TEST_F(CallEvents, HangupAcknowledgeInformationAndForeignCodesChangeNothing) {
  Connect(6);
  SPriEvent event;
  event.call = View(6).callHandle;
  for (const int code : {774, 775, 768, 781}) {
    firstHandlers.OnCallEvent(firstCard, 0, 7, static_cast<ECallEvent>(code), event);
  }
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(View(6).callHandle, event.call);
}

TEST_F(CallEvents, ProgressLinesAreWrittenAtTheDetailLevel) {
  CLogCapture log(1);
  SPriEvent unknown;
  unknown.code = 99;
  Raise(7, kPriRinging);
  Raise(7, kPriProceeding);
  Raise(7, kPriProgress);
  firstHandlers.OnCallEvent(firstCard, 2, kNoBchannel, CALLEV_UNKNOWN, unknown);
  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{"  6 :Call Status Alerting", "  6 :Call Proceeding", "  6 :Call Progress",
                                      "  G :Card 0: Trunk 2 - Unknown pri event 99"}));
}

TEST_F(CallEvents, ProgressLinesAreLeftOutAtTheDefaultLevel) {
  CLogCapture log(2);
  Raise(7, kPriRinging);
  Raise(7, kPriProceeding);
  Raise(7, kPriProgress);
  EXPECT_EQ(log.Lines(), std::vector<std::string>{});
}

TEST_F(CallEvents, EventsWithoutAControllerChangeTheRecordAllTheSame) {
  SPriEvent event;
  event.callingNumber = "1";
  event.call = kNobodysCall;
  event.cause = 16;
  RaiseOn(3, 1, kPriRing, event);
  EXPECT_EQ(Info(90, "CLI"), "1");
  RaiseOn(3, 1, kPriHangup, event);
  EXPECT_EQ(application.Take(), (Posted{{90, EVENT_INCOMING_CALL, 0}, {90, EVENT_DISCONNECTED, 16}}));
}

}  // namespace
}  // namespace zelk::test

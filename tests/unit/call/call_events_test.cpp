#include "call/call_events.h"

#include "call/call_operations.h"
#include "call/disconnect_cause.h"
#include "call_fixture.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;

class CallEvents : public CTrunkFixture {
 protected:
  int32_t LastCause(int32_t channel) {
    const CScopedLock<CMutex> held(Channel(channel).infoLock);
    return Channel(channel).lastCause;
  }
  void SetTexts(int32_t channel, const char* text) {
    const CScopedLock<CMutex> held(Channel(channel).infoLock);
    Channel(channel).cli = Channel(channel).dli = Channel(channel).rli = text;
  }
  std::string Texts(int32_t channel) {
    return Info(channel, "CLI") + "|" + Info(channel, "DLI") + "|" + Info(channel, "RLI") + "|" +
           Info(channel, "CALLTYPE");
  }
  // A call of our controller that nobody else knows of: it has no party yet.
  PriCall OwnCall() {
    const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
    return firstCard.Trunk(0).controller->NewCall();
  }
  // Frames to us that carry this message get an element behind their last one.
  void AddToMessage(uint8_t type, std::vector<uint8_t> element) {
    trunk.alter = [type, element = std::move(element)](std::vector<uint8_t>& frame) {
      constexpr size_t kMessageType = 8;  // 4 bytes of layer 2, protocol, reference length, two bytes of reference
      if (frame.size() > kMessageType && frame[kMessageType] == type) {
        frame.insert(frame.end() - 2, element.begin(), element.end());
      }
    };
  }
};

TEST_F(CallEvents, RingIsOfferedAndAnsweredWithProceedingAndAlerting) {
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

TEST_F(CallEvents, TimeslotAboveTheSignallingOneMapsOneLower) {
  Offer(17);
  EXPECT_EQ(application.Take(), (Posted{{15, EVENT_INCOMING_CALL, 0}}));
}

TEST_F(CallEvents, RingIsOfferedOnAClosedChannelToo) {
  ASSERT_FALSE(Channel(0).isOpen);
  Offer(1);
  EXPECT_EQ(application.Take(), (Posted{{0, EVENT_INCOMING_CALL, 0}}));
}

TEST_F(CallEvents, RingOnAChannelThatAllowsNoneIsClearedWithCause44) {
  SetInfo(Channel(4), "ALLOWINCOMING", "0");
  Offer(5);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(Channel(4).callHandle, nullptr);
  EXPECT_EQ(Info(4, "CLI"), "");
  EXPECT_EQ(trunk.PeerEvent(kPriHangup).cause, kCauseChannelUnavailable);
}

TEST_F(CallEvents, RingOnFramingOrSignallingTimeslotGetsNoReply) {
  for (const uint16_t timeslot : {uint16_t{0}, uint16_t{16}}) {
    trunk.channelSeen = timeslot;
    trunk.peerEvents.clear();
    Offer(5);
    EXPECT_EQ(application.Take(), Posted{});
    EXPECT_TRUE(trunk.peerEvents.empty());
  }
}

TEST_F(CallEvents, EventsBeyondTheCardOrTheTableAreIgnored) {
  SPriEvent event;
  for (const uint16_t bchannel : {uint16_t{122}, uint16_t{1026}, uint16_t{0xFFFE}, uint16_t{0xFFFF}}) {
    Raise(bchannel, CALLEV_ANSWER, event);
    Raise(bchannel, CALLEV_HANGUP, event);
    Raise(bchannel, CALLEV_RESTART, event);
  }
  // Timeslots of a trunk that the card does not have lead to the next card's channels.
  firstHandlers.OnCallEvent(firstCard, 4, 1, CALLEV_ANSWER, event);
  firstHandlers.OnCallEvent(firstCard, 8, 1, CALLEV_ANSWER, event);
  firstHandlers.OnCallEvent(firstCard, 0xFFFF, 1, CALLEV_ANSWER, event);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_FALSE(Channel(120).connected);
}

TEST_F(CallEvents, RedirectedCallKeepsTheReasonWhenTheNumberIsValid) {
  // The peer sends no redirecting number by itself: one is put behind the last element of its SETUP.
  AddToMessage(0x05, {0x74, 6, 0x21, 0x01, 0x81, '5', '5', '5'});
  Offer(3);
  EXPECT_EQ(application.Take(), (Posted{{2, EVENT_INCOMING_CALL, 0}}));
  EXPECT_EQ(Info(2, "RLI"), "555");
  EXPECT_EQ(Info(2, "CALLTYPE"), "Voice RedirectBusy");
}

TEST_F(CallEvents, ReasonWithoutAValidRedirectingNumberStaysVoice) {
  PriCall call = trunk.peer->NewCall();
  trunk.peer->Setup(call, 3, "1", "2", 33);
  trunk.Run();
  SPriEvent ring;
  ring.call = Channel(2).callHandle;
  ring.redirectingReason = 1;
  Raise(3, CALLEV_RING, ring);
  EXPECT_EQ(Info(2, "CALLTYPE"), "Voice");
}

TEST_F(CallEvents, RingWithoutChannelTakesTheFirstFreeOpenOneThatAllowsIncoming) {
  Channel(0).Open();
  Channel(1).Open();
  Channel(2).Open();
  SetInfo(Channel(0), "ALLOWINCOMING", "0");
  Channel(1).callHandle = trunk.peer->NewCall();  // any call makes it busy
  trunk.channelSeen = kNoBchannel;
  Offer(31);
  EXPECT_EQ(application.Take(), (Posted{{2, EVENT_INCOMING_CALL, 0}}));
}

TEST_F(CallEvents, RingWithoutChannelCountsTheSignallingTimeslot) {
  Channel(15).Open();
  trunk.channelSeen = kNoBchannel;
  Offer(1);
  EXPECT_EQ(application.Take(), (Posted{{15, EVENT_INCOMING_CALL, 0}}));
}

TEST_F(CallEvents, RingWithoutChannelOnTimeslot15IsTheLastBelowTheSignallingOne) {
  Channel(14).Open();
  trunk.channelSeen = kNoBchannel;
  Offer(1);
  EXPECT_EQ(application.Take(), (Posted{{14, EVENT_INCOMING_CALL, 0}}));
}

TEST_F(CallEvents, RingWithoutChannelAndNoFreeOneIsClearedWithCause44AndALine) {
  CLogCapture log(2);
  trunk.channelSeen = kNoBchannel;
  Offer(1);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(trunk.PeerEvent(kPriHangup).cause, kCauseChannelUnavailable);
  EXPECT_EQ(log.Lines(),
            std::vector<std::string>{"  G :Card 0: Trunk 0 - New Call aborted due to BCHANNEL unavailable"});
}

TEST_F(CallEvents, RingWithoutChannelOnTheSecondTrunkLandsOneTrunkFurtherOn) {
  CMemoryTrunk second(firstCard, firstHandlers, 1);
  second.Run();
  application.Take();
  Channel(30).Open();
  second.channelSeen = kNoBchannel;
  second.peer->Setup(second.peer->NewCall(), 1, "1", "2", 33);
  second.Run();
  // Flat index 30 gives B-channel number 32, and that is looked up from the second trunk on.
  EXPECT_EQ(application.Take(), (Posted{{60, EVENT_INCOMING_CALL, 0}}));
  EXPECT_EQ(Channel(30).callHandle, nullptr);
}

// Something has been sent already: the refusal is a DISCONNECT then (ITU-T Q.931, 5.3.2), not a RELEASE COMPLETE.
TEST_F(CallEvents, RingRefusedAfterItsSetupAcknowledgeIsClearedByDisconnect) {
  CMemoryTrunk second(firstCard, firstHandlers, 1);
  second.Run();
  application.Take();
  Channel(30).Open();
  SetInfo(Channel(60), "ALLOWINCOMING", "0");  // where the number that is formed for channel 30 leads
  second.channelSeen = kNoBchannel;
  second.peer->Setup(second.peer->NewCall(), 1, "1", "2", 33);
  second.Run();
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(second.PeerEvent(kPriHangup).call, nullptr);
  EXPECT_EQ(second.PeerEvent(kPriHangupRequest).cause, kCauseChannelUnavailable);
}

TEST_F(CallEvents, RingWithoutChannelNeverReachesAnotherCard) {
  // On the second card (channels 120-149) the number formed from the flat index is far outside of it.
  CMemoryTrunk second(secondCard, secondHandlers, 0);
  second.Run();
  application.Take();
  Channel(120).Open();
  second.channelSeen = kNoBchannel;
  second.peer->Setup(second.peer->NewCall(), 1, "1", "2", 33);
  second.Run();
  EXPECT_EQ(application.Take(), Posted{});
  for (int32_t channel = 0; channel < table.Count(); ++channel) {
    EXPECT_EQ(Channel(channel).callHandle, nullptr) << channel;
  }
}

TEST_F(CallEvents, HangupOfTheNetworkResetsTheChannelAndBringsItsCause) {
  PriCall call = Offer(5);
  application.Take();
  Channel(4).connected = true;
  firstCard.Audio().SetEchoSwitch(0, true);
  Channel(4).endQueue.Push(7);
  Channel(4).direction = 1;
  trunk.peer->Hangup(call, 17);
  trunk.Run();
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_DISCONNECTED, 17}}));
  for (const char* key : {"CLI", "DLI", "RLI", "CALLTYPE"}) {
    EXPECT_EQ(Info(4, key), "") << key;
  }
  uint32_t value = 0;
  EXPECT_FALSE(Channel(4).endQueue.Pop(value));
  EXPECT_EQ(Channel(4).callHandle, nullptr);
  EXPECT_FALSE(Channel(4).connected);
  EXPECT_FALSE(firstCard.Audio().EchoSwitch(0));
  EXPECT_EQ(Info(4, "CHANNELSTATE"), "READY");
  EXPECT_EQ(Channel(4).direction, 0);
  EXPECT_EQ(LastCause(4), 17);
  // The release that answers the network's clearing.
  EXPECT_EQ(trunk.PeerEvent(kPriHangup).cause, kCauseNormalClearing);
}

TEST_F(CallEvents, HangupRequestClearsTheChannelsOwnCall) {
  Connect(6);
  SPriEvent event;
  event.call = Channel(6).callHandle;
  event.cause = 31;
  Raise(7, CALLEV_HANGUP_REQ, event);
  trunk.Run();
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_DISCONNECTED, 31}}));
  EXPECT_NE(trunk.PeerEvent(kPriHangupRequest).call, nullptr);
}

TEST_F(CallEvents, HangupOnAChannelWithoutCallStillBringsDisconnected) {
  SPriEvent event;
  event.cause = 18;
  Raise(9, CALLEV_HANGUP, event);
  Raise(9, CALLEV_HANGUP_REQ, event);
  EXPECT_EQ(application.Take(), (Posted{{8, EVENT_DISCONNECTED, 18}, {8, EVENT_DISCONNECTED, 18}}));
}

TEST_F(CallEvents, HangupReleasesTheEventsCallAndHangupRequestOnlyTheChannelsOwn) {
  SPriEvent event;
  event.call = OwnCall();
  Raise(9, CALLEV_HANGUP_REQ, event);  // the channel has none
  EXPECT_TRUE(IsValid(event.call));
  Raise(9, CALLEV_HANGUP, event);
  EXPECT_FALSE(IsValid(event.call));
}

TEST_F(CallEvents, HangupOfAnotherCallLeavesTheChannelsCallAlone) {
  Connect(6);
  PriCall current = Channel(6).callHandle;
  PriCall other = OwnCall();
  SPriEvent event;
  event.call = other;
  event.cause = 16;
  for (const ECallEvent code : {CALLEV_HANGUP, CALLEV_HANGUP_REQ}) {
    Raise(7, code, event);
    EXPECT_EQ(application.Take(), Posted{});
    EXPECT_EQ(Channel(6).callHandle, current);
    EXPECT_TRUE(Channel(6).connected);
  }
  EXPECT_FALSE(IsValid(other));
}

TEST_F(CallEvents, CallLostWithItsTrunkEndsSilentlyAndLeavesANewerCallAlone) {
  Connect(6);
  SPriEvent late;
  late.call = Channel(6).callHandle;
  late.cause = 27;
  firstHandlers.OnDchannelDown(0, caller);
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  ASSERT_TRUE(Dial(Channel(6), "222", nullptr));
  PriCall newer = Channel(6).callHandle;
  ASSERT_NE(newer, late.call);

  Raise(7, CALLEV_ANSWER, late);
  Raise(7, CALLEV_CONNECT_ACK, late);
  Raise(7, CALLEV_RINGING, late);
  Raise(7, CALLEV_PROGRESS, late);
  Raise(7, CALLEV_HANGUP, late);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(Channel(6).callHandle, newer);
  EXPECT_FALSE(Channel(6).connected);
  EXPECT_EQ(Info(6, "DLI"), "222");
}

TEST_F(CallEvents, CallLostWithItsTrunkEndsSilentlyOnAnIdleChannel) {
  Connect(6);
  SPriEvent late;
  late.call = Channel(6).callHandle;
  firstHandlers.OnDchannelDown(0, caller);
  application.Take();
  Raise(7, CALLEV_HANGUP, late);
  EXPECT_EQ(application.Take(), Posted{});
  {
    const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
    firstCard.Trunk(0).controller->DestroyCall(late.call);
  }
  // Only that once: what libpri may say later of a call at the same place is about another one.
  Raise(7, CALLEV_HANGUP, late);
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_DISCONNECTED, 0}}));
}

TEST_F(CallEvents, RestartClearsTheCallAndResetsNothing) {
  Connect(6);
  Raise(7, CALLEV_RESTART);
  trunk.ToPeer();
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_NE(Channel(6).callHandle, nullptr);
  EXPECT_TRUE(Channel(6).connected);
  EXPECT_NE(trunk.PeerEvent(kPriHangupRequest).call, nullptr);
  EXPECT_EQ(trunk.PeerEvent(kPriHangupRequest).cause, kCauseNormalClearing);
}

TEST_F(CallEvents, ConnectAcknowledgeTakesOverPartiesAndEchoSetting) {
  Offer(5);
  application.Take();
  firstCard.Trunk(0).echoEnabled = true;
  {
    const CScopedLock<CMutex> held(Channel(4).infoLock);
    Channel(4).cli.clear();
    Channel(4).dli.clear();
  }
  ASSERT_TRUE(Answer(Channel(4)));
  EXPECT_EQ(application.Take(), Posted{});
  trunk.ToPeer();
  const SPriEvent answer = trunk.PeerEvent(kPriAnswer);
  trunk.peer->ConnectAck(answer.call, answer.channel);
  trunk.Run();
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_CONNECTED, 0}}));
  EXPECT_TRUE(Channel(4).connected);
  EXPECT_TRUE(firstCard.Audio().EchoSwitch(0));
  EXPECT_EQ(Info(4, "CLI"), "030123456");
  EXPECT_EQ(Info(4, "DLI"), "4711");
}

TEST_F(CallEvents, ConnectAcknowledgeTakesOverARedirectingNumberAndItsReason) {
  Offer(5);
  ASSERT_EQ(Texts(4), "030123456|4711||Voice");
  ASSERT_TRUE(Answer(Channel(4)));
  trunk.ToPeer();
  AddToMessage(0x0F, {0x74, 6, 0x21, 0x01, 0x82, '5', '5', '5'});
  const SPriEvent answer = trunk.PeerEvent(kPriAnswer);
  trunk.peer->ConnectAck(answer.call, answer.channel);
  trunk.Run();
  EXPECT_EQ(Texts(4), "030123456|4711|555|Voice RedirectNoReply");
}

TEST_F(CallEvents, ConnectAcknowledgeKeepsTheTextsOfPartiesThatAreNotValid) {
  SPriEvent event;
  event.call = OwnCall();
  SetTexts(4, "kept");
  Raise(5, CALLEV_CONNECT_ACK, event);
  EXPECT_EQ(Texts(4), "kept|kept|kept|");
  EXPECT_TRUE(Channel(4).connected);
}

TEST_F(CallEvents, ConnectAcknowledgeSwitchesEchoOffOnATrunkWithoutIt) {
  firstCard.Audio().SetEchoSwitch(0, true);
  Raise(5, CALLEV_CONNECT_ACK);
  EXPECT_FALSE(firstCard.Audio().EchoSwitch(0));
}

TEST_F(CallEvents, AnswerConnectsAndLeavesEchoAndTextsAlone) {
  firstCard.Trunk(0).echoEnabled = true;
  Connect(6);
  EXPECT_FALSE(firstCard.Audio().EchoSwitch(0));
  EXPECT_EQ(Info(6, "CLI"), "111");
  EXPECT_EQ(Info(6, "DLI"), "999");
}

TEST_F(CallEvents, AnswerTakesOverPartiesOnlyOfAnIncomingCall) {
  Offer(5);
  application.Take();
  SPriEvent event;
  event.call = Channel(4).callHandle;
  for (const int32_t direction : {-1, 0, 1}) {  // nothing in the library makes it 1
    SetTexts(4, "kept");
    Channel(4).direction = direction;
    Raise(5, CALLEV_ANSWER, event);
    EXPECT_EQ(Texts(4), direction < 1 ? "kept|kept|kept|Voice" : "030123456|4711|kept|Voice") << direction;
  }
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_CONNECTED, 0}, {4, EVENT_CONNECTED, 0}, {4, EVENT_CONNECTED, 0}}));
}

TEST_F(CallEvents, OneAnswerBringsOneConnectedAndOneConnectAcknowledge) {
  ASSERT_TRUE(Dial(Channel(6), "999", "111"));
  trunk.Run();
  application.Take();
  const SPriEvent ring = trunk.PeerEvent(kPriRing);
  trunk.peer->Answer(ring.call, ring.channel);
  trunk.Run();
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_CONNECTED, 0}}));
  const auto acknowledges = std::count_if(trunk.peerEvents.begin(), trunk.peerEvents.end(),
                                          [](const SPriEvent& event) { return event.code == kPriConnectAck; });
  EXPECT_EQ(acknowledges, 1);
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
  Raise(1, CALLEV_PROCEEDING, event);
  Raise(1, CALLEV_PROGRESS, event);
  EXPECT_EQ(application.Take(), (Posted{{0, EVENT_PROCEEDING, 42}, {0, EVENT_PROGRESS, 42}}));
}

TEST_F(CallEvents, AlertingHangsUpAConnectedCallWhenTheTrunkSaysSo) {
  Connect(6);
  firstCard.Trunk(0).hangupOnAlerting = true;
  SPriEvent event;
  event.call = Channel(6).callHandle;
  event.hangupCall = Channel(6).callHandle;
  event.cause = 31;
  Raise(7, CALLEV_RINGING, event);
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_DISCONNECTED, 16}}));
  EXPECT_EQ(LastCause(6), 16);
  EXPECT_EQ(Channel(6).callHandle, nullptr);
  trunk.ToPeer();
  EXPECT_NE(trunk.PeerEvent(kPriHangupRequest).call, nullptr);
}

TEST_F(CallEvents, AlertingHangsUpWhatTheHangupMemberOfTheEventHolds) {
  Connect(6);
  firstCard.Trunk(0).hangupOnAlerting = true;
  SPriEvent event;
  event.call = Channel(6).callHandle;
  event.hangupCall = PriCall(0x10);  // no call of libpri's: nothing is sent
  trunk.peerEvents.clear();
  Raise(7, CALLEV_RINGING, event);
  trunk.ToPeer();
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_DISCONNECTED, 16}}));
  EXPECT_TRUE(trunk.peerEvents.empty());
}

TEST_F(CallEvents, AlertingIsPostedWhenTheCallIsNotConnectedOrTheTrunkDoesNotHangUp) {
  firstCard.Trunk(0).hangupOnAlerting = true;
  Raise(7, CALLEV_RINGING);
  firstCard.Trunk(0).hangupOnAlerting = false;
  Channel(6).connected = true;
  Raise(7, CALLEV_RINGING);
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_ALERTING, 0}, {6, EVENT_ALERTING, 0}}));
}

TEST_F(CallEvents, HangupAcknowledgeInformationAndForeignCodesChangeNothing) {
  Connect(6);
  SPriEvent event;
  event.call = Channel(6).callHandle;
  for (const int code : {774, 775, 768, 781}) {
    Raise(7, static_cast<ECallEvent>(code), event);
  }
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(Channel(6).callHandle, event.call);
}

TEST_F(CallEvents, ProgressLinesAreWrittenAtTheDetailLevel) {
  CLogCapture log(1);
  SPriEvent unknown;
  unknown.code = 99;
  Raise(7, CALLEV_RINGING);
  Raise(7, CALLEV_PROCEEDING);
  Raise(7, CALLEV_PROGRESS);
  firstHandlers.OnCallEvent(firstCard, 2, kNoBchannel, CALLEV_UNKNOWN, unknown);
  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{"  6 :Call Status Alerting", "  6 :Call Proceeding", "  6 :Call Progress",
                                      "  G :Card 0: Trunk 2 - Unknown pri event 99"}));
}

TEST_F(CallEvents, ProgressLinesAreLeftOutAtTheDefaultLevel) {
  CLogCapture log(2);
  Raise(7, CALLEV_RINGING);
  Raise(7, CALLEV_PROCEEDING);
  Raise(7, CALLEV_PROGRESS);
  EXPECT_EQ(log.Lines(), std::vector<std::string>{});
}

TEST_F(CallEvents, EventsWithoutAControllerChangeTheRecordAllTheSame) {
  SPriEvent event;
  event.callingNumber = "1";
  event.call = PriCall(0x10);
  event.cause = 16;
  firstHandlers.OnCallEvent(firstCard, 3, 1, CALLEV_RING, event);
  EXPECT_EQ(Info(90, "CLI"), "1");
  firstHandlers.OnCallEvent(firstCard, 3, 1, CALLEV_HANGUP, event);
  EXPECT_EQ(application.Take(), (Posted{{90, EVENT_INCOMING_CALL, 0}, {90, EVENT_DISCONNECTED, 16}}));
}

// Both sides call, answer and clear at random while bytes of layer 3 are damaged on their way to us.
TEST_F(CallEvents, DamagedMessagesReachNoOtherChannelsAndLeaveTheTrunkWorking) {
  constexpr int kTurns = 6000;
  constexpr size_t kLayer3 = 4;
  std::mt19937 random(1);
  testing::internal::CaptureStdout();  // libpri names what it finds
  testing::internal::CaptureStderr();
  trunk.alter = [&random](std::vector<uint8_t>& frame) {
    for (auto changes = random() % 3; changes > 0 && frame.size() > kLayer3; --changes) {
      frame[kLayer3 + random() % (frame.size() - kLayer3)] = static_cast<uint8_t>(random());
    }
  };
  std::vector<PriCall> calls;
  for (int turn = 0; turn < kTurns; ++turn) {
    const auto channel = static_cast<int32_t>(random() % 30);
    PriCall call = calls.empty() ? nullptr : calls[random() % calls.size()];
    switch (random() % 8) {
      case 0:
      case 1:
        calls.push_back(trunk.peer->NewCall());
        trunk.peer->Setup(calls.back(), static_cast<int>(Channel(channel).timeslot), "4711", "030123456", 33);
        break;
      case 2:
        trunk.peer->Hangup(call, 16);
        break;
      case 3:
        trunk.peer->Answer(trunk.PeerEvent(kPriRing).call, trunk.PeerEvent(kPriRing).channel);
        break;
      case 4:
        Dial(Channel(channel), "999", "111");
        break;
      case 5:
        Answer(Channel(channel));
        break;
      case 6:
        Hangup(Channel(channel));
        break;
      default:
        Reject(Channel(channel));
    }
    trunk.Run();
    if (trunk.peerEvents.size() > 50) {
      trunk.peerEvents.erase(trunk.peerEvents.begin(), trunk.peerEvents.end() - 50);
    }
  }
  trunk.alter = nullptr;
  testing::internal::GetCapturedStdout();
  testing::internal::GetCapturedStderr();
  const Posted events = application.Take();
  EXPECT_GT(events.size(), size_t{kTurns} / 10) << "too few messages got as far as call control";
  for (const SPosted& posted : events) {
    EXPECT_LT(posted.channel, 120) << "of the other card";
  }
  for (int32_t channel = 120; channel < 150; ++channel) {
    EXPECT_EQ(Channel(channel).callHandle, nullptr);
  }
  // A trunk that is lost and comes back has every channel free again.
  firstHandlers.OnDchannelUp(0, caller);
  firstHandlers.OnDchannelDown(0, caller);
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  for (int32_t channel = 0; channel < 30; ++channel) {
    EXPECT_EQ(Info(channel, "CHANNELSTATE"), "READY") << channel;
    Offer(static_cast<int>(Channel(channel).timeslot));
    EXPECT_EQ(application.Take(), (Posted{{channel, EVENT_INCOMING_CALL, 0}}));
  }
}

TEST_F(CallEvents, CallbackMayCallForItsOwnChannel) {
  application.reaction = [this](const SPosted& posted) {
    if (posted.event == EVENT_INCOMING_CALL) {
      Info(posted.channel, "CLI");
      Answer(Channel(posted.channel));
    }
  };
  Offer(5);
  EXPECT_NE(trunk.PeerEvent(kPriAnswer).call, nullptr);
}

}  // namespace
}  // namespace zelk::test

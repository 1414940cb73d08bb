// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "system_fixture.h"

// One application and a simulated exchange with real signalling between them: what tests of calls do again and again.
class CCallTest : public CSystemTest {
 protected:
  using Codes = std::vector<uint32_t>;
  using Names = std::vector<std::string>;

  static constexpr int32_t kChannelsPerTrunk = ZELK_CHANNELS_PER_TRUNK;

  // Starts with every channel open and a clean record of what the cards saw.
  void StartOpen(const std::vector<int>& trunksOfCards, const std::string& ini = {}) {
    StartOpen(cardsim::SSimulatorConfig::WithTrunks(trunksOfCards), ini);
  }

  void StartOpen(const cardsim::SSimulatorConfig& config, const std::string& ini = {}) {
    ASSERT_NO_FATAL_FAILURE(Start(config, ini));
    // The exchange's end of a D-channel may come up a moment after the library's.
    for (size_t card = 0; card < sim->CardCount(); ++card) {
      ASSERT_TRUE(sim->Card(card).WaitUp(kSlow)) << "card " << card << "\n" << app->zelk.LogText();
    }
    OpenAll();
    ForgetAll();
  }

  // A library that plays the network, and a telephone system behind the card's trunks.
  void StartAsNetwork(int trunks, const std::string& moreOfGeneral = {}) {
    cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks({trunks});
    for (int trunk = 0; trunk < trunks; ++trunk) {
      config.cards[0].roles[trunk].userSide = true;
    }
    ASSERT_NO_FATAL_FAILURE(StartOpen(config, "[General]\nClientType=1\n" + moreOfGeneral));
  }

  void ForgetAll() {
    app->Forget();
    for (size_t card = 0; card < sim->CardCount(); ++card) {
      Card(card).ClearSeen();
    }
  }

  // After LoseLayer2: layer 2 comes up again on both sides. A call that is dialled between the two would be lost, as
  // the exchange may have a SABME under way.
  void MendLine(int trunk) {
    Card().CutLine(trunk, false);
    EXPECT_TRUE(support::Eventually([&] { return State(trunk * kChannelsPerTrunk) == 3U; }, kSlow))
        << app->zelk.LogText();
    EXPECT_TRUE(Card().WaitUp(kSlow)) << app->zelk.LogText();
  }

  static int32_t ChannelOf(int trunk, int timeslot) {
    return trunk * kChannelsPerTrunk + (timeslot < 16 ? timeslot - 1 : timeslot - 2);
  }

  cardsim::Call Offer(int timeslot, int trunk = 0) {
    cardsim::Call call = Card().PlaceCall({.trunk = trunk, .timeslot = timeslot});
    EXPECT_TRUE(app->WaitEvent(ChannelOf(trunk, timeslot), ZELK_EVENT_INCOMING_CALL, kSoon));
    EXPECT_TRUE(call->WaitState(cardsim::ESimCallState::kAlerting, kSoon));
    return call;
  }

  cardsim::Call ConnectIncoming(int timeslot, int trunk = 0) {
    cardsim::Call call = Offer(timeslot, trunk);
    const int32_t channel = ChannelOf(trunk, timeslot);
    EXPECT_TRUE(app->zelk.Answer(channel));
    EXPECT_TRUE(app->WaitEvent(channel, ZELK_EVENT_CONNECTED, kSoon));
    EXPECT_TRUE(call->WaitState(cardsim::ESimCallState::kConnected, kSoon));
    return call;
  }

  // With the default plan: the far end alerts and answers at once.
  cardsim::Call ConnectOutgoing(int32_t channel) {
    EXPECT_TRUE(app->zelk.Dial(channel, "0405556789", "8001000"));
    EXPECT_TRUE(app->WaitEvent(channel, ZELK_EVENT_CONNECTED, kSoon));
    cardsim::Call call = Card().WaitCall(kSoon);
    EXPECT_NE(call, nullptr);
    EXPECT_TRUE(call != nullptr && call->WaitState(cardsim::ESimCallState::kConnected, kSoon));
    return call;
  }

  // Dials a far end that does not answer; returns when it rings.
  cardsim::Call DialRinging(int32_t channel) {
    Card().SetAnswerPlan(cardsim::SAnswerPlan::NeverAnswer());
    EXPECT_TRUE(app->zelk.Dial(channel, "0405556789", "8001000"));
    EXPECT_TRUE(app->WaitEvent(channel, ZELK_EVENT_ALERTING, kSoon));
    cardsim::Call call = Card().WaitCall(kSoon);
    EXPECT_NE(call, nullptr);
    return call;
  }

  // The parameter of the count-th event of a code, -9999 when it does not come.
  int32_t WaitParam(int32_t channel, uint32_t code, size_t count = 1) {
    int32_t param = -9999;
    EXPECT_TRUE(app->WaitEvent(channel, code, kSlow, count, &param))
        << "channel " << channel << " event " << code << "\n"
        << app->zelk.LogText();
    return param;
  }
  int32_t WaitCause(int32_t channel, size_t count = 1) { return WaitParam(channel, ZELK_EVENT_DISCONNECTED, count); }

  uint32_t State(int32_t channel) { return app->zelk.GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE); }

  // What the library has sent on a trunk: messages of one name, in order.
  std::vector<cardsim::SQ931Message> FromLibrary(const std::string& name, int trunk = 0) {
    std::vector<cardsim::SQ931Message> found;
    for (const cardsim::SFrameRecord& frame : Card().Seen().Frames()) {
      const cardsim::SQ931Message message = frame.Decode().message;
      if (frame.direction == cardsim::EDirection::kFromLibrary && frame.trunk == trunk && message.valid &&
          message.name == name) {
        found.push_back(message);
      }
    }
    return found;
  }

  bool WaitFromLibrary(const std::string& name, size_t count = 1, int trunk = 0) {
    return Card().Seen().WaitQ931(trunk, cardsim::EDirection::kFromLibrary, name, kSlow, count);
  }

  // The messages that came from the library since the record was cleared; a message that is sent must not be missed
  // because it is late, so a call is offered and refused on another channel first: what it brings comes after it on the
  // D-channel.
  Names SentBeforeNow(int trunk = 0) {
    constexpr int kOtherTimeslot = 31;
    cardsim::Call call = Offer(kOtherTimeslot, trunk);
    app->zelk.Reject(ChannelOf(trunk, kOtherTimeslot));
    EXPECT_TRUE(call->WaitEnded(kSoon));
    Names names;
    int other = -1;
    for (const cardsim::SFrameRecord& frame : Card().Seen().Frames()) {
      const cardsim::SQ931Message message = frame.Decode().message;
      if (frame.trunk != trunk || !message.valid) {
        continue;
      }
      if (message.name == "SETUP" && message.Timeslot() == kOtherTimeslot) {
        other = message.callReference;
      }
      if (frame.direction == cardsim::EDirection::kFromLibrary && message.callReference != other) {
        names.push_back(message.name);
      }
    }
    return names;
  }

  // A call on the trunk comes, is answered and ends like any other.
  void ExpectWorking(int timeslot = 1) {
    app->Forget();
    cardsim::Call call = ConnectIncoming(timeslot);
    call->Hangup();
    EXPECT_EQ(WaitCause(ChannelOf(0, timeslot)), 16);
    EXPECT_TRUE(NetworkIsIdle());
  }

  bool NetworkIsIdle(int trunk = 0, std::chrono::milliseconds timeout = kSlow) {
    return support::Eventually([&] { return Card().CallCount(trunk) == 0; }, timeout);
  }
};

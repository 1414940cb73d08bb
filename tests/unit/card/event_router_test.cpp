// SPDX-License-Identifier: GPL-2.0-only
#include "card/event_router.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "card/card.h"
#include "card/card_core.h"
#include "recording_handlers.h"
#include "support/pri_pair.h"

namespace zelk {
namespace {

TEST(EventRoute, StatusesAndCallEvents) {
  EXPECT_EQ(RouteOf(1).status, 257U);
  EXPECT_EQ(RouteOf(2).status, 258U);
  EXPECT_EQ(RouteOf(4).status, 263U);
  const std::map<int, uint32_t> calls{{3, 769},  {5, 770}, {6, 771},  {15, 772}, {27, 773}, {9, 774},
                                      {12, 775}, {7, 777}, {13, 778}, {8, 779},  {17, 780}};
  for (int code = -1; code < 40; ++code) {
    const SEventRoute route = RouteOf(code);
    const auto call = calls.find(code);
    if (call != calls.end()) {
      EXPECT_EQ(route.kind, SEventRoute::EKind::kCall) << code;
      EXPECT_EQ(route.call, call->second) << code;
    } else if (code == 1 || code == 2 || code == 4) {
      EXPECT_EQ(route.kind, SEventRoute::EKind::kStatus) << code;
    } else {
      EXPECT_EQ(route.kind, SEventRoute::EKind::kIgnored) << code;
    }
  }
}

class EventRouter : public testing::Test {
 protected:
  void Route(uint32_t trunk, int code, int channel = 0) {
    SPriEvent event;
    event.code = code;
    event.channel = channel;
    RouteEvent({card, core.handlers, core.trunks[trunk], trunk}, event, caller);
  }

  CCard card{0};
  CCardCore core{card, 0};
  CRecordingHandlers handlers;
  CStopFlag caller;
};

TEST_F(EventRouter, HandsOutTheLow16BitsOfTheChannel) {
  core.handlers = &handlers;
  Route(2, kPriRing, -1);
  Route(3, kPriHangup, 0x10011);
  EXPECT_EQ(handlers.Seen(), (Reports{CallEvent(2, 65535, CALLEV_RING), CallEvent(3, 17, CALLEV_HANGUP)}));
}

TEST_F(EventRouter, ReportsStatusesWithoutValues) {
  core.handlers = &handlers;
  Route(1, kPriDchannelUp);
  Route(1, kPriConfigError);
  Route(1, kPriDchannelDown);
  EXPECT_EQ(handlers.Seen(), (Reports{DchannelUp(1), ConfigError(1), DchannelDown(1)}));
}

TEST_F(EventRouter, AnAnswerWithoutAControllerIsOnlyReported) {
  core.handlers = &handlers;
  Route(0, kPriAnswer, 4);
  EXPECT_EQ(handlers.Seen(), Reports{CallEvent(0, 4, CALLEV_ANSWER)});
}

// A trunk of the card joined in memory to a network that answers the call placed on it.
class AnswerRouter : public EventRouter {
 protected:
  AnswerRouter() {
    core.handlers = &handlers;
    const CScopedLock<CRecursiveMutex> held(core.trunks[0].lock);
    core.trunks[0].controller = std::move(user.controller);
    Carry();
    call = core.trunks[0].controller->NewCall();
    core.trunks[0].controller->Setup(call, 9, "4711", "030", 33);
    Carry();
  }

  // Hands over frames until both sides are quiet.
  void Carry() {
    while (!user.written.empty() || !network.written.empty()) {
      for (; !user.written.empty(); user.written.pop_front()) {
        sent.push_back(MessageOf(user.written.front()));
        SPriEvent event;
        if (network.controller->Receive(user.written.front().data(), user.written.front().size(), event)) {
          network.Note(event);
        }
      }
      for (; !network.written.empty(); network.written.pop_front()) {
        const CScopedLock<CRecursiveMutex> held(core.trunks[0].lock);
        SPriEvent event;
        if (core.trunks[0].controller->Receive(network.written.front().data(), network.written.front().size(), event)) {
          RouteEvent({card, core.handlers, core.trunks[0], 0}, event, caller);
        }
      }
    }
  }
  void AnswerOfTheNetwork() {
    const SPriEvent* ring = network.Find(kPriRing);
    ASSERT_NE(ring, nullptr);
    network.controller->Proceeding(ring->call, ring->channel);
    Carry();
    network.controller->Alerting(ring->call, ring->channel);
    Carry();
    EXPECT_EQ(Acknowledges(), 0);
    network.controller->Answer(ring->call, ring->channel);
    Carry();
  }
  // The Q.931 message type of a frame, 0 for one of layer 2 alone.
  static int MessageOf(const PriFrame& frame) {
    constexpr size_t kMessageType = 8;  // 4 bytes of layer 2, protocol, reference length, two bytes of reference
    return frame.size() > kMessageType ? frame[kMessageType] : 0;
  }
  ptrdiff_t Acknowledges() const { return std::count(sent.begin(), sent.end(), 0x0F); }

  CPriSide user{2};
  CPriSide network{1};
  PriCall call = nullptr;
  std::vector<int> sent;
};

TEST_F(AnswerRouter, AcknowledgesOnceOnlyAfterTheCallLogicHasSeenTheAnswer) {
  bool seen = false;
  handlers.onCall = [&](CCard&, uint16_t, ECallEvent code, const SPriEvent&) {
    if (code == CALLEV_ANSWER) {
      seen = true;
      EXPECT_TRUE(std::none_of(user.written.begin(), user.written.end(),
                               [](const PriFrame& frame) { return MessageOf(frame) == 0x0F; }));
      EXPECT_EQ(Acknowledges(), 0);
    }
  };
  AnswerOfTheNetwork();
  EXPECT_TRUE(seen);
  EXPECT_EQ(Acknowledges(), 1);
}

TEST_F(AnswerRouter, AcknowledgesNothingOnceTheCallLogicHasEndedTheCall) {
  handlers.onCall = [&](CCard&, uint16_t, ECallEvent code, const SPriEvent& event) {
    if (code == CALLEV_ANSWER) {
      const CScopedLock<CRecursiveMutex> held(core.trunks[0].lock);
      core.trunks[0].controller->DestroyCall(event.call);
    }
  };
  AnswerOfTheNetwork();
  EXPECT_EQ(handlers.Count(CallEvent(0, 9, CALLEV_ANSWER)), 1U);
  EXPECT_EQ(Acknowledges(), 0);
}

// Too late for this generation of the card: another one may have the connection by now.
TEST_F(AnswerRouter, AcknowledgesNothingWhenTheCallerWasGivenUpInTheCallback) {
  handlers.onCall = [&](CCard&, uint16_t, ECallEvent code, const SPriEvent&) {
    if (code == CALLEV_ANSWER) {
      caller.Set();
    }
  };
  AnswerOfTheNetwork();
  EXPECT_EQ(handlers.Count(CallEvent(0, 9, CALLEV_ANSWER)), 1U);
  EXPECT_EQ(Acknowledges(), 0);
}

TEST_F(AnswerRouter, AcknowledgesWithoutHandlersToo) {
  core.handlers = nullptr;
  AnswerOfTheNetwork();
  EXPECT_EQ(Acknowledges(), 1);
}

TEST_F(EventRouter, AnEarlyDchannelUpIsReportedOnceThereAreHandlers) {
  Route(1, kPriDchannelUp);
  Route(1, kPriConfigError);
  Route(2, kPriDchannelUp);
  Route(2, kPriDchannelDown);
  Route(3, kPriRing);
  core.handlers = &handlers;
  core.ReportEarlyDchannels(caller);
  core.ReportEarlyDchannels(caller);
  EXPECT_EQ(handlers.Seen(), Reports{DchannelUp(1)});
}

TEST_F(EventRouter, EarlyDchannelsAreNotReportedByACallerThatWasGivenUp) {
  for (uint32_t trunk = 0; trunk < 3; ++trunk) {
    Route(trunk, kPriDchannelUp);
  }
  core.handlers = &handlers;
  handlers.onDchannelUp = [&](uint32_t) { caller.Set(); };
  core.ReportEarlyDchannels(caller);
  EXPECT_EQ(handlers.Seen(), Reports{DchannelUp(0)});
}

TEST_F(EventRouter, ADchannelUpThatWasReportedIsNotReportedAgain) {
  core.handlers = &handlers;
  Route(1, kPriDchannelUp);
  Route(1, kPriConfigError);
  core.ReportEarlyDchannels(caller);
  EXPECT_EQ(handlers.Count(DchannelUp(1)), 1U);
}

}  // namespace
}  // namespace zelk

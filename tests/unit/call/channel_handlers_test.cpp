// SPDX-License-Identifier: GPL-2.0-only
#include "call/channel_handlers.h"

#include "call_fixture.h"

namespace zelk::test {
namespace {

using ChannelHandlers = CCallFixture;
using Posted = std::vector<SPosted>;

TEST_F(ChannelHandlers, FirstGlobalTrunkIsTheOneOfThePlace) {
  EXPECT_EQ(firstHandlers.FirstGlobalTrunk(), 0U);
  EXPECT_EQ(secondHandlers.FirstGlobalTrunk(), 4U);
}

TEST_F(ChannelHandlers, EachReportReachesItsPart) {
  secondHandlers.OnDchannelUp(0, caller);
  EXPECT_EQ(application.Take().size(), 30U);
  secondHandlers.OnDigit(0, 2, '1');
  secondHandlers.OnCallEvent(secondCard, 0, 2, CALLEV_RINGING, SPriEvent());
  EXPECT_EQ(application.Take(), (Posted{{121, EVENT_DTMF, '1'}, {121, EVENT_ALERTING, 0}}));
  secondHandlers.OnCallEvent(secondCard, 0, 2, CALLEV_RING, OfCall(kNobodysCall));
  EXPECT_EQ(application.Take(), (Posted{{121, EVENT_INCOMING_CALL, 0}}));
  secondHandlers.OnCardReopening(caller);
  EXPECT_EQ(application.Take(), (Posted{{121, EVENT_CHANNEL_STATE, 0}}));
  secondHandlers.OnCardDown(caller);
  EXPECT_EQ(application.Take().size(), 30U);
}

TEST_F(ChannelHandlers, ACardCanBePlacedAnew) {
  CChannelTable other;
  CChannelHandlers handlers(other, 0);
  handlers.Place(0, 0);
  handlers.Place(3, 90);
  EXPECT_EQ(handlers.FirstGlobalTrunk(), 3U);
  handlers.OnDigit(0, 1, '1');  // an empty table
  EXPECT_EQ(application.Take(), Posted{});
}

}  // namespace
}  // namespace zelk::test

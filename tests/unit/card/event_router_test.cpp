#include "card/event_router.h"

#include <gtest/gtest.h>

#include <map>

#include "card/card.h"
#include "recording_handlers.h"

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
    RouteEvent(core, trunk, event);
  }

  CCard card{0};
  CCardCore core{card, 0};
  CRecordingHandlers handlers;
};

using Lines = std::vector<std::string>;

TEST_F(EventRouter, HandsOutTheLow16BitsOfTheChannel) {
  core.handlers = &handlers;
  Route(2, kPriRing, -1);
  Route(3, kPriHangup, 0x10011);
  EXPECT_EQ(handlers.Lines(), (Lines{"call 2 65535 770", "call 3 17 771"}));
}

TEST_F(EventRouter, ReportsStatusesWithoutValues) {
  core.handlers = &handlers;
  Route(1, kPriDchannelUp);
  Route(1, kPriConfigError);
  Route(1, kPriDchannelDown);
  EXPECT_EQ(handlers.Lines(), (Lines{"trunk 1 257 0 0", "trunk 1 263 0 0", "trunk 1 258 0 0"}));
}

TEST_F(EventRouter, AnAnswerWithoutAControllerIsOnlyReported) {
  core.handlers = &handlers;
  Route(0, kPriAnswer, 4);
  EXPECT_EQ(handlers.Lines(), Lines{"call 0 4 779"});
}

TEST_F(EventRouter, AnEarlyDchannelUpIsReportedOnceThereAreHandlers) {
  Route(1, kPriDchannelUp);
  Route(2, kPriDchannelUp);
  Route(2, kPriDchannelDown);
  Route(3, kPriRing);
  core.handlers = &handlers;
  core.ReportEarlyDchannels();
  core.ReportEarlyDchannels();
  EXPECT_EQ(handlers.Lines(), Lines{"trunk 1 257 0 0"});
}

TEST_F(EventRouter, ADchannelUpThatWasReportedIsNotReportedAgain) {
  core.handlers = &handlers;
  Route(1, kPriDchannelUp);
  Route(1, kPriConfigError);
  core.ReportEarlyDchannels();
  EXPECT_EQ(handlers.Count("trunk 1 257 0 0"), 1U);
}

}  // namespace
}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "phone/event_queue.h"

#include <gtest/gtest.h>

#include <vector>

#include "zelk/ZelkApi.h"

namespace phone {
namespace {

using Events = std::vector<SPhoneEvent>;

CEventQueue QueueOf(const Events& events) {
  CEventQueue queue;
  for (const SPhoneEvent& event : events) {
    queue.Push(event);
  }
  return queue;
}

// What is left, as channel * 10000 + code.
std::vector<uint32_t> Rest(CEventQueue& queue) {
  std::vector<uint32_t> rest;
  for (SPhoneEvent event; queue.Take(event);) {
    rest.push_back(static_cast<uint32_t>(event.channel) * 10000 + event.code);
  }
  return rest;
}

TEST(EventQueue, ComesOutAsItWentIn) {
  CEventQueue queue = QueueOf({{1, 5, 7}, {2, 6, 8}});
  EXPECT_FALSE(queue.IsEmpty());
  SPhoneEvent event;
  ASSERT_TRUE(queue.Take(event));
  EXPECT_EQ(event.channel, 1);
  EXPECT_EQ(event.code, 5U);
  EXPECT_EQ(event.param, 7);
  ASSERT_TRUE(queue.Take(event));
  EXPECT_EQ(event.channel, 2);
  EXPECT_TRUE(queue.IsEmpty());
  EXPECT_FALSE(queue.Take(event));
}

TEST(EventQueue, TheEndOfACallGoesWithWhatItsChannelSaidBefore) {
  CEventQueue queue = QueueOf({{1, ZELK_EVENT_DTMF, '1'},
                               {2, ZELK_EVENT_INCOMING_CALL, 0},
                               {1, ZELK_EVENT_DISCONNECTED, 16},
                               {1, ZELK_EVENT_INCOMING_CALL, 0},
                               {2, ZELK_EVENT_DISCONNECTED, 16}});
  EXPECT_TRUE(queue.TakeEnd(1));
  EXPECT_FALSE(queue.TakeEnd(1));
  EXPECT_EQ(Rest(queue), (std::vector<uint32_t>{20000 + ZELK_EVENT_INCOMING_CALL, 10000 + ZELK_EVENT_INCOMING_CALL,
                                                20000 + ZELK_EVENT_DISCONNECTED}));
}

TEST(EventQueue, ALostTrunkEndsACallToo) {
  CEventQueue queue = QueueOf({{1, ZELK_EVENT_CHANNEL_STATE, 1}});
  EXPECT_FALSE(queue.TakeEnd(1));
  queue.Push({1, ZELK_EVENT_CHANNEL_STATE, 0});
  EXPECT_TRUE(queue.TakeEnd(1));
  EXPECT_TRUE(queue.IsEmpty());
}

}  // namespace
}  // namespace phone

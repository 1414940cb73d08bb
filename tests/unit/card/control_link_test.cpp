// SPDX-License-Identifier: GPL-2.0-only
#include "card/control_link.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/clock.h"
#include "support/addresses.h"
#include "support/fake_card.h"

namespace zelk {
namespace {

TEST(ControlLink, ConnectsAndSends) {
  CFakeCard card;
  ASSERT_TRUE(card.IsReady());
  CControlLink link;
  EXPECT_FALSE(link.IsOpen());
  ASSERT_TRUE(link.Connect({card.Address(), 5854}, Address("127.0.0.1"), nullptr));
  EXPECT_TRUE(link.IsOpen());
  const uint8_t message[] = {0xFF, 0x04};
  link.Send(message, sizeof message);
  EXPECT_TRUE(card.WaitFor({0xFF, 0x04}));
}

TEST(ControlLink, ARefusedConnectionFails) {
  CControlLink link;
  EXPECT_FALSE(link.Connect({Address("127.0.0.9"), 5854}, Address("127.0.0.1"), nullptr));
  EXPECT_FALSE(link.IsOpen());
}

TEST(ControlLink, AForeignLocalAddressFails) {
  CFakeCard card;
  CControlLink link;
  EXPECT_FALSE(link.Connect({card.Address(), 5854}, Address("192.0.2.1"), nullptr));
}

TEST(ControlLink, SendingWithoutAConnectionDoesNothing) {
  CControlLink link;
  const uint8_t message[] = {0xFF, 0x04};
  link.Send(message, sizeof message);
  link.Close();
  EXPECT_EQ(link.Socket(), nullptr);
}

TEST(ControlLink, CloseEndsAWait) {
  CFakeCard card;
  CControlLink link;
  ASSERT_TRUE(link.Connect({card.Address(), 5854}, Address("127.0.0.1"), nullptr));
  std::thread closer([&] { link.Close(); });
  EXPECT_EQ(link.Socket()->WaitReadable(kWaitForever), EWait::kError);
  closer.join();
  EXPECT_FALSE(link.IsOpen());
}

TEST(ControlLink, MessagesThatAreHeldBackGoTogether) {
  constexpr uint32_t kSystemHoldsMs = 150;  // 200, less what the clock and the card's thread may be off
  CFakeCard card;
  CControlLink link;
  ASSERT_TRUE(link.Connect({card.Address(), 5854}, Address("127.0.0.1"), nullptr));
  const Message message{0xFF, 0x02, 1, 0x06, 0x10, 0xFF};
  const auto sendHundred = [&] {
    for (int i = 0; i < 100; ++i) {
      link.Send(message.data(), message.size());
    }
  };
  const uint32_t start = TickMs();
  if (!link.Socket()->SetHoldsBack(true)) {
    GTEST_SKIP() << "this system has no way to hold a stream's messages back";
  }
  sendHundred();
  const int readsBefore = card.Reads();
  EXPECT_TRUE(link.Socket()->SetHoldsBack(false));
  const bool wasInTime = TickMs() - start < kSystemHoldsMs;
  ASSERT_TRUE(card.WaitFor(message, 100));
  if (wasInTime) {
    EXPECT_EQ(readsBefore, 0);
    EXPECT_EQ(card.Reads(), 1);
  }
  sendHundred();
  EXPECT_TRUE(card.WaitFor(message, 200)) << "and from then on each at once again";
}

TEST(ControlLink, ANewConnectionHasASocketOfItsOwn) {
  CFakeCard card;
  CControlLink link;
  ASSERT_TRUE(link.Connect({card.Address(), 5854}, Address("127.0.0.1"), nullptr));
  const std::shared_ptr<CSocket> first = link.Socket();
  link.Close();
  ASSERT_TRUE(link.Connect({card.Address(), 5854}, Address("127.0.0.1"), nullptr));
  EXPECT_NE(link.Socket(), first);
  EXPECT_FALSE(first->IsOpen());
  EXPECT_TRUE(link.IsOpen());
}

}  // namespace
}  // namespace zelk

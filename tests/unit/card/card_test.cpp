// SPDX-License-Identifier: GPL-2.0-only
#include "card/card.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "card_fixture.h"
#include "platform/clock.h"
#include "runtime/config.h"
#include "runtime/e1.h"
#include "support/allocation_probe.h"

namespace zelk {
namespace {

// The kinds of the messages, frames of the D-channel left out.
std::vector<Message> WithoutFrames(const std::vector<Message>& messages) {
  std::vector<Message> rest;
  std::copy_if(messages.begin(), messages.end(), std::back_inserter(rest),
               [](const Message& message) { return message[1] != 0x10; });
  return rest;
}

TEST_F(Card, OpenSendsTheStartUpMessagesInOrder) {
  CFakeCard& peer = Fake();
  ASSERT_TRUE(Open());
  ASSERT_TRUE(peer.WaitFor({0xFF, 0x05}));
  const std::vector<Message> messages = WithoutFrames(peer.Messages());
  ASSERT_EQ(messages.size(), 5U);
  EXPECT_EQ(messages[0], (Message{0xFF, 0x01}));
  EXPECT_EQ(messages[1], (Message{0xFF, 0x04}));
  EXPECT_EQ(messages[2], (Message{0xFF, 0x12, 1, 1, 0, 0, 0, 0, 0}));
  EXPECT_EQ(messages[3], (Message{0xFF, 0x12, 2, 1, 0, 0, 0, 0, 0}));
  const uint16_t port = card.Audio().LocalPort();
  EXPECT_NE(port, 0);
  EXPECT_EQ(messages[4], (Message{0xFF, 0x05, static_cast<uint8_t>(port), static_cast<uint8_t>(port >> 8), 0xFF}));
}

TEST_F(Card, TheControllersSpeakBeforeTheAudioPortIsTold) {
  CFakeCard& peer = Fake();
  ASSERT_TRUE(Open());
  ASSERT_TRUE(peer.WaitFor({0xFF, 0x05}));
  const std::vector<Message> all = peer.Messages();
  const auto position = [&](const Message& head) {
    return std::find_if(all.begin(), all.end(), [&](const Message& message) { return StartsWith(message, head); }) -
           all.begin();
  };
  EXPECT_LT(position({0xFF, 0x12, 2}), position({0xFF, 0x10, 1}));
  EXPECT_LT(position({0xFF, 0x10, 1}), position({0xFF, 0x10, 2}));
  EXPECT_LT(position({0xFF, 0x10, 2}), position({0xFF, 0x05}));
}

TEST_F(Card, OpenTakesWhatTheCardSaysOfItself) {
  Fake();
  EXPECT_EQ(card.Number(), 3U);
  ASSERT_TRUE(Open());
  EXPECT_TRUE(card.ControllersRunning());
  EXPECT_EQ(card.TrunkCount(), 2U);
  EXPECT_EQ(card.SerialNumber(), 4711U);
  EXPECT_EQ(card.FeatureFlags(), 0xDEADBEEFU);
  EXPECT_EQ(card.FirmwareVersion(), 3);
  EXPECT_EQ(card.FirmwareDate(), "20241130");
  EXPECT_EQ(card.BurnDate(), "13050900");
}

TEST_F(Card, ThePortArgumentIsNotUsed) {
  CFakeCard& peer = Fake();
  EXPECT_TRUE(card.Open(peer.Address(), 1, kLocal));
}

TEST_F(Card, OnlyTheCardsTrunksGetControllers) {
  Fake();
  ASSERT_TRUE(Open());
  for (uint32_t trunk = 0; trunk < kMaxTrunks; ++trunk) {
    const CScopedLock<CRecursiveMutex> held(card.Trunk(trunk).lock);
    EXPECT_EQ(card.Trunk(trunk).controller != nullptr, trunk < 2) << trunk;
  }
}

TEST_F(Card, ACardThatNeverAnswersIsAskedThreeTimesAndFails) {
  CFakeCard::SOptions options;
  options.answersInformation = false;
  CFakeCard& peer = Fake(options);
  const uint32_t start = TickMs();
  EXPECT_FALSE(Open());
  EXPECT_GE(TickMs() - start, 3000U);
  EXPECT_LT(TickMs() - start, 8000U);
  EXPECT_EQ(peer.Count({0xFF, 0x01}), 3U);
  EXPECT_EQ(peer.Count({0xFF, 0x04}), 0U);
  EXPECT_FALSE(card.ControllersRunning());
  EXPECT_EQ(card.SerialNumber(), 0U);
}

TEST_F(Card, BadInformationEndsTheWaitAndFails) {
  CFakeCard::SOptions options;
  options.sendsBadInformation = true;
  CFakeCard& peer = Fake(options);
  EXPECT_FALSE(Open());
  EXPECT_EQ(peer.Count({0xFF, 0x01}), 1U);
}

TEST_F(Card, ATrunkCountThatCannotBeFails) {
  for (const uint8_t trunks : {uint8_t{0}, uint8_t{9}, uint8_t{255}}) {
    CFakeCard::SOptions options;
    options.trunkCount = trunks;
    Fake(options);
    EXPECT_FALSE(Open()) << int{trunks};
    fake.reset();
  }
}

TEST_F(Card, OpenFailsWithoutAPeerOrAnAdapter) {
  Fake();
  EXPECT_FALSE(card.Open(Address("127.0.0.77"), 5854, kLocal));
  EXPECT_FALSE(card.Open(fake->Address(), 5854, Address("192.0.2.7")));
  EXPECT_TRUE(Open());
}

// Every step of an open in turn finds no memory: the card is open and works, or it is closed as after any failure.
TEST_F(Card, AnOpenWithoutMemoryFailsAndLeavesNoSerialNumber) {
  CFakeCard::SOptions options;
  options.trunkCount = 1;
  Fake(options);
  // A path that takes memory each time it is asked for, which is also when the trunks are set up.
  Config().Read("a/path/that/is/too/long/to/be/kept/in/place.ini");
  bool isOpen = false;
  size_t opened = 0;
  support::ForEachFailingAllocation([&] { isOpen = Open(); },
                                    [&](bool failed) {
                                      EXPECT_TRUE(isOpen || failed);
                                      EXPECT_EQ(card.ControllersRunning(), isOpen);
                                      EXPECT_EQ(card.SerialNumber(), isOpen ? 4711U : 0U);
                                      opened += isOpen ? 1 : 0;
                                      card.Close();
                                    });
  EXPECT_TRUE(fake->WaitFor({0xFF, 0x04}, opened + 1)) << "none failed after the card's answer";
  Config().Read("");
}

TEST_F(Card, CloseReleasesEverythingAndMayBeRepeated) {
  Fake();
  card.Close();
  ASSERT_TRUE(Open());
  card.Close();
  EXPECT_FALSE(card.ControllersRunning());
  for (uint32_t trunk = 0; trunk < kMaxTrunks; ++trunk) {
    const CScopedLock<CRecursiveMutex> held(card.Trunk(trunk).lock);
    EXPECT_EQ(card.Trunk(trunk).controller, nullptr);
  }
  card.Close();
  const uint8_t frame[5] = {};
  EXPECT_TRUE(card.SendDchannelFrame(0, frame, 5));
  card.SendTrunkConfiguration(0);
  card.SendRegisterRead(0, 1);
}

TEST_F(Card, CanBeOpenedAgainAndAgain) {
  Fake();
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(Open());
    card.Close();
  }
  EXPECT_EQ(fake->Connections(), 5);
}

TEST_F(Card, DefaultsAreTakenForAllTrunks) {
  card.SetTrunkDefaults(6, 1001, 40);
  for (uint32_t trunk = 0; trunk < kMaxTrunks; ++trunk) {
    EXPECT_EQ(card.Trunk(trunk).switchType, 6);
    EXPECT_EQ(card.Trunk(trunk).nodeType, 10);
    EXPECT_EQ(card.Trunk(trunk).numberType, 40);
  }
}

TEST_F(Card, AnOpenStartsEveryTrunkAsAUserOfEuroIsdn) {
  Fake();
  card.SetTrunkDefaults(6, 1001, 40);
  ASSERT_TRUE(Open());
  for (uint32_t trunk = 2; trunk < kMaxTrunks; ++trunk) {
    EXPECT_EQ(card.Trunk(trunk).switchType, 5) << "no section is read for a position without a trunk";
    EXPECT_EQ(card.Trunk(trunk).nodeType, 2);
  }
}

}  // namespace
}  // namespace zelk

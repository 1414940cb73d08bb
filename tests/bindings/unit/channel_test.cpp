// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "bindings/support/stand_in.h"
#include "zelk/Zelk.hpp"

namespace {

using zelkapi::Channel;
using zelkapi::Library;
using Calls = std::vector<std::string>;

class ChannelTest : public testing::Test {
 protected:
  ChannelTest() { standIn.Forget(); }

  CStandIn standIn;
  Library library;
};

TEST_F(ChannelTest, CallsTheFunctionOfItsName) {
  standIn.Forget();
  const Channel channel = library.channel(7);
  EXPECT_TRUE(channel.open());
  EXPECT_TRUE(channel.dial("0305551234", "8001"));
  EXPECT_TRUE(channel.dial("*21#+49"));
  EXPECT_TRUE(channel.answer());
  EXPECT_TRUE(channel.reject());
  EXPECT_TRUE(channel.hangup());
  EXPECT_TRUE(channel.play({1, 2, 3}));
  EXPECT_EQ(channel.playTimeLeft(), std::chrono::milliseconds(250));
  channel.stopPlay();
  EXPECT_EQ(channel.lastError(), ZELK_ERROR_BAD_FORMAT);
  channel.allowIncoming(false);
  channel.allowIncoming(true);
  channel.close();
  EXPECT_EQ(standIn.Calls(),
            (Calls{"OpenChannel 7", "Dial 7 '0305551234' '8001'", "Dial 7 '*21#+49' null", "Answer 7", "Reject 7",
                   "Hangup 7", "PlayBuffer 7 3", "PlayTimeLeft 7", "StopPlay 7", "GetLastError 7",
                   "SetChannelInfo 7 1 0", "SetChannelInfo 7 1 1", "CloseChannel 7"}));
}

TEST_F(ChannelTest, GivesTheResultOfTheFunction) {
  const Channel channel = library.channel(7);
  standIn.result = false;
  EXPECT_FALSE(channel.dial("123"));
  EXPECT_FALSE(channel.reject());
  EXPECT_FALSE(channel.play({1}));
  EXPECT_EQ(channel.lastError(), ZELK_ERROR_NONE);
}

TEST_F(ChannelTest, ANumberThatTheLineWouldChangeIsRefused) {
  standIn.Forget();
  const Channel channel = library.channel(0);
  const std::string longest(31, '9');
  for (const std::string& number : {longest + "9", std::string("030 555"), std::string("030-5"), std::string("12A"),
                                    std::string("1\0002", 3), std::string("\xC3\xA4"), std::string("1\n")}) {
    EXPECT_THROW((void)channel.dial(number), zelkapi::BadArgument) << number;
    EXPECT_THROW((void)channel.dial("123", number), zelkapi::BadArgument) << number;
  }
  EXPECT_EQ(standIn.Calls(), Calls{});
  EXPECT_TRUE(channel.dial(longest, longest));
  EXPECT_EQ(standIn.Calls().size(), 1U);
}

TEST_F(ChannelTest, OneThatDoesNotExistIsRefused) {
  standIn.Forget();
  for (const int number : {-1, CStandIn::kChannels, 1024, std::numeric_limits<int>::min()}) {
    EXPECT_THROW(library.channel(number), zelkapi::BadChannel);
    const Channel channel(number);
    EXPECT_THROW(channel.answer(), zelkapi::BadChannel);
    EXPECT_THROW((void)channel.dial("1"), zelkapi::BadChannel);
    EXPECT_THROW(channel.text(ZELK_INFO_CLI), zelkapi::BadChannel);
    EXPECT_THROW(channel.info(ZELK_INFO_TRUNK), zelkapi::BadChannel);
    EXPECT_THROW(channel.playFile("none.wav"), zelkapi::BadChannel);
    EXPECT_THROW(channel.recordOn(1), zelkapi::BadChannel);
    EXPECT_THROW(channel.readSound(), zelkapi::BadChannel);
  }
  EXPECT_EQ(standIn.Calls(), Calls{});
}

TEST_F(ChannelTest, HasTextsAndNumbers) {
  const Channel channel = library.channel(7);
  EXPECT_EQ(channel.callingNumber(), std::string(12, 'C'));
  EXPECT_EQ(channel.calledNumber(), std::string(13, 'D'));
  EXPECT_EQ(channel.redirectingNumber(), std::string(14, 'E'));
  EXPECT_EQ(channel.text(ZELK_INFO_TRUNK), "");
  EXPECT_EQ(channel.trunk(), 7262U);
  EXPECT_EQ(channel.timeslot(), 7263U);
  EXPECT_EQ(channel.serialNumber(), 7001U);
}

// The stand-in writes a text a character at a time where the one before stood, and numbers spoil it.
TEST_F(ChannelTest, TextsAreWholeWhateverOtherThreadsAskFor) {
  std::atomic<int> spoilt{0};
  std::vector<std::thread> threads;
  for (uint32_t key = 2; key < 6; ++key) {
    threads.emplace_back([&, key] {
      const std::string expected(10 + key, static_cast<char>('A' + key));
      for (int i = 0; i < 5000; ++i) {
        spoilt += library.channel(1).text(static_cast<ZelkInfo>(key)) == expected ? 0 : 1;
        library.channel(1).trunk();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(spoilt, 0);
}

TEST_F(ChannelTest, KeepsItsSound) {
  const Channel channel = library.channel(7);
  EXPECT_THROW(channel.readSound(), zelkapi::NotRecording);
  channel.recordOn(2);
  for (const uint8_t fill : std::initializer_list<uint8_t>{1, 2, 3}) {
    standIn.BringSound(7, fill);
  }
  standIn.BringSound(7, std::vector<uint8_t>(80, 4));  // no block
  EXPECT_EQ(channel.readSound().alaw.size(), size_t{2} * ZELK_BLOCK_BYTES);
  EXPECT_EQ(library.sound().lost(7), 1U);
  channel.recordOff();
  EXPECT_THROW(channel.readSound(), zelkapi::NotRecording);
}

TEST_F(ChannelTest, AFileThatCannotBePlayedIsNotQueued) {
  standIn.Forget();
  EXPECT_THROW(library.channel(0).playFile("/nonexistent/prompt.wav"), zelkapi::WavError);
  EXPECT_EQ(standIn.Calls(), Calls{});
}

}  // namespace

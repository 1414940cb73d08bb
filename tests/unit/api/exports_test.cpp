// SPDX-License-Identifier: GPL-2.0-only

// The exports are compiled into the shared library alone, so that nothing else is exported; here they become part of
// the test program, with the library's inside in reach.
#include "api/exports.cpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <limits>

namespace {

constexpr int32_t kBadChannels[] = {
    -1, 2, 1023, 1024, 1025, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()};

// Two channels of a card that is not open.
class Exports : public ::testing::Test {
 protected:
  Exports() : card(0) {
    for (uint32_t channel = 0; channel < 2; ++channel) {
      Library().Channels().Add(std::make_unique<CDevice>(card, zelk::SDevicePlace{0, 0, channel + 1, channel}));
    }
  }
  ~Exports() override { Library().Channels().Clear(); }

  CDevice& Channel(int32_t channel) { return *Library().Channels().Find(channel); }

  zelk::CCard card;
};

void ExpectEveryExportFails(int32_t channel) {
  EXPECT_FALSE(ZELK_OpenChannel(channel));
  ZELK_CloseChannel(channel);
  EXPECT_EQ(ZELK_GetLastError(channel), uint32_t{ZELK_ERROR_BAD_CHANNEL});
  EXPECT_EQ(ZELK_GetChannelInfo(channel, ZELK_INFO_LINETYPE), 0U);
  EXPECT_EQ(ZELK_GetChannelInfoString(channel, ZELK_INFO_LINETYPE), nullptr);
  EXPECT_EQ(ZELK_SetChannelInfo(channel, ZELK_SET_ALLOWINCOMING, 1), 0U);
  EXPECT_EQ(ZELK_SetChannelInfoString(channel, 1, "1"), 0U);
  EXPECT_FALSE(ZELK_Reject(channel));
  EXPECT_FALSE(ZELK_Answer(channel));
  EXPECT_FALSE(ZELK_Hangup(channel));
  EXPECT_FALSE(ZELK_Dial(channel, "1", "2"));
  EXPECT_FALSE(ZELK_Transfer(channel));
  EXPECT_FALSE(ZELK_PlayBuffer(channel, "x", 1));
  EXPECT_FALSE(ZELK_PlayFile(channel, "x.wav"));
  EXPECT_EQ(ZELK_PlayTimeLeft(channel), 0U);
  ZELK_StopPlay(channel);
}

TEST(ExportsBeforeInit, EveryChannelIsBad) {
  EXPECT_EQ(ZELK_GetChannelCount(), 0);
  for (const int32_t channel : kBadChannels) {
    ExpectEveryExportFails(channel);
  }
  ExpectEveryExportFails(0);
  ZELK_Shutdown();
  EXPECT_STREQ(ZELK_DisconnectReasonToString(16), "NORMAL_CLEARING");
  EXPECT_STREQ(ZELK_DisconnectReasonToString(0), "REASON_UNKNOWN");
}

TEST_F(Exports, BadChannelsFailAndTouchNoChannel) {
  Channel(0).SetLastError(7);
  Channel(1).SetLastError(7);
  for (const int32_t channel : kBadChannels) {
    ExpectEveryExportFails(channel);
  }
  EXPECT_EQ(ZELK_GetLastError(0), 7U);
  EXPECT_EQ(ZELK_GetLastError(1), 7U);
}

TEST_F(Exports, EveryExportOfAChannelClearsItsLastError) {
  void (*const calls[])(int32_t) = {
      [](int32_t channel) { ZELK_OpenChannel(channel); },
      [](int32_t channel) { ZELK_CloseChannel(channel); },
      [](int32_t channel) { ZELK_GetChannelInfo(channel, 999); },
      [](int32_t channel) { ZELK_GetChannelInfoString(channel, 999); },
      [](int32_t channel) { ZELK_SetChannelInfo(channel, 999, 0); },
      [](int32_t channel) { ZELK_Reject(channel); },
      [](int32_t channel) { ZELK_Answer(channel); },
      [](int32_t channel) { ZELK_Hangup(channel); },
      [](int32_t channel) { ZELK_Dial(channel, "1", nullptr); },
      [](int32_t channel) { ZELK_Transfer(channel); },
      [](int32_t channel) { ZELK_PlayBuffer(channel, nullptr, 0); },
      [](int32_t channel) { ZELK_PlayTimeLeft(channel); },
      [](int32_t channel) { ZELK_StopPlay(channel); },
  };
  for (const auto call : calls) {
    Channel(1).SetLastError(7);
    Channel(0).SetLastError(7);
    call(1);
    EXPECT_EQ(ZELK_GetLastError(1), 0U) << &call - calls;
    EXPECT_EQ(ZELK_GetLastError(0), 7U);
  }
}

TEST_F(Exports, ReadingTheLastErrorKeepsIt) {
  Channel(0).SetLastError(3);
  EXPECT_EQ(ZELK_GetLastError(0), 3U);
  EXPECT_EQ(ZELK_GetLastError(0), 3U);
}

TEST_F(Exports, SetChannelInfoStringDoesNothingAtAll) {
  Channel(0).SetLastError(3);
  EXPECT_EQ(ZELK_SetChannelInfoString(0, ZELK_SET_ALLOWINCOMING, "0"), 0U);
  EXPECT_EQ(ZELK_SetChannelInfoString(0, -1, nullptr), 0U);
  EXPECT_EQ(ZELK_GetLastError(0), 3U);
  EXPECT_TRUE(Channel(0).AllowsIncoming());
}

TEST_F(Exports, OpeningTwiceAndClosing) {
  EXPECT_EQ(ZELK_GetChannelCount(), 2);
  EXPECT_TRUE(ZELK_OpenChannel(0));
  EXPECT_TRUE(ZELK_OpenChannel(0));
  EXPECT_TRUE(Channel(0).IsOpen());
  Channel(0).Call().TrunkUp();
  ZELK_CloseChannel(0);
  EXPECT_FALSE(Channel(0).IsOpen());
  EXPECT_EQ(ZELK_GetChannelInfo(0, ZELK_INFO_CHANNELSTATE), uint32_t{ZELK_CHANNEL_DOWN});
}

TEST_F(Exports, InformationByNumberAndText) {
  EXPECT_STREQ(ZELK_GetChannelInfoString(0, ZELK_INFO_LINETYPE), "PRI");
  EXPECT_EQ(ZELK_GetChannelInfoString(0, 8), nullptr);
  EXPECT_EQ(ZELK_GetChannelInfo(1, ZELK_INFO_TIMESLOT), 2U);
  EXPECT_EQ(ZELK_GetChannelInfo(1, ZELK_INFO_DIRECTION), 79U);
  EXPECT_EQ(ZELK_SetChannelInfo(0, ZELK_SET_ALLOWINCOMING, 0), 1U);
  EXPECT_FALSE(Channel(0).AllowsIncoming());
  EXPECT_EQ(ZELK_SetChannelInfo(0, 2, 1), 0U);
}

TEST_F(Exports, CallOperationsWithoutATrunk) {
  EXPECT_FALSE(ZELK_Dial(0, "1", "2"));
  EXPECT_FALSE(ZELK_Dial(0, nullptr, nullptr));
  EXPECT_TRUE(ZELK_Answer(0));
  EXPECT_FALSE(ZELK_Reject(0));
  EXPECT_TRUE(ZELK_Hangup(0));
  EXPECT_FALSE(ZELK_Transfer(0));
  EXPECT_EQ(ZELK_GetLastError(0), 0U);
}

TEST_F(Exports, PlayingBuffers) {
  ASSERT_TRUE(ZELK_OpenChannel(0));
  const std::string sound(800, '\x55');
  EXPECT_TRUE(ZELK_PlayBuffer(0, sound.data(), 800));
  EXPECT_EQ(ZELK_PlayTimeLeft(0), 100U);
  EXPECT_TRUE(ZELK_PlayBuffer(0, nullptr, 0));
  EXPECT_FALSE(ZELK_PlayBuffer(0, nullptr, 1));
  EXPECT_EQ(ZELK_GetLastError(0), 0U);
  ZELK_StopPlay(0);
  EXPECT_EQ(ZELK_PlayTimeLeft(0), 0U);
  EXPECT_FALSE(ZELK_PlayBuffer(0, sound.data(), 0xFFFFFFFFU));
  EXPECT_EQ(ZELK_GetLastError(0), uint32_t{ZELK_ERROR_NO_MEMORY});
}

TEST_F(Exports, PlayingFilesReportsThroughTheLastError) {
  EXPECT_FALSE(ZELK_PlayFile(0, "/nowhere/there is none.wav"));
  EXPECT_EQ(ZELK_GetLastError(0), uint32_t{ZELK_ERROR_FILE_OPEN});
  EXPECT_FALSE(ZELK_PlayFile(0, nullptr));
  EXPECT_EQ(ZELK_GetLastError(0), uint32_t{ZELK_ERROR_FILE_OPEN});
  EXPECT_EQ(ZELK_GetLastError(1), 0U);
}

TEST_F(Exports, ConvertingNeedsNoChannel) {
  const auto path = std::filesystem::temp_directory_path() / "zelk-exports-test.raw";
  std::ofstream(path, std::ios::binary) << std::string(1044, '\xD5');
  EXPECT_EQ(ZELK_ConvertRawToWaveFile(path.string().c_str(), 3), uint32_t{ZELK_ERROR_BAD_FORMAT});
  EXPECT_EQ(ZELK_ConvertRawToWaveFile(path.string().c_str(), ZELK_FORMAT_ALAW), uint32_t{ZELK_ERROR_NONE});
  ASSERT_TRUE(ZELK_OpenChannel(0));
  EXPECT_TRUE(ZELK_PlayFile(0, path.string().c_str()));
  EXPECT_EQ(ZELK_PlayTimeLeft(0), 125U);
  std::filesystem::remove(path);
  EXPECT_EQ(ZELK_ConvertRawToWaveFile(path.string().c_str(), ZELK_FORMAT_ALAW), uint32_t{ZELK_ERROR_FILE_OPEN});
  EXPECT_EQ(ZELK_ConvertRawToWaveFile(nullptr, ZELK_FORMAT_ALAW), uint32_t{ZELK_ERROR_FILE_OPEN});
}

int events = 0;

TEST_F(Exports, CallbacksAreStoredAtAnyTimeAndNeverCleared) {
  events = 0;
  ZELK_SetEventCallback([](int32_t, uint32_t, int32_t) { ++events; });
  ZELK_SetPlayCallback([](uint32_t, uint8_t*, uint32_t) { events += 10; });
  ZELK_SetRecordCallback([](uint32_t, const uint8_t*, uint32_t) { events += 100; });
  EXPECT_TRUE(ZELK_Init());
  EXPECT_TRUE(ZELK_Init());
  ZELK_Shutdown();
  ZELK_Shutdown();
  uint8_t block[160] = {};
  ApplicationEvents().Post(0, zelk::EVENT_DTMF, 0);
  ApplicationEvents().PlayCallback()(0, block, 160);
  ApplicationEvents().Record(0, block, 160);
  EXPECT_EQ(events, 111);
  ZELK_SetEventCallback(nullptr);
  ZELK_SetPlayCallback(nullptr);
  ZELK_SetRecordCallback(nullptr);
  ApplicationEvents().Post(0, zelk::EVENT_DTMF, 0);
  EXPECT_EQ(events, 111);
}

}  // namespace

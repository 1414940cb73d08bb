// SPDX-License-Identifier: GPL-2.0-only
#include "call/channel_info.h"

#include <thread>

#include "call_fixture.h"

namespace zelk::test {
namespace {

class ChannelInfo : public CCallFixture {
 protected:
  std::string Text(int32_t channel, uint32_t code) {
    const char* text = InfoString(Channel(channel), code, table.Count());
    return text != nullptr ? text : "(null)";
  }
  uint32_t Number(int32_t channel, uint32_t code) { return InfoNumber(Channel(channel), code); }
};

TEST_F(ChannelInfo, NumbersOfTheCallAreReadByKeyAndCode) {
  SPriEvent ring;
  ring.callingNumber = "111";
  ring.calledNumber = "222";
  ring.redirectingNumber = "333";
  Raise(8, kPriRing, ring);
  EXPECT_EQ(Info(7, "CLI") + Info(7, "DLI") + Info(7, "RLI"), "111222333");
  EXPECT_EQ(Text(7, 2) + Text(7, 3) + Text(7, 4), "111222333");
  EXPECT_EQ(Number(7, 2) + Number(7, 3) + Number(7, 4), 0U);
}

TEST_F(ChannelInfo, ConstantAndPlaceTexts) {
  EXPECT_EQ(Info(15, "CHANNEL"), "18");  // timeslot 17
  EXPECT_EQ(Info(0, "CHANNEL"), "2");
  EXPECT_EQ(Info(0, "CLITYPE"), "DIGITAL");
  EXPECT_EQ(Info(0, "INPUTTYPE"), "");
  EXPECT_EQ(Info(0, "FOO"), "");
  EXPECT_EQ(Info(0, "cli"), "");
  EXPECT_EQ(Info(0, ""), "");
}

TEST_F(ChannelInfo, PhysicalPortsAreThoseOfTheWholeLibrary) {
  EXPECT_EQ(Info(0, "PHYSICALPORTS"), "5");
  EXPECT_EQ(Info(149, "PHYSICALPORTS"), "5");
  EXPECT_STREQ(GetInfo(Channel(0), "PHYSICALPORTS", 60), "2");
  EXPECT_STREQ(GetInfo(Channel(0), "PHYSICALPORTS", 59), "1");
}

TEST_F(ChannelInfo, CardTextsAreThoseOfItsOpening) {
  firstCard.RestoreSerialNumber(100234);
  CDevice device(firstCard, SDevicePlace{0, 0, 1, 0});
  EXPECT_STREQ(GetInfo(device, "SERIALNO", 30), "100234");
  EXPECT_STREQ(InfoString(device, 1, 30), "100234");
  EXPECT_EQ(InfoNumber(device, 1), 100234U);
  firstCard.RestoreSerialNumber(4294967295U);
  CDevice largest(firstCard, SDevicePlace{0, 0, 1, 0});
  EXPECT_STREQ(GetInfo(largest, "SERIALNO", 30), "4294967295");
  EXPECT_EQ(InfoNumber(largest, 1), 4294967295U);
  EXPECT_EQ(Text(0, 259), std::to_string(firstCard.FirmwareVersion()));
  EXPECT_EQ(Text(0, 260), firstCard.FirmwareDate());
  EXPECT_EQ(Text(0, 261), firstCard.BurnDate());
  EXPECT_EQ(Info(0, "FEATUREFLAGS"), std::to_string(firstCard.FeatureFlags()));
}

TEST_F(ChannelInfo, DirectionIsOutgoingBelowOne) {
  EXPECT_EQ(Text(0, 5), "OUTGOING");
  EXPECT_EQ(Number(0, 5), 79U);
  CDevice below(firstCard, SDevicePlace{0, 0, 1, 0}, -1);
  EXPECT_STREQ(InfoString(below, 5, 30), "OUTGOING");
  EXPECT_EQ(InfoNumber(below, 5), 79U);
  CDevice incoming(firstCard, SDevicePlace{0, 0, 1, 0}, 1);  // nothing in the library makes one
  EXPECT_STREQ(InfoString(incoming, 5, 30), "INCOMING");
  EXPECT_EQ(InfoNumber(incoming, 5), 73U);
}

TEST_F(ChannelInfo, ChannelStateFollowsLinkAndCall) {
  EXPECT_EQ(Text(0, 6), "DOWN");
  EXPECT_EQ(Number(0, 6), 2U);
  firstHandlers.OnDchannelUp(0, caller);
  EXPECT_EQ(Text(0, 6), "READY");
  EXPECT_EQ(Number(0, 6), 3U);
  Raise(1, kPriRing, OfCall(kNobodysCall));
  EXPECT_EQ(Text(0, 6), "INUSE");
  EXPECT_EQ(Number(0, 6), 4U);
  Channel(0).Open();
  Channel(0).Close();
  EXPECT_EQ(Text(0, 6), "DOWN");
  ASSERT_NE(View(0).callHandle, nullptr);
  SCallView neither;
  neither.linkState = 0;
  EXPECT_STREQ(ChannelState(neither).text, "UNKNOWN");
  EXPECT_EQ(ChannelState(neither).code, 1U);
}

TEST_F(ChannelInfo, CallTypesHaveTheirNumbers) {
  const std::pair<const char*, uint32_t> types[] = {{"", 0},
                                                    {"Voice", 0},
                                                    {"Voice RedirectBusy", 1},
                                                    {"Voice RedirectNoReply", 2},
                                                    {"Voice RedirectUnconditional", 3},
                                                    {"Voice RedirectDeflected", 4},
                                                    {"Voice RedirectOutOfOrder", 5},
                                                    {"Voice RedirectForwarded", 6},
                                                    {"Voice RedirectUnknown", 7}};
  for (const auto& [text, number] : types) {
    Channel(0).NoteOffered({}, text);
    EXPECT_EQ(Text(0, 7), text);
    EXPECT_EQ(Number(0, 7), number) << text;
  }
}

TEST_F(ChannelInfo, OpenTypeIsTheQueuesFormat) {
  EXPECT_EQ(Text(0, 258), "ALAW");
  EXPECT_EQ(Number(0, 258), 2U);
  SWaveFormat format;
  format.formatTag = 7;
  Channel(0).Wave().SetFormat(format);
  EXPECT_EQ(Text(0, 258), "MULAW");
  EXPECT_EQ(Number(0, 258), 1U);
  format.formatTag = 99;
  Channel(0).Wave().SetFormat(format);
  EXPECT_EQ(Text(0, 258), "");
  EXPECT_EQ(Number(0, 258), 2U);
}

TEST_F(ChannelInfo, LineTypeTrunkAndTimeslot) {
  EXPECT_EQ(Text(0, 257), "PRI");
  EXPECT_EQ(Number(0, 257), 1U);
  EXPECT_EQ(Number(119, 262), 3U);
  EXPECT_EQ(Number(119, 263), 31U);
  EXPECT_EQ(Number(14, 263), 15U);
}

TEST_F(ChannelInfo, OtherCodesHaveNothing) {
  for (const uint32_t code : {0U, 8U, 9U, 73U, 256U, 262U, 263U, 264U, 0xFFFFFFFFU}) {
    EXPECT_EQ(InfoString(Channel(0), code, table.Count()), nullptr) << code;
  }
  for (const uint32_t code : {0U, 2U, 3U, 4U, 8U, 256U, 259U, 260U, 261U, 264U, 0xFFFFFFFFU}) {
    EXPECT_EQ(Number(0, code), 0U) << code;
  }
}

TEST_F(ChannelInfo, TextLivesInTheChannelUntilItsNextRequest) {
  const char* text = GetInfo(Channel(0), "CLITYPE", 0);
  GetInfo(Channel(1), "CHANNELSTATE", 0);
  EXPECT_STREQ(text, "DIGITAL");
}

TEST_F(ChannelInfo, SettingByKey) {
  EXPECT_TRUE(SetInfo(Channel(0), "DIALCLI", "555"));
  EXPECT_EQ(Channel(0).DialCli(), "555");
  EXPECT_FALSE(SetInfo(Channel(0), "ALLOWINCOMING", "0"));
  EXPECT_FALSE(Channel(0).AllowsIncoming());
  EXPECT_FALSE(SetInfo(Channel(0), "ALLOWINCOMING", "-3"));
  EXPECT_TRUE(Channel(0).AllowsIncoming());
  EXPECT_FALSE(SetInfo(Channel(0), "ALLOWINCOMING", "no"));
  EXPECT_FALSE(Channel(0).AllowsIncoming());
  EXPECT_FALSE(SetInfo(Channel(0), "CLI", "1"));
  EXPECT_EQ(Info(0, "CLI"), "");
}

TEST_F(ChannelInfo, SettingByCode) {
  EXPECT_EQ(SetInfoNumber(Channel(0), 1, 0), 1U);
  EXPECT_FALSE(Channel(0).AllowsIncoming());
  EXPECT_EQ(SetInfoNumber(Channel(0), 2, 1), 0U);
  EXPECT_FALSE(Channel(0).AllowsIncoming());
  EXPECT_EQ(SetInfoNumber(Channel(0), 1, -5), 1U);
  EXPECT_TRUE(Channel(0).AllowsIncoming());
  EXPECT_EQ(SetInfoNumber(Channel(0), -1, 0), 0U);
  EXPECT_TRUE(Channel(0).AllowsIncoming());
}

}  // namespace
}  // namespace zelk::test

// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/base/control_parser.h"

#include <gtest/gtest.h>

namespace cardsim {
namespace {

std::vector<SControlMessage> Parse(const Bytes& stream, std::size_t split) {
  std::vector<SControlMessage> messages;
  CControlParser parser([&](SControlMessage&& message) { messages.push_back(std::move(message)); });
  parser.Feed(ByteView(stream).first(split));
  parser.Feed(ByteView(stream).subspan(split));
  return messages;
}

const Bytes kAll{0xFF, 0x01, 0xFF, 0x02, 0x01, 0x06, 0x10, 0xFF, 0xFF, 0x04, 0xFF, 0x05, 0x34, 0x12, 0xFF, 0xFF, 0x10,
                 0x08, 0x03, 0x00, 0xFF, 0x01, 0x10, 0xFF, 0xFF, 0x12, 0x01, 0x01, 0x07, 0,    0,    0,    0};

TEST(ControlParser, TakesEveryMessageWhateverThePieces) {
  const std::vector<std::pair<EControlType, std::size_t>> expected{
      {EControlType::kInformationRequest, 2}, {EControlType::kRegisterRead, 6}, {EControlType::kStart, 2},
      {EControlType::kAudioPort, 5},          {EControlType::kFrame, 9},        {EControlType::kTrunkConfiguration, 9}};
  for (std::size_t split = 0; split <= kAll.size(); ++split) {
    const auto messages = Parse(kAll, split);
    ASSERT_EQ(messages.size(), expected.size()) << split;
    for (std::size_t i = 0; i < expected.size(); ++i) {
      EXPECT_TRUE(messages[i].Is(expected[i].first)) << split << " " << i;
      EXPECT_EQ(messages[i].bytes.size(), expected[i].second) << split << " " << i;
    }
  }
}

TEST(ControlParser, KeepsTheBytesOfAFrameThatLookLikeALead) {
  const auto messages = Parse(kAll, 0);
  EXPECT_EQ(messages[4].bytes, (Bytes{0xFF, 0x10, 0x08, 0x03, 0x00, 0xFF, 0x01, 0x10, 0xFF}));
}

TEST(ControlParser, ReportsBrokenMessagesAndGoesOn) {
  const std::vector<Bytes> broken{
      {0x00},                                      // no lead
      {0xFF, 0x33},                                // unknown type
      {0xFF, 0x05, 0x34, 0x12, 0x00},              // bad end
      {0xFF, 0x02, 0x09, 0x06, 0x10, 0xFF},        // trunk 9
      {0xFF, 0x10, 0x00, 0x01, 0x00, 0x55, 0xFF},  // trunk 0
      {0xFF, 0x10, 0x01, 0x2D, 0x01},              // 301 bytes
      {0xFF, 0x12, 0x01, 0x02, 0, 0, 0, 0, 0},     // constant is not 1
      {0xFF, 0x12, 0x01, 0x01, 0, 0, 0, 0, 1},     // last four not 0
  };
  for (const Bytes& bytes : broken) {
    Bytes stream = bytes;
    stream.insert(stream.end(), {0xFF, 0x04});
    const auto messages = Parse(stream, 1);
    ASSERT_EQ(messages.size(), 2U) << testing::PrintToString(bytes);
    EXPECT_FALSE(messages[0].wellFormed) << testing::PrintToString(bytes);
    EXPECT_EQ(messages[0].bytes, bytes);
    EXPECT_TRUE(messages[1].Is(EControlType::kStart)) << testing::PrintToString(bytes);
  }
}

TEST(ControlParser, LongestFrameIsTaken) {
  Bytes stream{0xFF, 0x10, 0x01, 0x2C, 0x01};
  stream.resize(stream.size() + 300, 0xAB);
  stream.push_back(0xFF);
  const auto messages = Parse(stream, 100);
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_TRUE(messages[0].Is(EControlType::kFrame));
}

}  // namespace
}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#include "card/control_parser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "card/control_messages.h"

namespace zelk {
namespace {

using Bytes = std::vector<uint8_t>;

std::string Hex(const uint8_t* bytes, size_t length) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < length; ++i) {
    text += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]};
  }
  return text;
}

// Writes every message down as a line.
class CRecordingSink : public IControlSink {
 public:
  void OnInformation(const uint8_t (&body)[kCardInformationBytes]) override {
    lines.push_back("info " + Hex(body, sizeof body));
  }
  uint32_t StatusTrunkCount() const override { return trunkCount; }
  void OnLineStatus(uint32_t trunk, uint8_t status) override {
    lines.push_back("line " + std::to_string(trunk) + " " + std::to_string(status));
  }
  void OnRegister(uint8_t trunk, uint16_t registerNumber, uint8_t value) override {
    lines.push_back("register " + std::to_string(trunk) + " " + std::to_string(registerNumber) + " " +
                    std::to_string(value));
  }
  void OnFrame(uint32_t trunk, const uint8_t* frame, size_t length) override {
    lines.push_back("frame " + std::to_string(trunk) + " " + Hex(frame, length));
  }
  void OnHdlcError(uint8_t trunk, uint8_t code) override {
    lines.push_back("hdlc " + std::to_string(trunk) + " " + std::to_string(code));
  }

  uint32_t trunkCount = 2;
  std::vector<std::string> lines;
};

std::vector<std::string> Parse(const Bytes& stream, uint32_t trunkCount = 2) {
  CRecordingSink sink;
  sink.trunkCount = trunkCount;
  CControlParser(sink).Feed(stream.data(), stream.size());
  return sink.lines;
}

using Lines = std::vector<std::string>;

Bytes Information() {
  Bytes message{0xFF, 0x01};
  for (uint8_t i = 0; i < kCardInformationBytes; ++i) {
    message.push_back(static_cast<uint8_t>(i + 0x10));
  }
  return message;
}

Bytes Frame(uint8_t wireTrunk, size_t length) {
  Bytes message{0xFF, 0x10, wireTrunk, static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8)};
  for (size_t i = 0; i < length; ++i) {
    message.push_back(static_cast<uint8_t>(i));
  }
  return message;
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

TEST(ControlParser, HandsOutTheInformationBody) {
  EXPECT_EQ(Parse(Information()), Lines{"info 101112131415161718191a1b1c1d1e1f202122232425"});
}

TEST(ControlParser, SkipsBytesOutsideMessages) {
  EXPECT_EQ(Parse(Bytes{0x00, 0x07, 0x10} + Bytes{0xFF, 0x11, 1, 3}), Lines{"hdlc 1 3"});
}

TEST(ControlParser, TakesEveryMessageOfOneChunk) {
  EXPECT_EQ(Parse(Bytes{0xFF, 0x07, 0, 3} + Bytes{0xFF, 0x11, 0, 2} + Frame(1, 2)),
            (Lines{"line 0 0", "line 1 3", "hdlc 0 2", "frame 0 0001"}));
}

TEST(ControlParser, UnknownTypeKeepsTheTypeState) {
  EXPECT_EQ(Parse({0xFF, 0x09, 0x07, 1, 2}), (Lines{"line 0 1", "line 1 2"}));
}

TEST(ControlParser, MarkerInTypeStateIsAnUnknownType) {
  EXPECT_EQ(Parse({0xFF, 0xFF, 0xFF, 0x11, 4, 8}), Lines{"hdlc 4 8"});
}

TEST(ControlParser, RegisterReadBackLeavesTheTypeState) {
  EXPECT_EQ(Parse({0xFF, 0x02, 1, 0x06, 0x10, 0xAB, 0x07, 0, 1}),
            (Lines{"register 1 4102 171", "line 0 0", "line 1 1"}));
}

TEST(ControlParser, SeveralRegisterReadBacksNeedOneMarkerOnly) {
  EXPECT_EQ(Parse({0xFF, 0x02, 0, 1, 0, 9, 0x02, 1, 2, 0, 8}), (Lines{"register 0 1 9", "register 1 2 8"}));
}

TEST(ControlParser, RegisterTrunkIsNotChecked) {
  EXPECT_EQ(Parse({0xFF, 0x02, 200, 1, 0, 9}), Lines{"register 200 1 9"});
}

TEST(ControlParser, MarkerInsideABodyIsData) {
  EXPECT_EQ(Parse({0xFF, 0x10, 1, 3, 0, 0xFF, 0x07, 0xFF}), Lines{"frame 0 ff07ff"});
}

TEST(ControlParser, TrunkStatusEndsAtTheTrunkCount) {
  EXPECT_EQ(Parse({0xFF, 0x07, 1, 2, 3, 0xFF, 0x11, 0, 1}, 3), (Lines{"line 0 1", "line 1 2", "line 2 3", "hdlc 0 1"}));
}

TEST(ControlParser, TrunkStatusBeforeTheTrunkCountIsKnownTakesNineBytes) {
  const Lines lines = Parse({0xFF, 0x07, 1, 1, 1, 1, 1, 1, 1, 1, 0xFF, 0xFF, 0x11, 0, 1}, 0);
  ASSERT_EQ(lines.size(), 9U);
  EXPECT_EQ(lines[7], "line 7 1");
  EXPECT_EQ(lines[8], "hdlc 0 1");
}

TEST(ControlParser, EightTrunksAreTheMost) {
  const Lines lines = Parse({0xFF, 0x07, 0, 1, 2, 3, 4, 5, 6, 7, 0xFF, 0x11, 0, 1}, 8);
  ASSERT_EQ(lines.size(), 9U);
  EXPECT_EQ(lines[8], "hdlc 0 1");
}

TEST(ControlParser, FrameTrunkOutsideOneToEightIsDropped) {
  EXPECT_EQ(Parse(Bytes{0xFF, 0x10, 0, 0xFF, 0x11, 1, 1}), Lines{"hdlc 1 1"});
  EXPECT_EQ(Parse(Bytes{0xFF, 0x10, 9, 0xFF, 0x11, 1, 1}), Lines{"hdlc 1 1"});
  EXPECT_EQ(Parse(Frame(8, 1)), Lines{"frame 7 00"});
}

TEST(ControlParser, FrameOf299BytesIsTaken) {
  const Lines lines = Parse(Frame(2, 299));
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].size(), std::string("frame 1 ").size() + 2 * 299);
}

TEST(ControlParser, FrameOf300BytesIsDroppedAtItsLength) {
  EXPECT_EQ(Parse(Bytes{0xFF, 0x10, 1, 0x2C, 0x01} + Bytes{0xFF, 0x11, 2, 2}), Lines{"hdlc 2 2"});
  EXPECT_EQ(Parse(Bytes{0xFF, 0x10, 1, 0xFF, 0xFF} + Bytes{0xFF, 0x11, 2, 2}), Lines{"hdlc 2 2"});
}

TEST(ControlParser, FrameOfNoBytesIsCompleteAtOnce) {
  EXPECT_EQ(Parse(Bytes{0xFF, 0x10, 1, 0, 0} + Bytes{0xFF, 0x11, 2, 2}), Lines{"hdlc 2 2"});
}

TEST(ControlParser, HdlcErrorTrunkIsHandedOutAsItCame) {
  EXPECT_EQ(Parse({0xFF, 0x11, 0xFF, 7}), Lines{"hdlc 255 7"});
}

TEST(ControlParser, EverySplitPointGivesTheSameMessages) {
  const Bytes stream = Bytes{0x00} + Information() + Bytes{0xFF, 0x09, 0x07, 1, 2} + Frame(1, 3) +
                       Bytes{0xFF, 0x02, 1, 2, 3, 4, 0x11, 1, 9};
  const Lines whole = Parse(stream);
  ASSERT_EQ(whole.size(), 6U);
  for (size_t split = 0; split <= stream.size(); ++split) {
    CRecordingSink sink;
    CControlParser parser(sink);
    parser.Feed(stream.data(), split);
    parser.Feed(stream.data() + split, stream.size() - split);
    EXPECT_EQ(sink.lines, whole) << "split at " << split;
  }
}

// Streams of messages, broken messages and noise.
Bytes RandomStream(std::mt19937& random) {
  const auto byte = [&] { return static_cast<uint8_t>(random() & 0xFF); };
  Bytes stream;
  for (int part = 0; part < 30; ++part) {
    switch (random() % 8) {
      case 0:
        stream = stream + Information();
        break;
      case 1:
        stream = stream + Bytes{0xFF, 0x02, byte(), byte(), byte(), byte()};
        break;
      case 2:
        stream = stream + Bytes{0xFF, 0x07, byte(), byte()};
        break;
      case 3:
        stream = stream + Frame(static_cast<uint8_t>(random() % 11), random() % 310);
        break;
      case 4:
        stream = stream + Bytes{0xFF, 0x11, byte(), byte()};
        break;
      case 5:
        stream = stream + Bytes{0xFF, byte(), byte()};
        break;
      default:
        stream.push_back(byte());
    }
  }
  return stream;
}

TEST(ControlParser, RandomChunksOfRandomStreamsGiveTheUnchunkedResult) {
  std::mt19937 random(20240307);
  for (int round = 0; round < 300; ++round) {
    const Bytes stream = RandomStream(random);
    const auto trunkCount = static_cast<uint32_t>(random() % 9);
    CRecordingSink sink;
    sink.trunkCount = trunkCount;
    CControlParser parser(sink);
    for (size_t position = 0; position < stream.size();) {
      const size_t chunk = std::min<size_t>(1 + random() % 40, stream.size() - position);
      parser.Feed(stream.data() + position, chunk);
      position += chunk;
    }
    ASSERT_EQ(sink.lines, Parse(stream, trunkCount)) << "round " << round;
  }
}

TEST(ControlParser, SingleBytesGiveTheUnchunkedResult) {
  std::mt19937 random(5854);
  const Bytes stream = RandomStream(random);
  CRecordingSink sink;
  CControlParser parser(sink);
  for (const uint8_t byte : stream) {
    parser.Feed(&byte, 1);
  }
  EXPECT_EQ(sink.lines, Parse(stream));
}

}  // namespace
}  // namespace zelk

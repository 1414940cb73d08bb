// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/tcp_stream.h"

#include <gtest/gtest.h>

namespace trace {
namespace {

class TcpStream : public testing::Test {
 protected:
  TcpStream() : stream([this](const SPiece& piece) { Take(piece); }) {}

  void Take(const SPiece& piece) {
    text += piece.isAfterGap ? "|" : "";
    text.append(piece.bytes.begin(), piece.bytes.end());
  }
  void Syn(std::uint32_t sequence) {
    SPacket packet;
    packet.isSyn = true;
    packet.sequence = sequence;
    stream.OnSegment(packet);
  }
  void Segment(std::uint32_t sequence, const std::string& bytes, Time time = 0, std::size_t leftOut = 0) {
    SPacket packet;
    packet.sequence = sequence;
    packet.time = time;
    packet.payload = ByteView(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    packet.leftOut = leftOut;
    stream.OnSegment(packet);
  }

  std::string text;
  CTcpStream stream;
};

TEST_F(TcpStream, PutsSegmentsInOrder) {
  Syn(99);
  Segment(103, "def");
  Segment(106, "ghi");
  EXPECT_EQ(text, "");
  Segment(100, "abc");
  EXPECT_EQ(text, "abcdefghi");
  EXPECT_EQ(stream.Counts().outOfOrder, 2U);
  EXPECT_EQ(stream.Counts().gaps, 0U);
}

TEST_F(TcpStream, TakesOfARepetitionWhatIsNew) {
  Syn(99);
  Segment(100, "abc");
  Segment(100, "abc");
  Segment(101, "bcde");
  Segment(99, "x");  // a keep-alive
  EXPECT_EQ(text, "abcde");
  EXPECT_EQ(stream.Counts().repeated, 2U);
}

TEST_F(TcpStream, GoesOnWhereNumbersBeginAnew) {
  Syn(0xFFFFFFFD);
  Segment(0xFFFFFFFE, "abc");
  Segment(4, "fg");
  Segment(1, "cde");
  EXPECT_EQ(text, "abccdefg");
}

TEST_F(TcpStream, PassesAGapThatWasAcknowledged) {
  Syn(99);
  Segment(100, "abc", 0);
  Segment(106, "ghi", kMillisecond);
  stream.OnAcknowledged(109, kMillisecond);
  EXPECT_EQ(text, "abc");
  stream.OnAcknowledged(109, kSecond);
  EXPECT_EQ(text, "abc|ghi");
  EXPECT_EQ(stream.Counts().gaps, 1U);
  EXPECT_EQ(stream.Counts().bytesMissing, 3U);
}

TEST_F(TcpStream, WaitsLongerForWhatMayComeAgain) {
  Syn(99);
  Segment(103, "def", 0);
  Segment(106, "ghi", 2 * kSecond);
  EXPECT_EQ(text, "");
  Segment(100, "abc", 2 * kSecond);
  EXPECT_EQ(text, "abcdefghi");
  Segment(110, "k", 3 * kSecond);
  Segment(111, "l", 3 * kSecond + CTcpStream::kPatience);
  EXPECT_EQ(text, "abcdefghi|kl");
}

TEST_F(TcpStream, WaitsNoLongerWhereTheClockIsSetBack) {
  Syn(99);
  Segment(103, "def", 3600 * kSecond);
  Segment(106, "ghi", 0);
  EXPECT_EQ(text, "");
  Segment(109, "j", CTcpStream::kPatience);
  EXPECT_EQ(text, "|defghij");
}

TEST_F(TcpStream, BeginsInTheMiddle) {
  Segment(5000, "abc");
  Segment(5003, "def");
  EXPECT_EQ(text, "abcdef");
}

TEST_F(TcpStream, CountsWhatTheCaptureLeftOut) {
  Syn(99);
  Segment(100, "abc", 0, 3);
  Segment(106, "ghi");
  EXPECT_EQ(text, "abc|ghi");
  EXPECT_EQ(stream.Counts().bytesMissing, 3U);
}

TEST_F(TcpStream, GivesOutAtTheEndWhatItHolds) {
  Syn(99);
  Segment(103, "def");
  Segment(110, "k");
  stream.Finish();
  EXPECT_EQ(text, "|def|k");
  EXPECT_EQ(stream.Counts().gaps, 2U);
}

TEST_F(TcpStream, RefusesWhatIsFarAway) {
  Syn(99);
  Segment(100, "abc");
  Segment(100 + 0x40000000, "x");
  Segment(103, "def");
  stream.Finish();
  EXPECT_EQ(text, "abcdef");
  EXPECT_EQ(stream.Counts().strays, 1U);
}

TEST_F(TcpStream, HoldsNoMoreThanItsLimit) {
  Syn(99);
  const std::string block(1000, 'x');
  for (std::uint32_t i = 0; i < 2 * CTcpStream::kMostHeld / 1000; ++i) {
    Segment(101 + 1000 * i, block);
  }
  EXPECT_GT(text.size(), CTcpStream::kMostHeld);
  EXPECT_EQ(stream.Counts().bytesMissing, 1U);
}

}  // namespace
}  // namespace trace

// SPDX-License-Identifier: GPL-2.0-only

// What leaves the core: anonymised frames, pcapng, sound, texts; and D-channel files that come in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "conversation.h"
#include "support/temp_dir.h"
#include "trace/core/anonymiser.h"
#include "trace/core/hdlc_file.h"
#include "trace/core/pcapng_writer.h"
#include "trace/core/q931_text.h"
#include "trace/core/sound_track.h"
#include "trace/core/text.h"
#include "trace/core/trace_error.h"

namespace trace {
namespace {

using test::Information;
using test::Join;
using test::Message;
using test::NumberElement;
using test::Text;

Bytes SetupFrame(const std::string& calling, const std::string& called, const Bytes& more = {}) {
  return Information(
      false, 3, 4,
      Message(7, false, 0x05,
              Join({test::ChannelElement(17), NumberElement(0x6C, calling), NumberElement(0x70, called), more})));
}

TEST(Anonymiser, ANumberIsTheSameWhereverItComesAgain) {
  CAnonymiser anonymiser;
  EXPECT_EQ(anonymiser.Anonymise(SetupFrame("0305551234", "4567")), SetupFrame("0000000001", "0001"));
  EXPECT_EQ(anonymiser.Anonymise(SetupFrame("4567", "0305551234")), SetupFrame("0001", "0000000001"));
  EXPECT_EQ(anonymiser.Anonymise(SetupFrame("0305551235", "")), SetupFrame("0000000002", ""));
}

TEST(Anonymiser, LeavesOutTextsAndWhatItDoesNotKnow) {
  CAnonymiser anonymiser;
  const Bytes more =
      Join({{0x28, 5}, Text("Alice"), {0x7E, 3}, Text("uui"), {0x1C, 2, 1, 2}, {0x96, 0x70, 3}, Text("abc"), {0xA1}});
  EXPECT_EQ(anonymiser.Anonymise(SetupFrame("11", "22", more)), SetupFrame("01", "02"));
}

TEST(Anonymiser, KeepsOfACauseItsValueAlone) {
  CAnonymiser anonymiser;
  const Bytes frame = Information(true, 0, 0, Message(7, true, 0x45, Join({{0x08, 6, 0x81, 0x81}, Text("1234")})));
  EXPECT_EQ(anonymiser.Anonymise(frame), Information(true, 0, 0, Message(7, true, 0x45, test::CauseElement(1))));
}

TEST(Anonymiser, ShortensWhatIsNoMessage) {
  CAnonymiser anonymiser;
  EXPECT_EQ(anonymiser.Anonymise(test::Sabme(true)), test::Sabme(true));
  EXPECT_EQ(anonymiser.Anonymise(Bytes{0x02, 0x01, 0x03, 'x'}), (Bytes{0x02, 0x01, 0x03}));
  EXPECT_EQ(anonymiser.Anonymise(Information(false, 1, 2, Text("other"))), Information(false, 1, 2, {}));
  EXPECT_EQ(anonymiser.Anonymise(Bytes{}), Bytes{});
  EXPECT_EQ(anonymiser.Anonymise(Bytes{0x02}), Bytes{0x02});
}

TEST(PcapngWriter, WritesWhatLibpcapReads) {
  std::ostringstream out;
  CPcapngWriter writer(out);
  SExported exported{"100001", 100001, 1, true, {}};
  exported.frame.direction = EDirection::kFromLibrary;
  exported.frame.time = 7 * kSecond + 123'456'789;
  exported.frame.body = {0x02, 0x01, 0x7F};
  writer.Write(exported);
  exported.trunk = 0;
  exported.isLibraryNetwork = false;
  exported.frame.direction = EDirection::kToLibrary;
  writer.Write(exported);
  CCaptureFile file(test::Stream(Text(out.str())), "d.pcapng");
  EXPECT_EQ(file.LinkType(), 177);
  SCaptured packet;
  ASSERT_TRUE(file.Next(packet));
  EXPECT_EQ(packet.time, exported.frame.time);
  EXPECT_EQ(Bytes(packet.bytes.begin(), packet.bytes.end()),
            (Bytes{0, 4, 0x20, 0xFD, 0, 6, 1, 2, 0, 1, 0x86, 0xA1, 0, 0, 0, 0x30, 0x02, 0x01, 0x7F}));
  ASSERT_TRUE(file.Next(packet));
  EXPECT_EQ(Bytes(packet.bytes.begin(), packet.bytes.begin() + 8), (Bytes{0, 0, 0x20, 0xFD, 0, 6, 0, 1}));
  EXPECT_FALSE(file.Next(packet));
  EXPECT_EQ(file.Fault(), "");
}

TEST(SoundTrack, PutsPacketsInOrderAndFillsWhatIsMissing) {
  CSoundTrack track;
  track.Add(0xFFFFFFFF, {1});
  track.Add(1, {3});
  track.Add(0, {2});
  track.Add(1, {9});
  track.Add(4, {6});
  EXPECT_EQ(track.Samples(track.First(), track.Last(), 1), (Bytes{1, 2, 3, tool::kSilence, tool::kSilence, 6}));
  EXPECT_EQ(track.Missing(), 2U);
  EXPECT_EQ(track.Repeated(), 1U);
}

TEST(SoundTrack, ANewNumberingGoesOnFromTheEnd) {
  CSoundTrack track;
  track.Add(1000000, {1});
  track.Add(1, {2});
  track.Add(2, {3});
  EXPECT_EQ(track.Samples(track.First(), track.Last(), 1), (Bytes{1, 2, 3}));
}

TEST(SoundTrack, NarrowsToATimeslot) {
  CSoundTrack track;
  track.Add(1, {10, 11, 12, 20, 21, 22});
  track.Narrow(3, 1);
  EXPECT_EQ(track.Samples(0, 0, 2), (Bytes{11, 21}));
}

class HdlcFile : public testing::Test {
 protected:
  std::string Write(const std::string& name, const std::string& text) {
    const std::string path = folder.Path() + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  zelk::CTempDir folder;
};

TEST_F(HdlcFile, ReadsFramesUpToABrokenLine) {
  CHdlcFile file(Write("zelk-4711-3.hdlc",
                       "O 2013-05-09 14:03:07 0000 02 01 7F \r\nI 2013-05-09 14:03:08 0000 \r\nO 2013-05-09 14:03:"));
  EXPECT_EQ(file.Serial(), 4711U);
  SControl frame;
  ASSERT_TRUE(file.Next(frame));
  EXPECT_EQ(frame.direction, EDirection::kFromLibrary);
  EXPECT_EQ(frame.trunk, 2);
  EXPECT_EQ(frame.body, (Bytes{0x02, 0x01, 0x7F}));
  const Time first = frame.time;
  ASSERT_TRUE(file.Next(frame));
  EXPECT_EQ(frame.direction, EDirection::kToLibrary);
  EXPECT_EQ(frame.time, first + kSecond);
  EXPECT_FALSE(file.Next(frame));
  EXPECT_THAT(file.Fault(),
              testing::EndsWith("zelk-4711-3.hdlc: line 3 is none of a D-channel; this is what stands before it"));
}

TEST_F(HdlcFile, AnotherOffsetIsNoneOfTheLibrary) {
  CHdlcFile file(Write("zelk-4711-3.hdlc", "O 2013-05-09 14:03:07 0001 02 01 7F \r\n"));
  SControl frame;
  EXPECT_FALSE(file.Next(frame));
  EXPECT_NE(file.Fault(), "");
}

TEST_F(HdlcFile, NeedsItsName) {
  EXPECT_THROW(CHdlcFile(Write("zelk-4711-9.hdlc", "")), CTraceError);
  EXPECT_THROW(CHdlcFile(Write("frames.hdlc", "")), CTraceError);
  EXPECT_THROW(CHdlcFile("/nowhere/zelk-1-1.hdlc"), CTraceError);
}

TEST(TraceText, Times) {
  EXPECT_EQ(IsoTime(0), "");
  EXPECT_EQ(IsoTime(1'700'000'000 * kSecond + 7 * kMillisecond), "2023-11-14T22:13:20.007Z");
}

TEST(TraceText, Globs) {
  EXPECT_TRUE(MatchesGlob("0305*", "0305551234"));
  EXPECT_TRUE(MatchesGlob("*12?4", "0305551234"));
  EXPECT_TRUE(MatchesGlob("*", ""));
  EXPECT_FALSE(MatchesGlob("0305", "0305551234"));
  EXPECT_FALSE(MatchesGlob("*12?5", "0305551234"));
  EXPECT_FALSE(MatchesGlob("?", ""));
}

TEST(TraceText, CausesAndTerminals) {
  EXPECT_STREQ(CauseName(17), "USER_BUSY");
  EXPECT_STREQ(CauseName(23), "REASON_UNKNOWN");
  EXPECT_STREQ(CauseName(-1), "");
  EXPECT_EQ(Printable("a\x1B[2J\xC3\x7F"), "a.[2J..");
}

TEST(TraceText, ElementsOfAMessage) {
  const tool::SQ921Frame frame = tool::DecodeFrame(SetupFrame("12\x07", "4567", {0x08, 2, 0x81, 0x91}));
  EXPECT_EQ(ElementsText(frame.message), "cause 17 USER_BUSY, channel 17, calling 12., called 4567");
  EXPECT_EQ(FrameText(frame), "I 3/4");
  EXPECT_EQ(FrameText(tool::DecodeFrame(test::Sabme(true))), "SABME P/F");
}

}  // namespace
}  // namespace trace

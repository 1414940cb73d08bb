// SPDX-License-Identifier: GPL-2.0-only
#include "playback/file_player.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "formats/g711.h"
#include "formats/wave_header.h"
#include "support/allocation_probe.h"
#include "support/wav_bytes.h"
#include "wave_fixture.h"

namespace zelk {
namespace {

using wav::Bytes;
using wavetest::COwner;
using wavetest::Octets;

class FilePlayer : public testing::Test {
 protected:
  void SetUp() override { wave.Open(); }

  // The code of playing these bytes as a file; "accepted" must agree with it.
  uint32_t ErrorOf(const Bytes& content) {
    const wav::CTempFile temp(content);
    uint32_t code = 99;
    const bool accepted = PlayFile(wave, temp.Path(), code);
    EXPECT_EQ(accepted, code == kErrorNone);
    return code;
  }

  Bytes Fill(size_t count) {
    Bytes block(160);
    wave.FillBlock(block.data(), 160);
    block.resize(count);
    return block;
  }

  COwner owner;
  CWave wave{owner};
  uint32_t error = 99;
};

TEST_F(FilePlayer, BufferIsQueuedAsItIs) {
  EXPECT_TRUE(PlayBuffer(wave, Octets("abc"), 3, error));
  EXPECT_EQ(error, kErrorNone);
  EXPECT_EQ(Fill(4), (Bytes{'a', 'b', 'c', 0xD5}));
}

TEST_F(FilePlayer, BufferOfOneByteIsHeard) {
  EXPECT_TRUE(PlayBuffer(wave, Octets("a"), 1, error));
  EXPECT_EQ(Fill(2), (Bytes{'a', 0xD5}));
}

// What is queued has its memory, but nobody touches it here.
TEST_F(FilePlayer, BufferForAFullQueueGivesCode2) {
  ASSERT_TRUE(wave.Enqueue(wave.NewBlock(0x7FFFFFFF)));
  EXPECT_FALSE(PlayBuffer(wave, Octets("a"), 1, error));
  EXPECT_EQ(error, kErrorNoMemory);
}

TEST_F(FilePlayer, EmptyBufferIsAccepted) {
  EXPECT_TRUE(PlayBuffer(wave, Octets(""), 0, error));
  EXPECT_TRUE(PlayBuffer(wave, nullptr, 0, error));
  EXPECT_EQ(error, kErrorNone);
  EXPECT_EQ(wave.TimeLeftMs(), 1U);
}

TEST_F(FilePlayer, NullBufferWithALengthIsRefusedWithoutACode) {
  EXPECT_FALSE(PlayBuffer(wave, nullptr, 1, error));
  EXPECT_EQ(error, kErrorNone);
  EXPECT_EQ(wave.TimeLeftMs(), 0U);
}

TEST_F(FilePlayer, BufferWithoutMemoryGivesCode2AndLeavesTheQueueAlone) {
  const uint32_t failures = support::ForEachFailingAllocation(
      [this] {
        wave.Flush();
        error = 99;
        PlayBuffer(wave, Octets("abcdefgh"), 8, error);
      },
      [this](bool failed) {
        EXPECT_EQ(error, failed ? kErrorNoMemory : kErrorNone);
        EXPECT_EQ(wave.TimeLeftMs(), failed ? 0U : 1U);
      });
  EXPECT_EQ(failures, 1U);
}

TEST_F(FilePlayer, BufferLengthsNear4GigabytesGiveCode2) {
  for (const uint32_t length : {0x80000000U, 0xFFFFFF01U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(PlayBuffer(wave, Octets("abc"), length, error));  // not a byte of it is read
    EXPECT_EQ(error, kErrorNoMemory);
  }
  EXPECT_EQ(wave.TimeLeftMs(), 0U);
}

TEST_F(FilePlayer, FileOfEachFormatIsConvertedToTheQueues) {
  EXPECT_EQ(ErrorOf(wav::File(6, 8, {0x12, 0x34})), kErrorNone);
  EXPECT_EQ(Fill(3), (Bytes{0x12, 0x34, 0xD5}));
  wave.Flush();
  EXPECT_EQ(ErrorOf(wav::File(7, 8, {0x80, 0xFF})), kErrorNone);
  EXPECT_EQ(Fill(2), (Bytes{LinearToALaw(32124), 0xD5}));
  wave.Flush();
  EXPECT_EQ(ErrorOf(wav::File(1, 8, {255, 128})), kErrorNone);
  EXPECT_EQ(Fill(2), (Bytes{LinearToALaw(32512), 0xD5}));
  wave.Flush();
  EXPECT_EQ(ErrorOf(wav::File(1, 16, {0xFF, 0x7F, 0x00, 0x80})), kErrorNone);
  EXPECT_EQ(Fill(3), (Bytes{0xAA, 0x55, 0xD5}));
}

TEST_F(FilePlayer, ThousandBytesOfWideSamplesQueueFiveHundred) {
  EXPECT_EQ(ErrorOf(wav::File(1, 16, Bytes(1000))), kErrorNone);
  EXPECT_EQ(wave.TimeLeftMs(), 62U);  // 500 / 8
}

TEST_F(FilePlayer, FileFollowsWhatIsQueuedAlready) {
  PlayBuffer(wave, Octets("ab"), 2, error);
  EXPECT_EQ(ErrorOf(wav::File(6, 8, {1, 2})), kErrorNone);
  EXPECT_EQ(Fill(5), (Bytes{'a', 'b', 1, 2, 0xD5}));
}

TEST_F(FilePlayer, EmptyDataChunkQueuesAnEmptyBlock) {
  EXPECT_EQ(ErrorOf(wav::File(1, 16, {})), kErrorNone);
  EXPECT_EQ(wave.TimeLeftMs(), 1U);
  Fill(1);
  Fill(1);
  EXPECT_TRUE(wave.QueryPlayMark());
}

TEST_F(FilePlayer, MissingUnreadableOrUnloadableFileGivesCode3) {
  EXPECT_FALSE(PlayFile(wave, "/nonexistent/a.wav", error));
  EXPECT_EQ(error, kErrorFileOpen);
  EXPECT_FALSE(PlayFile(wave, nullptr, error));
  EXPECT_EQ(error, kErrorFileOpen);
  EXPECT_FALSE(PlayFile(wave, "", error));
  EXPECT_EQ(error, kErrorFileOpen);
  EXPECT_FALSE(PlayFile(wave, testing::TempDir().c_str(), error));
  EXPECT_EQ(error, kErrorFileOpen);
  EXPECT_EQ(ErrorOf({}), kErrorFileOpen);
  EXPECT_EQ(ErrorOf(wav::Riff({wav::Chunk("data", {1})})), kErrorFileOpen);
  EXPECT_EQ(ErrorOf(wav::Riff({wav::Chunk("fmt ", wav::Record(6, 8))})), kErrorFileOpen);  // no data chunk
  EXPECT_EQ(ErrorOf(wav::Riff({wav::Chunk("fmt ", wav::Record(6, 8), 1000000)})), kErrorFileOpen);
}

TEST_F(FilePlayer, ShortDataGivesCode4BeforeTheFormatIsLookedAt) {
  support::ForgetLargestAllocation();
  EXPECT_EQ(ErrorOf(wav::Riff({wav::Chunk("fmt ", wav::Record(6, 8)), wav::Chunk("data", {1, 2}, 0xFFFFFFFF)})),
            kErrorFileRead);
  EXPECT_LT(support::LargestAllocation(), 1000000U);
  EXPECT_EQ(ErrorOf(wav::Riff({wav::Chunk("fmt ", wav::Record(85, 0, 2, 44100)), wav::Chunk("data", {1, 2}, 4)})),
            kErrorFileRead);
}

TEST_F(FilePlayer, FormatsThatAreNotTelephoneAudioGiveCode7) {
  const auto with = [](const Bytes& record) {
    return wav::Riff({wav::Chunk("fmt ", record), wav::Chunk("data", {1, 2})});
  };
  EXPECT_EQ(ErrorOf(with(wav::Record(6, 8, 2))), kErrorBadFormat);
  EXPECT_EQ(ErrorOf(with(wav::Record(6, 8, 0))), kErrorBadFormat);
  EXPECT_EQ(ErrorOf(with(wav::Record(1, 16, 1, 16000))), kErrorBadFormat);
  EXPECT_EQ(ErrorOf(with(wav::Record(6, 16))), kErrorBadFormat);
  EXPECT_EQ(ErrorOf(with(wav::Record(7, 16))), kErrorBadFormat);
  EXPECT_EQ(ErrorOf(with(wav::Record(1, 24))), kErrorBadFormat);
  EXPECT_EQ(ErrorOf(with(wav::Record(3, 8))), kErrorBadFormat);
  EXPECT_EQ(wave.TimeLeftMs(), 0U);
}

TEST_F(FilePlayer, ShortFormatChunkGivesCode7) {
  for (size_t size = 0; size < 15; ++size) {
    Bytes record = wav::Record(6, 8);
    record.resize(size);
    EXPECT_EQ(ErrorOf(wav::Riff({wav::Chunk("fmt ", record), wav::Chunk("data", {1, 2})})), kErrorBadFormat) << size;
  }
}

TEST_F(FilePlayer, BlockAlignAndAverageBytesAreNotLookedAt) {
  EXPECT_EQ(ErrorOf(wav::Riff({wav::Chunk("fmt ", wav::Record(6, 8, 1, 8000, 0xFFFFFFFF)), wav::Chunk("data", {1})})),
            kErrorNone);
}

TEST_F(FilePlayer, QueueWithoutANamedFormatGivesCode8) {
  wave.SetFormat({49, 1, 8000, 1625, 65, 0, 0});
  EXPECT_EQ(ErrorOf(wav::File(6, 8, {1, 2})), kErrorConversion);
  EXPECT_EQ(ErrorOf(wav::File(6, 16, {1, 2})), kErrorBadFormat);  // found first
}

TEST_F(FilePlayer, QueueOfAnotherFormatGetsTheFileConvertedToIt) {
  wave.SetFormat({1, 1, 8000, 16000, 2, 16, 0});
  EXPECT_EQ(ErrorOf(wav::File(6, 8, {0xD5})), kErrorNone);
  EXPECT_EQ(Fill(3), (Bytes{8, 0, 0}));
}

TEST_F(FilePlayer, ClosedQueueTakesTheFileAllTheSame) {
  wave.Close();
  EXPECT_EQ(ErrorOf(wav::File(6, 8, Bytes(80))), kErrorNone);
  EXPECT_EQ(wave.TimeLeftMs(), 10U);
}

// Without memory: 2 for the samples and the texts, 3 for the format record, 8 for a conversion, and no code at all when
// the block cannot be made. Nothing leaks and nothing is queued.
TEST_F(FilePlayer, EveryFailingAllocationHasItsCode) {
  const wav::CTempFile temp(wav::File(7, 8, Bytes(80)));
  std::vector<uint32_t> codes;
  bool accepted = false;
  support::ForEachFailingAllocation(
      [&] {
        wave.Flush();
        error = 99;
        accepted = PlayFile(wave, temp.Path(), error);
      },
      [&](bool failed) {
        EXPECT_EQ(accepted, !failed);
        EXPECT_EQ(wave.TimeLeftMs(), failed ? 0U : 10U);
        codes.push_back(error);
      });
  // The last: record, samples, two steps of the conversion, queued block, and the run that went well.
  ASSERT_GE(codes.size(), 6U);
  EXPECT_EQ(std::vector<uint32_t>(codes.end() - 6, codes.end()), (std::vector<uint32_t>{3, 2, 8, 8, 0, 0}));
  for (size_t i = 0; i + 6 < codes.size(); ++i) {
    EXPECT_TRUE(codes[i] == kErrorNoMemory || codes[i] == kErrorFileOpen) << i << ": " << codes[i];
  }
}

TEST(ConvertedRecording, CanBePlayed) {
  const wav::CTempFile temp(Bytes(44 + 160, 0x2A));
  ASSERT_EQ(ConvertRawToWaveFile(temp.Path(), 2), kErrorNone);
  COwner owner;
  CWave wave(owner);
  wave.Open();
  uint32_t error = 99;
  EXPECT_TRUE(PlayFile(wave, temp.Path(), error));
  EXPECT_EQ(wave.TimeLeftMs(), 20U);
}

}  // namespace
}  // namespace zelk

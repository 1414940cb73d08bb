// SPDX-License-Identifier: GPL-2.0-only
#include "platform/riff.h"

#include <gtest/gtest.h>

#include <array>
#include <random>

#include "native_pipe.h"
#include "support/temp_dir.h"

namespace zelk {
namespace {

constexpr uint32_t kWave = FourCc("WAVE");
constexpr uint32_t kFmt = FourCc("fmt ");
constexpr uint32_t kData = FourCc("data");

std::string U32(uint32_t value) {
  return {static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
          static_cast<char>(value >> 24)};
}

std::string Claiming(const std::string& id, uint32_t size, const std::string& content) {
  return id + U32(size) + content;
}

std::string Chunk(const std::string& id, const std::string& content) {
  return Claiming(id, static_cast<uint32_t>(content.size()), content) + (content.size() % 2 == 1 ? "\x7F" : "");
}

class Riff : public testing::Test {
 protected:
  bool Open(const std::string& content) { return file.Open(dir.Write("f.wav", content).c_str()); }

  std::string ReadSome(size_t length) {
    std::string text(length, '\0');
    text.resize(file.Read(text.data(), length));
    return text;
  }

  CTempDir dir;
  CRiffFile file;
  SRiffChunk riff;
  SRiffChunk chunk;
};

TEST_F(Riff, WalksFromTheFormToTheSamples) {
  ASSERT_TRUE(Open(Chunk("RIFF", "WAVE" + Chunk("fmt ", "abcd") + Chunk("data", "samples!"))));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  EXPECT_EQ(riff.id, FourCc("RIFF"));
  EXPECT_EQ(riff.formType, kWave);
  EXPECT_EQ(riff.size, 32U);
  EXPECT_EQ(riff.dataOffset, 8U);
  ASSERT_TRUE(file.DescendChunk(kFmt, riff, chunk));
  EXPECT_EQ(chunk.id, kFmt);
  EXPECT_EQ(chunk.size, 4U);
  EXPECT_EQ(chunk.dataOffset, 20U);
  EXPECT_EQ(ReadSome(4), "abcd");
  ASSERT_TRUE(file.Ascend(chunk));
  ASSERT_TRUE(file.DescendChunk(kData, riff, chunk));
  EXPECT_EQ(chunk.size, 8U);
  EXPECT_EQ(file.BytesLeft(), 8U);
  EXPECT_EQ(ReadSome(8), "samples!");
  EXPECT_EQ(file.BytesLeft(), 0U);
}

TEST_F(Riff, AscendGoesBehindTheChunkHoweverMuchOfItWasRead) {
  ASSERT_TRUE(Open(Chunk("RIFF", "WAVE" + Chunk("fmt ", "abcdefgh") + Chunk("data", "s!"))));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  ASSERT_TRUE(file.DescendChunk(kFmt, riff, chunk));
  EXPECT_EQ(ReadSome(3), "abc");
  ASSERT_TRUE(file.Ascend(chunk));
  ASSERT_TRUE(file.DescendChunk(kData, riff, chunk));
  EXPECT_EQ(ReadSome(2), "s!");
}

TEST_F(Riff, OddSizesArePadded) {
  ASSERT_TRUE(Open(Chunk("RIFF", "WAVE" + Chunk("odd ", "123") + Chunk("fmt ", "abc") + Chunk("data", "s"))));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  ASSERT_TRUE(file.DescendChunk(kFmt, riff, chunk));
  EXPECT_EQ(chunk.size, 3U);
  ASSERT_TRUE(file.Ascend(chunk));
  ASSERT_TRUE(file.DescendChunk(kData, riff, chunk));
  EXPECT_EQ(chunk.size, 1U);
  EXPECT_EQ(ReadSome(1), "s");
}

TEST_F(Riff, ChunksBetweenArePassedOver) {
  ASSERT_TRUE(Open(Chunk("RIFF", "WAVE" + Chunk("JUNK", "data....") + Chunk("fmt ", "") + Chunk("fact", "....") +
                                     Chunk("data", "right"))));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  ASSERT_TRUE(file.DescendChunk(kFmt, riff, chunk));
  ASSERT_TRUE(file.Ascend(chunk));
  ASSERT_TRUE(file.DescendChunk(kData, riff, chunk));
  EXPECT_EQ(ReadSome(5), "right");
}

TEST_F(Riff, AListIsPassedOverWithEverythingInIt) {
  ASSERT_TRUE(Open(Chunk("RIFF", "WAVE" + Chunk("LIST", "INFO" + Chunk("data", "wrong")) + Chunk("data", "right"))));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  ASSERT_TRUE(file.DescendChunk(kData, riff, chunk));
  EXPECT_EQ(ReadSome(5), "right");
}

TEST_F(Riff, AListThatIsLookedForIsEnteredBehindItsType) {
  ASSERT_TRUE(Open(Chunk("RIFF", "WAVE" + Chunk("LIST", "INFOtext"))));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  ASSERT_TRUE(file.DescendChunk(FourCc("LIST"), riff, chunk));
  EXPECT_EQ(chunk.formType, FourCc("INFO"));
  EXPECT_EQ(ReadSome(4), "text");
}

TEST_F(Riff, TheFirstFormOfTheWantedTypeIsEntered) {
  ASSERT_TRUE(Open(Chunk("JUNK", "x") + Chunk("RIFF", "AVI " + Chunk("data", "wrong")) +
                   Chunk("RIFF", "WAVE" + Chunk("data", "right"))));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  ASSERT_TRUE(file.DescendChunk(kData, riff, chunk));
  EXPECT_EQ(ReadSome(5), "right");
}

TEST_F(Riff, AChunkBehindTheParentsEndIsNotFound) {
  ASSERT_TRUE(Open(Chunk("RIFF", "WAVE" + Chunk("fmt ", "abcd")) + Chunk("data", "outside")));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  EXPECT_FALSE(file.DescendChunk(kData, riff, chunk));
}

TEST_F(Riff, AChunkBeforeThePositionIsNotFound) {
  ASSERT_TRUE(Open(Chunk("RIFF", "WAVE" + Chunk("data", "first") + Chunk("fmt ", "abcd"))));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  ASSERT_TRUE(file.DescendChunk(kFmt, riff, chunk));
  ASSERT_TRUE(file.Ascend(chunk));
  EXPECT_FALSE(file.DescendChunk(kData, riff, chunk));
}

TEST_F(Riff, AChunkOfZeroBytesIsFound) {
  ASSERT_TRUE(Open(Chunk("RIFF", "WAVE" + Chunk("data", ""))));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  ASSERT_TRUE(file.DescendChunk(kData, riff, chunk));
  EXPECT_EQ(chunk.size, 0U);
  EXPECT_EQ(ReadSome(1), "");
}

TEST_F(Riff, ASizeBeyondTheFileIsFoundAndReadsShort) {
  ASSERT_TRUE(Open(Claiming("RIFF", 0xFFFFFFFF, "WAVE" + Claiming("data", 0xFFFFFFF0, "short"))));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  ASSERT_TRUE(file.DescendChunk(kData, riff, chunk));
  EXPECT_EQ(chunk.size, 0xFFFFFFF0U);
  EXPECT_EQ(file.BytesLeft(), 5U);
  EXPECT_EQ(ReadSome(100), "short");
  ASSERT_TRUE(file.Ascend(chunk));
  EXPECT_EQ(file.BytesLeft(), 0U);
  EXPECT_EQ(ReadSome(1), "");
  EXPECT_FALSE(file.DescendChunk(kData, riff, chunk));
}

TEST_F(Riff, ASizeBeyondTheFileHidesWhatFollows) {
  ASSERT_TRUE(Open(Chunk("RIFF", "WAVE" + Claiming("fmt ", 1000, "abcd") + Chunk("data", "x"))));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  EXPECT_FALSE(file.DescendChunk(kData, riff, chunk));
}

TEST_F(Riff, AParentThatClaimsNoBytesHoldsNothing) {
  ASSERT_TRUE(Open(Claiming("RIFF", 0, "WAVE" + Chunk("data", "x"))));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  EXPECT_FALSE(file.DescendChunk(kData, riff, chunk));
}

TEST_F(Riff, AFileCutAnywhereIsNeverFoundWhole) {
  const std::string whole = Chunk("RIFF", "WAVE" + Chunk("fmt ", "abcd") + Chunk("data", "samples!"));
  for (size_t length = 0; length < whole.size(); ++length) {
    ASSERT_TRUE(Open(whole.substr(0, length)));
    const bool complete = file.DescendRiff(kWave, riff) && file.DescendChunk(kFmt, riff, chunk) && file.Ascend(chunk) &&
                          file.DescendChunk(kData, riff, chunk) && ReadSome(chunk.size).size() == chunk.size;
    EXPECT_FALSE(complete) << length;
  }
}

TEST_F(Riff, AFailedSearchLeavesTheChunkRecordAsItWas) {
  ASSERT_TRUE(Open(Chunk("RIFF", "WAVE")));
  chunk.size = 77;
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  EXPECT_FALSE(file.DescendChunk(kData, riff, chunk));
  EXPECT_EQ(chunk.size, 77U);
}

TEST_F(Riff, AnEmptyOrForeignFileHoldsNoForm) {
  ASSERT_TRUE(Open(""));
  EXPECT_FALSE(file.DescendRiff(kWave, riff));
  ASSERT_TRUE(Open("this is no RIFF file at all, only text"));
  EXPECT_FALSE(file.DescendRiff(kWave, riff));
  ASSERT_TRUE(Open(Chunk("RIFX", "WAVE")));
  EXPECT_FALSE(file.DescendRiff(kWave, riff));
}

TEST_F(Riff, AMissingFileIsNotOpenedAndEveryCallFails) {
  EXPECT_FALSE(file.Open(dir.Path("missing.wav").c_str()));
  EXPECT_FALSE(file.Open(nullptr));
  EXPECT_FALSE(file.IsOpen());
  EXPECT_FALSE(file.DescendRiff(kWave, riff));
  EXPECT_FALSE(file.Ascend(chunk));
  EXPECT_EQ(file.BytesLeft(), 0U);
  EXPECT_EQ(ReadSome(1), "");
  EXPECT_TRUE(file.Close());
}

TEST_F(Riff, APipeOrDeviceIsNotOpened) {
  const CNamedPipe pipe(dir.Path());
  EXPECT_FALSE(file.Open(pipe.Path()));
  EXPECT_FALSE(file.Open(kDevicePath));
  EXPECT_FALSE(file.IsOpen());
}

TEST_F(Riff, OpeningAgainBeginsAtTheFront) {
  const std::string content = Chunk("RIFF", "WAVE" + Chunk("data", "x"));
  ASSERT_TRUE(Open(content));
  ASSERT_TRUE(file.DescendRiff(kWave, riff));
  ASSERT_TRUE(Open(content));
  EXPECT_TRUE(file.DescendRiff(kWave, riff));
  EXPECT_TRUE(file.Close());
  EXPECT_FALSE(file.IsOpen());
}

TEST_F(Riff, AnyBytesEndTheWalk) {
  std::mt19937 random(854);
  const std::array<std::string, 8> pieces{"RIFF", "LIST", "WAVE", "fmt ", "data", U32(4), U32(0xFFFFFFFF), "\x01"};
  for (int round = 0; round < 500; ++round) {
    std::string content = round % 2 == 0 ? Claiming("RIFF", 400, "WAVE") : "";
    for (size_t i = random() % 40; i > 0; --i) {
      content += pieces[random() % pieces.size()];
    }
    ASSERT_TRUE(Open(content));
    if (file.DescendRiff(kWave, riff)) {
      while (file.DescendChunk(kData, riff, chunk)) {
        ASSERT_LE(uint64_t{chunk.dataOffset}, content.size());
        ASSERT_LE(ReadSome(std::min<size_t>(chunk.size, 1000)).size(), content.size());
        ASSERT_TRUE(file.Ascend(chunk));
      }
    }
  }
}

}  // namespace
}  // namespace zelk

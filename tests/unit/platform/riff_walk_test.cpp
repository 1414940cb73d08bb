// SPDX-License-Identifier: GPL-2.0-only
#include "platform/riff_walk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <vector>

#include "support/temp_dir.h"

namespace zelk {
namespace {

std::string U32(uint32_t value) {
  return {static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
          static_cast<char>(value >> 24)};
}

std::string Chunk(const std::string& id, const std::string& content) {
  return id + U32(static_cast<uint32_t>(content.size())) + content + (content.size() % 2 == 1 ? "\x7F" : "");
}

const std::string kFormat("\x06\0\x01\0\x40\x1F\0\0\x40\x1F\0\0\x01\0\x08\0", 16);
const std::string kSamples(1001, '\x55');

struct SWalked {
  bool riff = false;
  bool fmt = false;
  bool data = false;
  uint32_t riffSize = 0;
  uint32_t fmtSize = 0;
  uint32_t dataSize = 0;
  uint32_t dataOffset = 0;
  std::string format;
  std::string samples;
};

SWalked OnlyRiff(uint32_t size) {
  SWalked walked;
  walked.riff = true;
  walked.riffSize = size;
  return walked;
}

SWalked UpToFormat(uint32_t riffSize, uint32_t fmtSize, const std::string& format) {
  SWalked walked = OnlyRiff(riffSize);
  walked.fmt = true;
  walked.fmtSize = fmtSize;
  walked.format = format;
  return walked;
}

SWalked UpToData(uint32_t riffSize, uint32_t dataOffset, const std::string& samples) {
  SWalked walked = UpToFormat(riffSize, 16, kFormat);
  walked.data = true;
  walked.dataSize = static_cast<uint32_t>(samples.size());
  walked.dataOffset = dataOffset;
  walked.samples = samples;
  return walked;
}

struct SFile {
  const char* name;
  std::string content;
  SWalked expected;
};

// WAV files as programs write them, and damaged ones, each with what is in it, counted by hand. Not among them are
// three where Wine's functions differ from what Windows documents: a file cut inside its form type (Wine compares with
// the type that was asked for), a chunk beyond its parent's end (Wine looks at the end before the first chunk only) and
// a parent of nearly 4 GB (Wine's sum wraps).
std::vector<SFile> Corpus() {
  const std::string whole = Chunk("RIFF", "WAVE" + Chunk("fmt ", kFormat) + Chunk("data", kSamples));
  SWalked extra = UpToFormat(42, 21, kFormat + "extra");
  extra.data = true;
  extra.dataOffset = 50;
  return {
      {"Empty", "", {}},
      {"OnlyAName", "RIFF", {}},
      {"Whole", whole, UpToData(1038, 44, kSamples)},
      {"CutBehindTheForm", whole.substr(0, 12), OnlyRiff(1038)},
      {"CutInTheFormat", whole.substr(0, 30), UpToFormat(1038, 16, kFormat.substr(0, 10))},
      {"CutInTheDataHeader", whole.substr(0, 43), UpToFormat(1038, 16, kFormat)},
      {"AnotherForm", Chunk("RIFF", "AVI " + Chunk("fmt ", kFormat)), {}},
      {"NoFormat", Chunk("RIFF", "WAVE" + Chunk("data", kSamples)), OnlyRiff(1014)},
      {"NoData", Chunk("RIFF", "WAVE" + Chunk("fmt ", kFormat)), UpToFormat(28, 16, kFormat)},
      {"AFactBetween", Chunk("RIFF", "WAVE" + Chunk("fmt ", kFormat) + Chunk("fact", "abcd") + Chunk("data", kSamples)),
       UpToData(1050, 56, kSamples)},
      {"AListAndAnOddChunkBetween",
       Chunk("RIFF", "WAVE" + Chunk("LIST", "INFO" + Chunk("ISFT", "maker")) + Chunk("fmt ", kFormat) +
                         Chunk("odd ", "abc") + Chunk("data", kSamples)),
       UpToData(1076, 82, kSamples)},
      {"ALongFormatAndNoSamples", Chunk("RIFF", "WAVE" + Chunk("fmt ", kFormat + "extra") + Chunk("data", "")), extra},
      {"AListBehindTheData",
       Chunk("RIFF", "WAVE" + Chunk("fmt ", kFormat) + Chunk("data", kSamples) + Chunk("LIST", "INFO")),
       UpToData(1050, 44, kSamples)},
      {"JunkInFront", Chunk("junk", "abcd") + whole, UpToData(1038, 56, kSamples)},
      {"BytesBehind", whole + "trailing bytes", UpToData(1038, 44, kSamples)},
      {"EmptyChunksWithoutAName",
       Chunk("RIFF", "WAVE" + std::string(40'000, '\0') + Chunk("fmt ", kFormat) + std::string(8, '\0') +
                         Chunk("data", kSamples)),
       UpToData(41'046, 40'052, kSamples)},
  };
}

template <class Reader>
std::string ReadSome(Reader& reader, size_t length) {
  std::string text(length, '\0');
  text.resize(reader.Read(text.data(), length));
  return text;
}

// The way that playing a file takes through it.
template <class Reader>
SWalked Walk(const std::string& path) {
  Reader reader;
  SWalked walked;
  SRiffChunk riff;
  SRiffChunk chunk;
  EXPECT_TRUE(reader.Open(path.c_str()));
  walked.riff = reader.DescendRiff(FourCc("WAVE"), riff);
  if (!walked.riff) {
    return walked;
  }
  walked.riffSize = riff.size;
  walked.fmt = reader.DescendChunk(FourCc("fmt "), riff, chunk);
  if (!walked.fmt) {
    return walked;
  }
  walked.fmtSize = chunk.size;
  walked.format = ReadSome(reader, std::min<size_t>(chunk.size, 4096));
  walked.data = reader.Ascend(chunk) && reader.DescendChunk(FourCc("data"), riff, chunk);
  if (walked.data) {
    walked.dataSize = chunk.size;
    walked.dataOffset = chunk.dataOffset;
    walked.samples = ReadSome(reader, std::min<size_t>(chunk.size, 4096));
  }
  return walked;
}

class RiffWalk : public testing::TestWithParam<SFile> {
 protected:
  void ExpectAsStated(const SWalked& walked) {
    const SWalked& stated = GetParam().expected;
    EXPECT_EQ(walked.riff, stated.riff);
    EXPECT_EQ(walked.fmt, stated.fmt);
    EXPECT_EQ(walked.data, stated.data);
    EXPECT_EQ(walked.riffSize, stated.riffSize);
    EXPECT_EQ(walked.fmtSize, stated.fmtSize);
    EXPECT_EQ(walked.dataSize, stated.dataSize);
    EXPECT_EQ(walked.dataOffset, stated.dataOffset);
    EXPECT_EQ(walked.format, stated.format);
    EXPECT_EQ(walked.samples, stated.samples);
  }

  const CTempDir dir;
  const std::string path = dir.Write("w.wav", GetParam().content);
};

TEST_P(RiffWalk, FindsWhatIsInTheFile) {
  ExpectAsStated(Walk<CRiffWalk>(path));
}

// On Windows these are the system's functions, on Linux the walk again.
TEST_P(RiffWalk, TheSystemFindsTheSame) {
  ExpectAsStated(Walk<CRiffFile>(path));
}

INSTANTIATE_TEST_SUITE_P(Corpus, RiffWalk, testing::ValuesIn(Corpus()),
                         [](const testing::TestParamInfo<SFile>& file) { return std::string(file.param.name); });

// The walk as its rules are written down: chunk by chunk, without a buffer and without a short cut.
uint32_t LiteralSearch(const std::string& content, const std::string& id, uint64_t& position, uint64_t limit) {
  const auto number = [&content](uint64_t at) {
    uint32_t value = 0;
    for (size_t i = 4; i > 0; --i) {
      value = value << 8 | static_cast<uint8_t>(content[at + i - 1]);
    }
    return value;
  };
  while (position < limit && position + 8 <= content.size()) {
    const std::string found = content.substr(position, 4);
    const uint64_t size = number(position + 4);
    if ((found == "RIFF" || found == "LIST") && position + 12 > content.size()) {
      break;
    }
    if (found == id) {
      return static_cast<uint32_t>(position + 8);
    }
    position += 8 + size + size % 2;
  }
  return 0;
}

// Stretches of zeros of every length around the buffer's, so that headers stand at every place in it and across its
// end.
TEST(RiffWalkOfZeros, FindsWhatALiteralWalkFinds) {
  const CTempDir dir;
  for (size_t zeros = 16'300; zeros < 16'500; ++zeros) {
    for (const std::string& rest : {Chunk("data", "s"), std::string(4, '\0') + Chunk("data", "s"), std::string()}) {
      const std::string content = "RIFF" + U32(40'000) + "WAVE" + std::string(zeros, '\0') + rest +
                                  std::string(16'400, '\0') + Chunk("data", "s");
      uint64_t position = 12;
      const uint32_t expected = LiteralSearch(content, "data", position, 40'008);
      CRiffWalk walk;
      SRiffChunk riff;
      SRiffChunk chunk;
      ASSERT_TRUE(walk.Open(dir.Write("z.wav", content).c_str()));
      ASSERT_TRUE(walk.DescendRiff(FourCc("WAVE"), riff));
      ASSERT_EQ(walk.DescendChunk(FourCc("data"), riff, chunk), expected != 0) << zeros;
      ASSERT_EQ(chunk.dataOffset, expected) << zeros;
    }
  }
}

// A hole ends where a block of the disk begins, which is no place of a header here.
TEST(RiffWalkOfZeros, AHoleIsPassedLikeTheZerosItReadsAs) {
  constexpr uint32_t kAfterHole = 12 + 8 * 300'000;
  const CTempDir dir;
  for (const uint32_t offset : {kAfterHole, kAfterHole + 4}) {
    const std::string path = dir.Write("h.wav", "RIFF" + U32(4'000'000) + "WAVE");
    std::ofstream(path, std::ios::binary | std::ios::in).seekp(offset) << Chunk("data", "s");
    CRiffWalk walk;
    SRiffChunk riff;
    SRiffChunk chunk;
    ASSERT_TRUE(walk.Open(path.c_str()));
    ASSERT_TRUE(walk.DescendRiff(FourCc("WAVE"), riff));
    EXPECT_EQ(walk.DescendChunk(FourCc("data"), riff, chunk), offset == kAfterHole);
    EXPECT_EQ(chunk.dataOffset, offset == kAfterHole ? kAfterHole + 8 : 0);
  }
}

}  // namespace
}  // namespace zelk

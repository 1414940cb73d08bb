#include "platform/riff_walk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "temp_dir.h"

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

// WAV files as programs write them, and damaged ones. Not among them are three where Wine's functions differ from what
// Windows documents: a file cut inside its form type (Wine compares with the type that was asked for), a chunk behind
// its parent's end (Wine looks at the end before the first chunk only) and a parent of nearly 4 GB (Wine's sum wraps).
std::vector<std::string> Corpus() {
  const std::string whole = Chunk("RIFF", "WAVE" + Chunk("fmt ", kFormat) + Chunk("data", kSamples));
  return {
      "",
      "RIFF",
      whole,
      whole.substr(0, 12),
      whole.substr(0, 30),
      whole.substr(0, 43),
      Chunk("RIFF", "AVI " + Chunk("fmt ", kFormat)),
      Chunk("RIFF", "WAVE" + Chunk("data", kSamples)),
      Chunk("RIFF", "WAVE" + Chunk("fmt ", kFormat)),
      Chunk("RIFF", "WAVE" + Chunk("fmt ", kFormat) + Chunk("fact", "abcd") + Chunk("data", kSamples)),
      Chunk("RIFF", "WAVE" + Chunk("LIST", "INFO" + Chunk("ISFT", "maker")) + Chunk("fmt ", kFormat) +
                        Chunk("odd ", "abc") + Chunk("data", kSamples)),
      Chunk("RIFF", "WAVE" + Chunk("fmt ", kFormat + "extra") + Chunk("data", "")),
      Chunk("RIFF", "WAVE" + Chunk("fmt ", kFormat) + Chunk("data", kSamples) + Chunk("LIST", "INFO")),
      Chunk("junk", "abcd") + whole,
      whole + "trailing bytes",
  };
}

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

class RiffWalk : public testing::TestWithParam<std::string> {};

TEST_P(RiffWalk, FilesAreWalkedAsTheSystemWalksThem) {
  const CTempDir dir;
  const std::string path = dir.Write("w.wav", GetParam());
  const SWalked ours = Walk<CRiffWalk>(path);
  const SWalked system = Walk<CRiffFile>(path);
  EXPECT_EQ(ours.riff, system.riff);
  EXPECT_EQ(ours.fmt, system.fmt);
  EXPECT_EQ(ours.data, system.data);
  EXPECT_EQ(ours.riffSize, system.riffSize);
  EXPECT_EQ(ours.fmtSize, system.fmtSize);
  EXPECT_EQ(ours.dataSize, system.dataSize);
  EXPECT_EQ(ours.dataOffset, system.dataOffset);
  EXPECT_EQ(ours.format, system.format);
  EXPECT_EQ(ours.samples, system.samples);
}

INSTANTIATE_TEST_SUITE_P(Corpus, RiffWalk, testing::ValuesIn(Corpus()));

}  // namespace
}  // namespace zelk

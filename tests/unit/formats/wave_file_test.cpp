// SPDX-License-Identifier: GPL-2.0-only
#include "formats/wave_file.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

#include "support/allocation_probe.h"
#include "support/wav_bytes.h"

namespace zelk {
namespace {

using wav::Bytes;

// The error text of loading these bytes, the file's path in it replaced by "PATH"; "loaded" when it went well.
std::string LoadText(const Bytes& content, bool* stillOpen = nullptr) {
  const wav::CTempFile temp(content);
  CWaveFile file;
  const bool loaded = file.Load(temp.Path());
  if (stillOpen) {
    *stillOpen = file.IsOpen();
  }
  std::string text = file.ErrorText();
  EXPECT_EQ(loaded, text.empty());
  if (const size_t at = text.find(temp.Path()); at != std::string::npos) {
    text.replace(at, std::string(temp.Path()).size(), "PATH");
  }
  return loaded ? "loaded" : text;
}

TEST(WaveFile, LoadsTheRecordAndTheSamples) {
  const wav::CTempFile temp(wav::File(7, 8, {1, 2, 3, 4, 5}));
  CWaveFile file;
  ASSERT_TRUE(file.Load(temp.Path())) << file.ErrorText();
  EXPECT_TRUE(file.IsOpen());
  const SWaveFormat format = file.Format();
  EXPECT_EQ(format.formatTag, 7);
  EXPECT_EQ(format.channels, 1);
  EXPECT_EQ(format.samplesPerSecond, 8000U);
  EXPECT_EQ(format.averageBytesPerSecond, 8000U);
  EXPECT_EQ(format.blockAlign, 1);
  EXPECT_EQ(format.bitsPerSample, 8);
  EXPECT_EQ(format.extraSize, 0);
  ASSERT_EQ(file.DataSize(), 5U);
  bool outOfMemory = true;
  const auto samples = file.ReadSamples(outOfMemory);
  ASSERT_TRUE(samples);
  EXPECT_FALSE(outOfMemory);
  EXPECT_EQ(Bytes(samples.get(), samples.get() + 5), (Bytes{1, 2, 3, 4, 5}));
  EXPECT_TRUE(file.Release());
  EXPECT_FALSE(file.IsOpen());
  EXPECT_TRUE(file.Release());
}

TEST(WaveFile, PassesOverOtherChunksBeforeAndBetween) {
  EXPECT_EQ(
      LoadText(wav::Riff({wav::Chunk("LIST", wav::Text("INFOabc")), wav::Chunk("fmt ", wav::Record(6, 8)),
                          wav::Chunk("fact", wav::Number(3, 4)), wav::Chunk("odd ", {1}), wav::Chunk("data", {9})})),
      "loaded");
}

TEST(WaveFile, MissingFileIsNamed) {
  CWaveFile file;
  EXPECT_FALSE(file.Load("/nonexistent/a.wav"));
  EXPECT_EQ(file.ErrorText(), "CWaveFile::Load() -> Unable to open /nonexistent/a.wav");
  EXPECT_FALSE(file.IsOpen());
  EXPECT_FALSE(file.Load(nullptr));
  EXPECT_EQ(file.ErrorText(), "CWaveFile::Load() -> Unable to open ");
}

TEST(WaveFile, FileThatIsNoWaveIsNamedAndClosed) {
  bool stillOpen = true;
  EXPECT_EQ(LoadText({}, &stillOpen), "CWaveFile::Load() -> Invalid RIFF Header PATH");
  EXPECT_FALSE(stillOpen);
  EXPECT_EQ(LoadText(wav::Text("just some text that is no RIFF file")),
            "CWaveFile::Load() -> Invalid RIFF Header PATH");
  EXPECT_EQ(LoadText(wav::Chunk("RIFF", wav::Text("AVI "))), "CWaveFile::Load() -> Invalid RIFF Header PATH");
}

TEST(WaveFile, MissingFormatChunkIsNamedAndTheFileClosed) {
  bool stillOpen = true;
  EXPECT_EQ(LoadText(wav::Riff({wav::Chunk("data", {1, 2})}), &stillOpen),
            "CWaveFile::Load() -> Invalid fmt Header PATH");
  EXPECT_FALSE(stillOpen);
}

TEST(WaveFile, FormatChunkCutShortLeavesTheFileOpen) {
  bool stillOpen = false;
  support::ForgetLargestAllocation();
  const Bytes claims = wav::Riff({wav::Chunk("fmt ", wav::Record(6, 8), 0xFFFFFFF0)});
  EXPECT_EQ(LoadText(claims, &stillOpen), "CWaveFile::Load() -> Unable to read fmt chunk.");
  EXPECT_TRUE(stillOpen);
  EXPECT_LT(support::LargestAllocation(), 1000000U);  // never the claim
}

TEST(WaveFile, MissingDataChunkLeavesTheFileOpen) {
  bool stillOpen = false;
  EXPECT_EQ(LoadText(wav::Riff({wav::Chunk("fmt ", wav::Record(6, 8))}), &stillOpen),
            "CWaveFile::Load() -> Unable to descend into data chunk.");
  EXPECT_TRUE(stillOpen);
}

TEST(WaveFile, DataChunkBeforeTheFormatIsNotFound) {
  EXPECT_EQ(LoadText(wav::Riff({wav::Chunk("data", {1, 2}), wav::Chunk("fmt ", wav::Record(6, 8))})),
            "CWaveFile::Load() -> Unable to descend into data chunk.");
}

TEST(WaveFile, ShortFormatChunkReadsAsFilledUpWithZeros) {
  for (size_t size = 0; size < 16; ++size) {
    Bytes record = wav::Record(0x0706, 0x0908, 0x0504, 0x44332211, 0x00332211);
    record.resize(size);
    const wav::CTempFile temp(wav::Riff({wav::Chunk("fmt ", record), wav::Chunk("data", {1})}));
    CWaveFile file;
    ASSERT_TRUE(file.Load(temp.Path())) << size;
    const SWaveFormat format = file.Format();
    EXPECT_EQ(format.formatTag, size == 0 ? 0 : size == 1 ? 6 : 0x0706) << size;
    EXPECT_EQ(format.samplesPerSecond,
              size >= 8 ? 0x44332211U : 0x44332211U & ((1ULL << (8 * (size > 4 ? size - 4 : 0))) - 1));
    EXPECT_EQ(format.bitsPerSample, size == 15 ? 8 : 0) << size;
  }
}

TEST(WaveFile, TopByteOfTheAverageBytesIsTakenOut) {
  const wav::CTempFile temp(
      wav::Riff({wav::Chunk("fmt ", wav::Record(6, 8, 1, 8000, 0x12345678)), wav::Chunk("data", {1})}));
  CWaveFile file;
  ASSERT_TRUE(file.Load(temp.Path()));
  EXPECT_EQ(file.Format().averageBytesPerSecond, 0x00345678U);
  EXPECT_EQ(file.SavedByte(), 0x12U);
}

TEST(WaveFile, LongFormatChunkKeepsItsRecord) {
  Bytes record = wav::Record(6, 8);
  record.resize(40, 0xEE);
  const wav::CTempFile temp(wav::Riff({wav::Chunk("fmt ", record), wav::Chunk("data", {1})}));
  CWaveFile file;
  ASSERT_TRUE(file.Load(temp.Path()));
  EXPECT_EQ(file.Format().bitsPerSample, 8);
  EXPECT_EQ(file.Format().extraSize, 0xEEEE);
}

TEST(WaveFile, DataChunkThatClaimsMoreThanTheFileHoldsIsAShortRead) {
  for (const int64_t claim : {int64_t{5}, int64_t{1000}, int64_t{0x7FFFFFFF}, int64_t{0xFFFFFFFF}}) {
    const wav::CTempFile temp(
        wav::Riff({wav::Chunk("fmt ", wav::Record(6, 8)), wav::Chunk("data", {1, 2, 3, 4}, claim)}));
    CWaveFile file;
    ASSERT_TRUE(file.Load(temp.Path()));
    EXPECT_EQ(file.DataSize(), static_cast<uint32_t>(claim));
    support::ForgetLargestAllocation();
    bool outOfMemory = true;
    EXPECT_FALSE(file.ReadSamples(outOfMemory));
    EXPECT_FALSE(outOfMemory);
    EXPECT_EQ(file.ErrorText(), "CWaveFile::Load() -> Unable to read data chunk.");
    EXPECT_LT(support::LargestAllocation(), 1000U);
  }
}

TEST(WaveFile, EmptyDataChunkReadsAsNoSamples) {
  const wav::CTempFile temp(wav::File(6, 8, {}));
  CWaveFile file;
  ASSERT_TRUE(file.Load(temp.Path()));
  bool outOfMemory = true;
  EXPECT_TRUE(file.ReadSamples(outOfMemory));
  EXPECT_FALSE(outOfMemory);
}

TEST(WaveFile, FormatCopyWithoutMemoryClosesTheFile) {
  Bytes record = wav::Record(6, 8);
  record.resize(60000);
  const wav::CTempFile temp(wav::Riff({wav::Chunk("fmt ", record), wav::Chunk("data", {1})}));
  bool seen = false;
  for (uint32_t n = 1;; ++n) {
    CWaveFile file;
    bool loaded = false;
    support::FailAllocation(n);
    try {
      loaded = file.Load(temp.Path());
    } catch (const std::bad_alloc&) {
      // A text or the reader's own state; the player above turns it into a code.
    }
    const bool failed = support::AllocationFailed();
    support::FailAllocation(0);
    if (file.ErrorText() == "CWaveFile::Load() -> Insufficient memory for wave header") {
      seen = true;
      EXPECT_FALSE(loaded);
      EXPECT_FALSE(file.IsOpen());
    }
    if (!failed) {
      EXPECT_TRUE(loaded);
      break;
    }
  }
  EXPECT_TRUE(seen);
}

TEST(WaveFile, LoadsAnotherFileAfterAFailure) {
  const wav::CTempFile bad(wav::Riff({wav::Chunk("fmt ", wav::Record(6, 8))}));
  const wav::CTempFile good(wav::File(6, 8, {1}));
  CWaveFile file;
  EXPECT_FALSE(file.Load(bad.Path()));
  EXPECT_TRUE(file.Load(good.Path()));
  EXPECT_EQ(file.ErrorText(), "");
}

TEST(WaveFile, EveryCutOfAFileHasADefinedResult) {
  const Bytes whole = wav::Riff(
      {wav::Chunk("LIST", wav::Text("INFO")), wav::Chunk("fmt ", wav::Record(6, 8)), wav::Chunk("data", {1, 2, 3, 4})});
  for (size_t size = 0; size < whole.size(); ++size) {
    const wav::CTempFile temp(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    CWaveFile file;
    bool outOfMemory = false;
    if (file.Load(temp.Path())) {
      EXPECT_GE(size, whole.size() - 4);
      EXPECT_FALSE(file.ReadSamples(outOfMemory));
    }
    EXPECT_NE(file.ErrorText(), "");
  }
}

}  // namespace
}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/wav_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>

#include "cardsim/audio/audio_source.h"
#include "common/g711.h"

namespace cardsim {
namespace {

class WavFile : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(directory); }
  void TearDown() override { std::filesystem::remove_all(directory); }
  std::string Path(const std::string& name) const { return (directory / name).string(); }

  // A RIFF file made by hand: PCM, 16 bits.
  void WritePcm(const std::string& path, int channels, int rate, const std::vector<std::int16_t>& samples) {
    Bytes out;
    const auto text = [&](const char* four) { out.insert(out.end(), four, four + 4); };
    const auto number = [&](std::size_t value, int bytes) {
      for (int i = 0; i < bytes; ++i) {
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
      }
    };
    const std::size_t data = samples.size() * 2;
    text("RIFF");
    number(36 + data, 4);
    text("WAVE");
    text("fmt ");
    number(16, 4);
    number(1, 2);
    number(static_cast<std::size_t>(channels), 2);
    number(static_cast<std::size_t>(rate), 4);
    number(static_cast<std::size_t>(rate * channels * 2), 4);
    number(static_cast<std::size_t>(channels * 2), 2);
    number(16, 2);
    text("data");
    number(data, 4);
    for (const std::int16_t sample : samples) {
      number(static_cast<std::uint16_t>(sample), 2);
    }
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(out.data()), static_cast<long>(out.size()));
  }

  std::filesystem::path directory =
      std::filesystem::temp_directory_path() / ("cardsim-wav-" + std::to_string(std::random_device()()));
};

TEST_F(WavFile, CodesComeBackBitExact) {
  const Bytes samples = RenderTestPattern(20001, 3);
  WriteWav(Path("a.wav"), samples);
  EXPECT_EQ(ReadWav(Path("a.wav")), samples);
}

TEST_F(WavFile, EmptyRecordingIsAFileToo) {
  WriteWav(Path("e.wav"), Bytes{});
  EXPECT_EQ(ReadWav(Path("e.wav")), Bytes{});
}

TEST_F(WavFile, LinearSamplesAreEncoded) {
  const std::vector<std::int16_t> linear{0, 8, -8, 1000, -1000, 32767, -32768};
  WritePcm(Path("p.wav"), 1, 8000, linear);
  Bytes expected;
  for (const std::int16_t sample : linear) {
    expected.push_back(EncodeALaw(sample));
  }
  EXPECT_EQ(ReadWav(Path("p.wav")), expected);
}

TEST_F(WavFile, OtherRatesAndChannelCountsAreRefusedWithTheFileNamed) {
  WritePcm(Path("s.wav"), 2, 8000, {0, 0});
  WritePcm(Path("r.wav"), 1, 16000, {0, 0});
  for (const char* name : {"s.wav", "r.wav", "none.wav"}) {
    try {
      ReadWav(Path(name));
      FAIL() << name;
    } catch (const std::runtime_error& error) {
      EXPECT_NE(std::string(error.what()).find(name), std::string::npos) << error.what();
    }
  }
}

TEST_F(WavFile, PlaceThatCannotBeWrittenIsAnError) {
  EXPECT_THROW(WriteWav(Path("no/such/dir.wav"), Bytes{1}), std::runtime_error);
}

}  // namespace
}  // namespace cardsim

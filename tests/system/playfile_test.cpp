// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <fstream>

#include "cardsim/audio/signals.h"
#include "common/g711.h"
#include "native_pipe.h"
#include "system_fixture.h"

namespace {

using cardsim::Bytes;
using Samples = std::vector<int16_t>;

// A voice that the sound package of scripts/setup brings: 16 bit, 48 kHz.
constexpr char kVoice[] = "/usr/share/sounds/alsa/Front_Center.wav";

void Append(Bytes& bytes, uint32_t value, int count) {
  for (int i = 0; i < count; ++i) {
    bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
  }
}

void Append(Bytes& bytes, const char* name) {
  for (int i = 0; i < 4; ++i) {
    bytes.push_back(static_cast<uint8_t>(name[i]));
  }
}

struct SFormat {
  uint16_t tag = 1;
  uint16_t bits = 16;
  uint16_t channels = 1;
  uint32_t rate = 8000;
};

Bytes WavOf(const SFormat& format, const Bytes& data, uint32_t claimed) {
  const uint32_t align = format.channels * format.bits / 8U;
  Bytes file;
  Append(file, "RIFF");
  Append(file, 36 + claimed, 4);
  Append(file, "WAVE");
  Append(file, "fmt ");
  Append(file, 16, 4);
  Append(file, format.tag, 2);
  Append(file, format.channels, 2);
  Append(file, format.rate, 4);
  Append(file, format.rate * align, 4);
  Append(file, align, 2);
  Append(file, format.bits, 2);
  Append(file, "data");
  Append(file, claimed, 4);
  file.insert(file.end(), data.begin(), data.end());
  return file;
}

Bytes Wide(const Samples& samples) {
  Bytes data;
  for (const int16_t sample : samples) {
    Append(data, static_cast<uint16_t>(sample), 2);
  }
  return data;
}

Bytes ALawOf(const Samples& samples) {
  Bytes codes(samples.size());
  std::transform(samples.begin(), samples.end(), codes.begin(), tool::EncodeALaw);
  return codes;
}

// mu-law as ITU-T G.711 has it: the magnitude plus 33 (at 14 bits) is 1 0000 to 1 1111 shifted by the segment.
int16_t ExpandMuLaw(uint8_t code) {
  const int plain = ~code & 0xFF;
  const int magnitude = ((((plain & 0x0F) << 1) + 33) << ((plain >> 4) & 7)) - 33;
  return static_cast<int16_t>((plain & 0x80) != 0 ? -4 * magnitude : 4 * magnitude);
}

// Six samples become one: enough of a filter for a test that compares bytes.
Samples DownTo8000(const Samples& fast) {
  Samples slow;
  for (size_t i = 0; i + 6 <= fast.size(); i += 6) {
    int sum = 0;
    for (size_t k = 0; k < 6; ++k) {
      sum += fast[i + k];
    }
    slow.push_back(static_cast<int16_t>(sum / 6));
  }
  return slow;
}

Samples ReadVoice() {
  std::ifstream file(kVoice, std::ios::binary);
  Bytes bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  const Bytes name{'d', 'a', 't', 'a'};
  const auto data = std::search(bytes.begin(), bytes.end(), name.begin(), name.end());
  Samples samples;
  for (auto at = data; bytes.end() - at >= 10; at += 2) {
    samples.push_back(static_cast<int16_t>(at[8] | at[9] << 8));
  }
  return samples;
}

class PlayFile : public CSystemTest {
 protected:
  void Start() {
    sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
    sim->Start();
    app = std::make_unique<support::CApplication>();
    app->onEvent = [this](const support::SAppEvent& event) {
      // The receive thread sends nothing while it is here: what is awaited has left already, or never will.
      if (event.code == ZELK_EVENT_PLAY_DONE && event.channel == 0 && line != nullptr) {
        heardAtDone = line->WaitContains(awaited, kSoon);
      }
    };
    ASSERT_NO_FATAL_FAILURE(StartLibrary());
    OpenAll();
  }

  std::string Write(const std::string& name, const Bytes& bytes) {
    const std::string path = app->zelk.Folder() + "/" + name;
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return path;
  }
  std::string Write(const std::string& name, const SFormat& format, const Bytes& data) {
    return Write(name, WavOf(format, data, static_cast<uint32_t>(data.size())));
  }

  cardsim::Recorder line;
  Bytes awaited;
  std::atomic<bool> heardAtDone{false};
};

// A 16-bit file of a human voice arrives as its A-law without a gap and before the event.
TEST_F(PlayFile, a_voice_of_16_bits_arrives_as_a_law_whole_before_the_event) {
  const Samples voice = DownTo8000(ReadVoice());
  if (voice.empty()) {
    GTEST_SKIP() << kVoice << " is not there: scripts/setup installs it on Linux";
  }
  ASSERT_NO_FATAL_FAILURE(Start());
  awaited = ALawOf(voice);
  ASSERT_GT(awaited.size(), 8000U);
  EXPECT_GT(cardsim::LevelOf(awaited), -40);
  line = Card().RecordTimeslot(0, 1);
  const std::string path = Write("voice.wav", {}, Wide(voice));
  ASSERT_TRUE(app->zelk.PlayFile(0, path.c_str()));
  EXPECT_EQ(app->zelk.GetLastError(0), 0U);
  EXPECT_LE(app->zelk.PlayTimeLeft(0), awaited.size() / 8);
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSlow));
  EXPECT_TRUE(heardAtDone);
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 1U);
}

TEST_F(PlayFile, files_of_all_four_formats_arrive_as_their_a_law) {
  ASSERT_NO_FATAL_FAILURE(Start());
  const Bytes codes = cardsim::RenderTestPattern(4000, 21);
  Samples wide;
  Samples eightBit;
  Samples muLaw;
  for (size_t i = 0; i < codes.size(); ++i) {
    wide.push_back(static_cast<int16_t>(codes[i] << 8 | codes[codes.size() - 1 - i]));
    wide.back() = wide.back() == INT16_MIN ? int16_t{0} : wide.back();
    eightBit.push_back(static_cast<int16_t>((codes[i] - 128) * 256));
    eightBit.back() = eightBit.back() == INT16_MIN ? int16_t{-32767} : eightBit.back();
    muLaw.push_back(ExpandMuLaw(codes[i]));
  }
  Bytes eightBitCodes = codes;
  // The most negative sample has an A-law code of its own, which the unit tests cover.
  std::replace(eightBitCodes.begin(), eightBitCodes.end(), uint8_t{0}, uint8_t{1});
  std::replace(eightBit.begin(), eightBit.end(), int16_t{-32767}, int16_t{-127 * 256});
  const std::vector<std::pair<std::string, Bytes>> plays{
      {Write("pcm16.wav", {1, 16}, Wide(wide)), ALawOf(wide)},
      {Write("pcm8.wav", {1, 8}, eightBitCodes), ALawOf(eightBit)},
      {Write("alaw.wav", {6, 8}, codes), codes},
      {Write("mulaw.wav", {7, 8}, codes), ALawOf(muLaw)},
  };
  for (size_t i = 0; i < plays.size(); ++i) {
    const auto channel = static_cast<int32_t>(i + 1);
    const cardsim::Recorder heard = Card().RecordTimeslot(0, channel + 1);
    ASSERT_TRUE(app->zelk.PlayFile(channel, plays[i].first.c_str())) << plays[i].first;
    EXPECT_TRUE(heard->WaitContains(plays[i].second, kSoon)) << plays[i].first;
    EXPECT_TRUE(app->WaitEvent(channel, ZELK_EVENT_PLAY_DONE, kSoon));
  }
}

TEST_F(PlayFile, a_pipe_that_nobody_writes_to_is_refused_at_once) {
  if (remote::CRemoteLibrary::Place() != nullptr) {
    GTEST_SKIP() << "the pipe is this system's, and the library is on another";
  }
  ASSERT_NO_FATAL_FAILURE(Start());
  const CNamedPipe pipe(app->zelk.Folder());
  EXPECT_FALSE(app->zelk.PlayFile(0, pipe.Path()));
  EXPECT_EQ(app->zelk.GetLastError(0), 3U);
  EXPECT_EQ(app->zelk.ConvertRawToWaveFile(pipe.Path(), 1), 3U);
}

TEST_F(PlayFile, unplayable_files_have_their_codes_and_play_nothing) {
  ASSERT_NO_FATAL_FAILURE(Start());
  const Bytes data(1000, 0x2A);
  const auto code = [&](const std::string& path) {
    EXPECT_FALSE(app->zelk.PlayFile(0, path.c_str())) << path;
    return app->zelk.GetLastError(0);
  };
  EXPECT_EQ(code(app->zelk.Folder() + "/none.wav"), 3U);
  EXPECT_EQ(code(Write("noise.wav", data)), 3U);
  EXPECT_EQ(code(Write("short.wav", WavOf({6, 8}, data, 2000))), 4U);
  EXPECT_EQ(code(Write("boast.wav", WavOf({6, 8}, data, 0x7FFFFF00))), 4U);
  EXPECT_EQ(code(Write("stereo.wav", {1, 16, 2}, data)), 7U);
  EXPECT_EQ(code(Write("fast.wav", {1, 16, 1, 16000}, data)), 7U);
  EXPECT_EQ(code(Write("wide-alaw.wav", {6, 16}, data)), 7U);
  EXPECT_FALSE(app->zelk.PlayFile(0, nullptr));
  EXPECT_EQ(app->zelk.GetLastError(0), 3U);
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 0U);
  // The channel is none the worse for it.
  line = Card().RecordTimeslot(0, 1);
  awaited = data;
  ASSERT_TRUE(app->zelk.PlayFile(0, Write("good.wav", {6, 8}, data).c_str()));
  EXPECT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSoon));
  EXPECT_TRUE(heardAtDone);
}

}  // namespace

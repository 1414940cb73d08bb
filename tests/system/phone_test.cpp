#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "cardsim/signals.h"
#include "cardsim/wav_file.h"
#include "system_fixture.h"

namespace {

namespace fs = std::filesystem;
using cardsim::Bytes;

constexpr int kTimeslot = 4;  // of channel 3

// The telephone as a user runs it, with a library of its own, against a simulated card in this process.
class CPhone : public CSystemTest {
 protected:
  void SetUp() override {
    app = std::make_unique<support::CApplication>();  // never initialised: its folder has the phone's library
    phone = fs::read_symlink("/proc/self/exe").parent_path() / "zelk-phone";
    if (!fs::exists(fs::path(Folder()) / "libZelkApi-64.so")) {
      GTEST_SKIP() << "the library under test is another system's";
    }
    if (!fs::exists(phone)) {
      GTEST_SKIP() << phone << " is not built";
    }
    sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
    Card().Audio().SetWaitForReplies(true);  // sound must not depend on how busy the machine is
    sim->Start();
  }

  std::string Folder() const { return app->zelk.Folder(); }

  // Dials on channel 3 with these options; what the phone prints, line by line. Fails unless it ends well.
  std::vector<std::string> Dial(const std::string& options) {
    const std::string command = "LD_LIBRARY_PATH='" + Folder() + "' '" + phone.string() + "' dial 3 0405556789 " +
                                options + " --hangup-after-play 2>&1";
    std::vector<std::string> lines;
    FILE* output = popen(command.c_str(), "r");
    EXPECT_NE(output, nullptr);
    char line[1000];
    while (output != nullptr && std::fgets(line, sizeof line, output) != nullptr) {
      lines.emplace_back(line, std::string(line).find_last_not_of('\n') + 1);
    }
    EXPECT_EQ(output == nullptr ? -1 : pclose(output), 0) << (lines.empty() ? "" : lines.back());
    return lines;
  }

  static size_t CountOf(const std::vector<std::string>& lines, const std::string& text) {
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), text));
  }

  Bytes Read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  fs::path phone;
};

TEST_F(CPhone, sends_digits_and_shows_those_of_the_far_end) {
  // What the far end hears it sends back: the digits sent are the digits shown.
  Card().Audio().SetEcho(0, kTimeslot, cardsim::SEchoPath{.delayFrames = 800, .lossDb = 3});
  const std::vector<std::string> lines = Dial("--digits '0123456789*#ABcd'");
  std::string shown;
  for (const std::string& line : lines) {
    if (line.rfind("digit ", 0) == 0) {
      shown += line.substr(6);
    }
  }
  EXPECT_EQ(shown, "0123456789*#ABCD");
  EXPECT_EQ(CountOf(lines, "sending digits 0123456789*#ABcd"), 1U);
  EXPECT_EQ(CountOf(lines, "played to the end"), 1U);
  EXPECT_EQ(CountOf(lines, "disconnected: 16 NORMAL_CLEARING"), 1U);
}

TEST_F(CPhone, plays_a_file_records_the_far_end_into_a_wav_file_and_says_when_it_has_played) {
  const Bytes prompt = cardsim::RenderSpeech(-15, 3000, 5);
  const Bytes farEnd = cardsim::RenderTestPattern(8000, 6);
  cardsim::SAnswerPlan plan;
  plan.farEnd.play = cardsim::MakeBytesSource(farEnd);
  Card().SetAnswerPlan(plan);
  const cardsim::Recorder line = Card().RecordTimeslot(0, kTimeslot);
  const std::string promptPath = Folder() + "/prompt.wav";
  const std::string recordPath = Folder() + "/heard.wav";
  cardsim::WriteWav(promptPath, prompt);
  const std::vector<std::string> lines = Dial("--play '" + promptPath + "' --record '" + recordPath + "'");
  EXPECT_EQ(CountOf(lines, "played to the end"), 1U);
  EXPECT_TRUE(line->WaitContains(prompt, kSoon));
  // The header of the library's own conversion, then the line's bytes.
  const Bytes file = Read(recordPath);
  ASSERT_GT(file.size(), 44U + farEnd.size());
  const auto number = [&file](size_t at, size_t bytes) {
    uint64_t value = 0;
    for (size_t i = bytes; i > 0; --i) {
      value = value << 8 | file[at + i - 1];
    }
    return value;
  };
  EXPECT_EQ(number(4, 4), file.size() - 8);
  EXPECT_EQ(number(20, 2), 6U);  // A-law
  EXPECT_EQ(number(40, 4), file.size() - 44);
  EXPECT_GE(support::FindSound(Bytes(file.begin() + 44, file.end()), farEnd), 0);
}

}  // namespace

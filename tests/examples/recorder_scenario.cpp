// SPDX-License-Identifier: GPL-2.0-only
#include <sys/mount.h>

#include <ctime>
#include <filesystem>
#include <regex>

#include "cardsim/audio/wav_file.h"
#include "examples/example_fixture.h"

// A recorder and its callers: each in a file of his own, all of a trunk at once, with a full disk, with a lost trunk.
namespace {

namespace fs = std::filesystem;

// A disk of its own that is soon full. Needs the private namespace of scripts/netns.
class CSmallDisk {
 public:
  CSmallDisk(std::string folder, const char* size) : path(std::move(folder)) {
    fs::create_directory(path);
    if (mount("tmpfs", path.c_str(), "tmpfs", 0, (std::string("size=") + size).c_str()) != 0) {
      throw std::runtime_error("no disk at " + path + ": run by scripts/netns");
    }
  }
  ~CSmallDisk() { umount2(path.c_str(), MNT_DETACH); }
  CSmallDisk(const CSmallDisk&) = delete;
  CSmallDisk& operator=(const CSmallDisk&) = delete;

  // Takes all but so many bytes.
  void Fill(std::uintmax_t left) const {
    std::ofstream(path + "/filler") << std::string(fs::space(path).available - left, 'x');
  }
  void Empty() const { fs::remove(path + "/filler"); }

 private:
  const std::string path;
};

class Recorder : public CExampleTest {
 protected:
  const std::string recordings = folder.Path("recordings");

  void Start(const std::vector<int>& trunksOfCards = {1}) {
    fs::create_directory(recordings);
    StartServing({recordings}, trunksOfCards);
  }

  // The far end says this when it is answered, and is silent then.
  Call Say(const Bytes& sound, cardsim::SCallRequest request) {
    request.farEnd.play =
        cardsim::MakeChain({cardsim::MakeBytesSource(sound), cardsim::MakeBytesSource(cardsim::RenderSilence(300))});
    return Connect(std::move(request));
  }

  // Hangs up when all has been said.
  static void HangUpAtTheEnd(const Call& call) {
    EXPECT_TRUE(call->WaitPlayed(kSoon));
    call->Hangup();
  }

  // The file that the example names for the count-th recording of a channel.
  std::string FileOf(int channel, size_t count = 1) {
    const std::string line = "channel " + std::to_string(channel) + ": recorded ";
    EXPECT_TRUE(example->WaitLine(line, kSoon, count)) << line;
    const std::string output = example->Output();
    size_t at = 0;
    for (size_t found = 0; found < count; ++found) {
      at = output.find(line, at) + line.size();
    }
    return output.substr(at, output.find('\n', at) - at);
  }

  // The time as names of files have it.
  static std::string Now() {
    const std::time_t now = std::time(nullptr);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y%m%d-%H%M%S", std::gmtime(&now));
    return text.data();
  }

  static void ExpectName(const std::string& file, const std::string& from, int channel, const std::string& number) {
    const std::string name = fs::path(file).filename().string();
    static const std::regex kForm(R"((\d{8}-\d{6})-\d{3}_(\d+)_(.*)\.wav)");
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(name, parts, kForm)) << name;
    EXPECT_LE(from, parts[1].str());
    EXPECT_LE(parts[1].str(), Now());
    EXPECT_EQ(parts[2].str(), std::to_string(channel));
    EXPECT_EQ(parts[3].str(), number);
  }

  static void ExpectHolds(const std::string& file, const Bytes& sound) {
    EXPECT_TRUE(WithoutSilence(cardsim::ReadWav(file)) == sound) << file;
  }

  // All that is there, so that nothing is left of a call but its file.
  size_t Files() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(recordings), fs::directory_iterator()));
  }
};

TEST_F(Recorder, SaysWhatItCannotDoWithout) {
  ExpectRefused({}, 2, "usage: ");
  ExpectRefused({folder.Path("missing")}, 1, folder.Path("missing"));
  ExpectRefused({folder.Path()}, 1, "no card found");
}

TEST_F(Recorder, KeepsEachCallOfAFullTrunkInAFileOfItsOwn) {
  ASSERT_NO_FATAL_FAILURE(Start());
  const std::string begin = Now();
  std::vector<Call> calls;
  for (uint32_t caller = 0; caller < 30; ++caller) {
    const int timeslot = static_cast<int>(caller < 15 ? caller + 1 : caller + 2);
    calls.push_back(Say(Sound(400, caller), {.timeslot = timeslot, .calling = "03055510" + std::to_string(caller)}));
  }
  for (uint32_t caller = 0; caller < calls.size(); ++caller) {
    HangUpAtTheEnd(calls[caller]);
    const std::string file = FileOf(static_cast<int>(caller));
    ExpectName(file, begin, static_cast<int>(caller), "03055510" + std::to_string(caller));
    ExpectHolds(file, Sound(400, caller));
  }
  EXPECT_EQ(Files(), calls.size());
  EndInGoodOrder();
}

TEST_F(Recorder, KeepsWhatWasSaidUntilEitherEnd) {
  ASSERT_NO_FATAL_FAILURE(Start());
  // One withholds his number.
  HangUpAtTheEnd(Say(Sound(200, 1), {.timeslot = 1, .calling = ""}));
  ExpectName(FileOf(0), "", 0, "unknown");
  HangUpAtTheEnd(Say(Sound(200, 2), {.timeslot = 1, .calling = "0301"}));
  ExpectHolds(FileOf(0), Sound(200, 1));
  ExpectHolds(FileOf(0, 2), Sound(200, 2));
  // The recorder is stopped while one speaks: his file is whole too.
  const Call last = Say(Sound(300, 3), {.timeslot = 1});
  EXPECT_TRUE(last->WaitPlayed(kSoon));
  EndInGoodOrder();
  ExpectHolds(FileOf(0, 3), Sound(300, 3));
  EXPECT_EQ(Files(), 3U);
}

TEST_F(Recorder, SurvivesAFullDisk) {
  const CSmallDisk disk(recordings, "256k");
  StartServing({recordings});
  disk.Fill(12'000);
  const Bytes longSound = Sound(2'500, 1);
  const Call cut = Say(longSound, {.timeslot = 1});
  EXPECT_TRUE(example->WaitError("No space left on device", kSoon));
  EXPECT_FALSE(cut->Reached(cardsim::ESimCallState::kDisconnecting));
  // It goes on, without another word, to its end.
  HangUpAtTheEnd(cut);
  const Bytes kept = WithoutSilence(cardsim::ReadWav(FileOf(0)));
  EXPECT_GE(kept.size(), 4'000U);
  EXPECT_TRUE(std::equal(kept.begin(), kept.end(), longSound.begin()));
  // With room again, the next call is recorded whole.
  disk.Empty();
  HangUpAtTheEnd(Say(Sound(300, 2), {.timeslot = 2}));
  ExpectHolds(FileOf(1), Sound(300, 2));
  EXPECT_EQ(CountLines(example->Errors(), ""), 1U);
}

TEST_F(Recorder, OutlivesTheLossOfATrunk) {
  ASSERT_NO_FATAL_FAILURE(Start({2}));
  const Bytes longSound = Sound(20'000, 1);
  const Call lost = Say(longSound, {.trunk = 0, .timeslot = 1});
  const Call other = Say(Sound(500, 2), {.trunk = 1, .timeslot = 1});
  LoseTrunk(0);
  EXPECT_TRUE(example->WaitLine("channel 0: ended, trunk lost", kSoon));
  const Bytes kept = WithoutSilence(cardsim::ReadWav(FileOf(0)));
  EXPECT_TRUE(std::equal(kept.begin(), kept.end(), longSound.begin()));
  HangUpAtTheEnd(other);
  ExpectHolds(FileOf(30), Sound(500, 2));
  MendTrunk(0);
  HangUpAtTheEnd(Say(Sound(300, 3), {.trunk = 0, .timeslot = 20}));
  ExpectHolds(FileOf(18), Sound(300, 3));
  EndInGoodOrder();
}

}  // namespace

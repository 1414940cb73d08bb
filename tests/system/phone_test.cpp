// SPDX-License-Identifier: GPL-2.0-only
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "cardsim/audio/signals.h"
#include "cardsim/audio/wav_file.h"
#include "system_fixture.h"

namespace {

namespace fs = std::filesystem;
using cardsim::Bytes;

constexpr int kTimeslot = 4;  // of channel 3

// A telephone that runs beside the test. Reads block: it ends by itself whatever happens.
class CRunningPhone {
 public:
  explicit CRunningPhone(const std::string& command) {
    output = popen(("echo $$; " + command + " 2>&1").c_str(), "r");
    EXPECT_NE(output, nullptr);
    EXPECT_TRUE(ReadLine());
    pid = std::stoi(lines.back());
    lines.clear();
  }
  ~CRunningPhone() { Finish(); }
  CRunningPhone(const CRunningPhone&) = delete;
  CRunningPhone& operator=(const CRunningPhone&) = delete;

  // Reads up to the next line that begins like this; false when none came until the end.
  bool ReadUntil(const std::string& begin) {
    while (ReadLine()) {
      if (lines.back().rfind(begin, 0) == 0) {
        return true;
      }
    }
    return false;
  }

  // The exit code; -1 when it did not end by itself.
  int Finish() {
    if (output != nullptr) {
      ReadUntil("no line begins like this");
      const int status = pclose(output);
      exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      output = nullptr;
    }
    return exitCode;
  }

  void Signal(int number) const { kill(pid, number); }

  std::vector<std::string> lines;

 private:
  bool ReadLine() {
    char line[1000];
    if (std::fgets(line, sizeof line, output) == nullptr) {
      return false;
    }
    lines.emplace_back(line);
    lines.back().resize(lines.back().find_last_not_of('\n') + 1);
    return true;
  }

  FILE* output = nullptr;
  pid_t pid = -1;
  int exitCode = -1;
};

struct SRun {
  int exitCode = -1;
  std::vector<std::string> lines;

  std::string Text() const {
    std::string text;
    for (const std::string& line : lines) {
      text += line + "\n";
    }
    return text;
  }
};

// The telephone as a user runs it, with a library of its own, against a simulated card in this process.
class Phone : public CSystemTest {
 protected:
  void SetUp() override {
    // Never initialised: its folder has the phone's library. A machine that stalls for a second must not be heard.
    app = std::make_unique<support::CApplication>("[General]\nAudioBuffers=100\n");
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

  // Runs the telephone to its end; the library's own variables stand before the words.
  SRun Run(const std::string& words) {
    CRunningPhone running(Command(words));
    running.ReadUntil("no line begins like this");
    return {running.Finish(), running.lines};
  }

  std::string Command(const std::string& words) const {
    return "LD_LIBRARY_PATH='" + Folder() + "' exec '" + phone.string() + "' " + words;
  }

  // Dials on channel 3 with these options; what the phone prints, line by line. Fails unless it ends well.
  std::vector<std::string> Dial(const std::string& options) {
    const SRun run = Run("dial 3 0405556789 " + options + " --hangup-after-play");
    EXPECT_EQ(run.exitCode, 0) << run.Text();
    return run.lines;
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

TEST_F(Phone, sends_digits_and_shows_those_of_the_far_end) {
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

TEST_F(Phone, plays_a_file_records_the_far_end_and_says_when_it_has_played) {
  const Bytes prompt = cardsim::RenderSpeech(-15, 3000, 5);
  const Bytes farEnd = cardsim::RenderTestPattern(8000, 6);
  cardsim::SAnswerPlan plan;
  // The first block after a card's opening is not delivered; on a busy machine it may be one of the call.
  Bytes withPause = cardsim::RenderSilence(100);
  withPause.insert(withPause.end(), farEnd.begin(), farEnd.end());
  plan.farEnd.play = cardsim::MakeBytesSource(withPause);
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

// A datagram socket of this process on the port of the cards' announcements.
class CHeldPort {
 public:
  explicit CHeldPort(const char* address) : descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const int on = 1;
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(5854);
    inet_pton(AF_INET, address, &place.sin_addr);
    EXPECT_EQ(setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
    EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
  }
  ~CHeldPort() { close(descriptor); }
  CHeldPort(const CHeldPort&) = delete;
  CHeldPort& operator=(const CHeldPort&) = delete;

 private:
  const int descriptor;
};

std::string Holder() {
  return "zelk-phone: UDP port 5854 is held by process " + std::to_string(getpid()) + " (system_tests): ";
}

TEST_F(Phone, no_command_starts_beside_an_application_whose_call_goes_on) {
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  ASSERT_TRUE(app->zelk.OpenChannel(0));
  const cardsim::Call call = Card().PlaceCall({.timeslot = 1});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon));
  ASSERT_TRUE(app->zelk.Answer(0));
  ASSERT_TRUE(call->WaitState(cardsim::ESimCallState::kConnected, kSoon));
  // The listener of announcements starts on a thread of its own.
  const auto isHeld = [&] {
    const Bytes table = Read("/proc/net/udp");
    return std::string(table.begin(), table.end()).find(" 00000000:16DE ") != std::string::npos;
  };
  ASSERT_TRUE(support::Eventually(isHeld, kSoon));
  for (const char* words : {"channels", "dial 3 0405556789 --answer-within 1", "answer --wait 1"}) {
    const SRun run = Run(words);
    EXPECT_EQ(run.exitCode, 8) << words;
    ASSERT_EQ(run.lines.size(), 1U) << run.Text();
    EXPECT_EQ(run.lines[0].rfind(Holder(), 0), 0U) << run.Text();
  }
  EXPECT_EQ(app->zelk.GetChannelInfo(0, ZELK_INFO_CHANNELSTATE), static_cast<uint32_t>(ZELK_CHANNEL_INUSE));
  EXPECT_FALSE(call->Reached(cardsim::ESimCallState::kDisconnecting));
  EXPECT_EQ(Card().Seen().Connections(), 1);
}

TEST_F(Phone, force_starts_it_beside_whoever_holds_the_port) {
  const CHeldPort held("0.0.0.0");
  const SRun refused = Run("channels");
  EXPECT_EQ(refused.exitCode, 8);
  EXPECT_EQ(refused.Text().rfind(Holder(), 0), 0U) << refused.Text();
  for (const char* words : {"channels --force", "--force channels"}) {
    const SRun forced = Run(words);
    EXPECT_EQ(forced.exitCode, 0) << forced.Text();
    EXPECT_EQ(CountOf(forced.lines, "30 of 30 channels usable"), 1U) << forced.Text();
  }
}

TEST_F(Phone, the_port_held_on_an_address_of_its_own_does_not_matter) {
  const CHeldPort held("127.0.1.77");
  const SRun run = Run("channels");
  EXPECT_EQ(run.exitCode, 0) << run.Text();
}

TEST_F(Phone, every_command_but_serve_needs_a_usable_channel) {
  Card().CutLine(0, true);
  for (const char* words : {"dial 3 0405556789", "answer --wait 1"}) {
    const SRun run = Run(std::string("--wait-trunks 1 ") + words);
    EXPECT_EQ(run.exitCode, 4) << words;
    EXPECT_EQ(run.lines.back().rfind("zelk-phone: ", 0), 0U) << run.Text();
  }
  // Trunks may come up under it.
  const SRun served = Run("--wait-trunks 1 serve < /dev/null");
  EXPECT_EQ(served.exitCode, 0) << served.Text();
  const SRun none = Run("--wait-trunks 1 channels");
  EXPECT_EQ(CountOf(none.lines, "0 of 30 channels usable"), 1U) << none.Text();
  EXPECT_EQ(none.exitCode, 4);
  Card().CutLine(0, false);
  const SRun all = Run("--wait-trunks 30 channels");
  EXPECT_EQ(CountOf(all.lines, "30 of 30 channels usable"), 1U) << all.Text();
  EXPECT_EQ(all.exitCode, 0);
}

// The telephone answers one call, of a caller who stays.
class AnsweringPhone : public Phone {
 protected:
  void StartAnswering(const std::string& options) {
    running = std::make_unique<CRunningPhone>(Command("answer --calls 1 --wait 60 --hold 1 " + options));
    ASSERT_TRUE(running->ReadUntil("30 of 30 channels usable"));
    ASSERT_TRUE(Card().WaitUp(kSlow));
  }

  void ExpectTheNextIsServed() {
    const cardsim::Call next = Card().PlaceCall({.timeslot = kTimeslot, .calling = "0302222222"});
    EXPECT_TRUE(running->ReadUntil("incoming call on channel 3 from 0302222222"));
    EXPECT_TRUE(running->ReadUntil("connected"));
    EXPECT_TRUE(running->ReadUntil("disconnected: 16"));
    EXPECT_EQ(running->Finish(), 0) << SRun{0, running->lines}.Text();
    EXPECT_TRUE(next->Reached(cardsim::ESimCallState::kConnected));
  }

  std::unique_ptr<CRunningPhone> running;
};

TEST_F(AnsweringPhone, serves_the_next_when_one_gives_up_while_it_answers) {
  ASSERT_NO_FATAL_FAILURE(StartAnswering(""));
  Card().HoldFromLibrary(0, true);  // its CONNECT and the caller's DISCONNECT cross
  const cardsim::Call call = Card().PlaceCall({.timeslot = kTimeslot, .calling = "0301111111"});
  ASSERT_TRUE(running->ReadUntil("incoming call on channel 3 from 0301111111"));
  ASSERT_TRUE(Card().Seen().WaitQ931(0, cardsim::EDirection::kFromLibrary, "CONNECT", kSoon));
  call->Hangup();
  ASSERT_TRUE(running->ReadUntil("disconnected: 16"));
  Card().HoldFromLibrary(0, false);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  ExpectTheNextIsServed();
}

TEST_F(AnsweringPhone, serves_the_next_when_one_gave_up_before_it_looked) {
  ASSERT_NO_FATAL_FAILURE(StartAnswering(""));
  running->Signal(SIGSTOP);
  const cardsim::Call call = Card().PlaceCall({.timeslot = kTimeslot, .calling = "0301111111"});
  ASSERT_TRUE(Card().Seen().WaitQ931(0, cardsim::EDirection::kToLibrary, "SETUP", kSoon));
  call->Hangup();
  ASSERT_TRUE(call->WaitState(cardsim::ESimCallState::kDisconnecting, kSoon));
  running->Signal(SIGCONT);
  ASSERT_TRUE(running->ReadUntil("incoming call on channel 3"));
  ASSERT_TRUE(call->WaitEnded(kSlow));
  ExpectTheNextIsServed();
}

// What was left to play of a call is not heard in the next one.
TEST_F(AnsweringPhone, plays_to_the_next_caller_from_the_beginning) {
  const Bytes prompt = cardsim::RenderTestPattern(4 * 8000, 8);
  const std::string path = Folder() + "/prompt.wav";
  cardsim::WriteWav(path, prompt);
  running =
      std::make_unique<CRunningPhone>(Command("answer --calls 2 --wait 60 --hangup-after-play --play '" + path + "'"));
  ASSERT_TRUE(running->ReadUntil("30 of 30 channels usable"));
  ASSERT_TRUE(Card().WaitUp(kSlow));
  const cardsim::Call first = Card().PlaceCall({.timeslot = kTimeslot});
  ASSERT_TRUE(first->WaitState(cardsim::ESimCallState::kConnected, kSoon));
  ASSERT_TRUE(first->Heard()->WaitContains(Bytes(prompt.begin(), prompt.begin() + 8000), kSoon));
  first->Hangup();
  ASSERT_TRUE(first->WaitEnded(kSoon));
  const cardsim::Call second = Card().PlaceCall({.timeslot = kTimeslot});
  ASSERT_TRUE(second->WaitEnded(kSlow));
  EXPECT_EQ(running->Finish(), 0) << SRun{0, running->lines}.Text();
  const Bytes heard = second->Recorded();
  const auto sound =
      std::find_if(heard.begin(), heard.end(), [](uint8_t code) { return code != 0xD5 && code != 0x54; });
  ASSERT_GE(heard.end() - sound, 2000);
  EXPECT_EQ(Bytes(sound, sound + 2000), Bytes(prompt.begin(), prompt.begin() + 2000));
}

}  // namespace

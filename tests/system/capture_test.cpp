// SPDX-License-Identifier: GPL-2.0-only
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "system_fixture.h"

// The D-channel capture of a trunk, as a text and as the usual tools decode it.
namespace {

namespace fs = std::filesystem;
using cardsim::Bytes;
using cardsim::Call;
using cardsim::EDirection;
using cardsim::ESimCallState;

using Names = std::vector<std::string>;

class Capture : public CSystemTest {
 protected:
  std::string Path(uint32_t trunk = 1, size_t card = 0) {
    return app->zelk.Folder() + "/zelk-" + std::to_string(Card(card).Serial()) + "-" + std::to_string(trunk) + ".hdlc";
  }
  static std::string Text(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  static std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    size_t at = 0;
    for (size_t end = text.find("\r\n"); end != std::string::npos; end = text.find("\r\n", at)) {
      lines.push_back(text.substr(at, end - at));
      at = end + 2;
    }
    EXPECT_EQ(at, text.size()) << "the last line is whole";
    return lines;
  }
  static std::string Hex(const Bytes& bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
      char two[4];
      std::snprintf(two, sizeof two, "%02X ", unsigned{byte});
      text += two;
    }
    return text;
  }
  // The bytes of the lines of one direction.
  static std::vector<std::string> Frames(const std::vector<std::string>& lines, char direction) {
    constexpr size_t kHeader = 27;
    std::vector<std::string> frames;
    for (const std::string& line : lines) {
      if (line[0] == direction) {
        frames.push_back(line.substr(kHeader));
      }
    }
    return frames;
  }

  void MakeCall(const std::string& called) {
    app->Forget();
    ASSERT_TRUE(app->zelk.OpenChannel(0));
    const Call call = Card().PlaceCall({.timeslot = 1, .calling = "0305551234", .called = called});
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon)) << app->zelk.LogText();
    app->zelk.Answer(0);
    ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, kSoon));
    call->Hangup(16);
    ASSERT_TRUE(call->WaitEnded(kSoon));
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_DISCONNECTED, kSoon));
  }

  // A capture of a call in each direction, closed.
  std::string CaptureCalls() {
    MakeCall("8001000");
    // The end of the first call has arrived when the card's RELEASE COMPLETE stands in the capture.
    EXPECT_TRUE(support::Eventually([&] { return Text(Path()).find(" 08 02 00 01 5A ") != std::string::npos; }, kSoon));
    EXPECT_TRUE(app->zelk.Dial(0, "0405556789", "8001000"));
    EXPECT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon, 2));
    app->zelk.Hangup(0);
    EXPECT_TRUE(app->WaitEvent(0, ZELK_EVENT_DISCONNECTED, kSoon, 2));
    EXPECT_TRUE(Card().Seen().WaitQ931(0, EDirection::kFromLibrary, "RELEASE COMPLETE", kSoon));
    app->zelk.Shutdown();
    return Path();
  }

  // What a command prints, in lines.
  std::vector<std::string> Run(const std::string& command) {
    const std::string output = app->zelk.Folder() + "/output";
    EXPECT_EQ(std::system((command + " > " + output + " 2> " + output + ".errors").c_str()), 0)
        << command << "\n"
        << Text(output + ".errors");
    std::vector<std::string> lines;
    std::istringstream text(Text(output));
    for (std::string line; std::getline(text, line);) {
      lines.push_back(line);
    }
    return lines;
  }
};

TEST_F(Capture, whose_writes_fail_costs_no_frame_and_the_others_go_on) {
  if (remote::CRemoteLibrary::Place() != nullptr || !fs::exists("/dev/full")) {
    GTEST_SKIP() << "no file here that opens and cannot be written to";
  }
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({2}));
  sim->Start();
  app = std::make_unique<support::CApplication>("[General]\nHdlcLog=1\n");
  fs::create_symlink("/dev/full", Path(1));
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  ASSERT_TRUE(Card().WaitUp(kSlow));
  ASSERT_NO_FATAL_FAILURE(MakeCall("8001000"));
  EXPECT_TRUE(Card().Seen().WaitQ931(0, EDirection::kFromLibrary, "RELEASE", kSoon));
  app->zelk.Shutdown();
  EXPECT_TRUE(fs::is_symlink(Path(1)));
  EXPECT_FALSE(Lines(Text(Path(2))).empty());
}

TEST_F(Capture, holds_frames_sent_and_those_received_that_mean_something) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[General]\nHdlcLog=1\n"));
  ASSERT_NO_FATAL_FAILURE(MakeCall("8001000"));
  app->zelk.Shutdown();
  const std::vector<std::string> lines = Lines(Text(Path()));
  const std::regex form("[OI] \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d 0000 ([0-9A-F]{2} )*");
  for (const std::string& line : lines) {
    EXPECT_TRUE(std::regex_match(line, form)) << line;
  }
  std::vector<std::string> sent;
  std::vector<std::string> received;
  for (const cardsim::SFrameRecord& frame : Card().Seen().Frames()) {
    (frame.direction == EDirection::kFromLibrary ? sent : received).push_back(Hex(frame.bytes));
  }
  EXPECT_EQ(Frames(lines, 'O'), sent);
  // Received ones are some of those that the card sent, in their order; every supervisory frame is missing.
  const std::vector<std::string> captured = Frames(lines, 'I');
  auto at = received.begin();
  size_t setups = 0;
  for (const std::string& frame : captured) {
    at = std::find(at, received.end(), frame);
    ASSERT_NE(at, received.end()) << frame;
    ++at;
    setups += frame.find("08 02 00 01 05 ") != std::string::npos ? 1 : 0;
    const int control = std::stoi(frame.substr(6, 2), nullptr, 16);
    EXPECT_NE(control & 0x03, 0x01) << "supervisory: " << frame;
  }
  EXPECT_EQ(setups, 1U);
  EXPECT_LT(captured.size(), received.size());
}

TEST_F(Capture, of_each_trunk_stands_in_a_file_of_its_serial_number_and_trunk) {
  ASSERT_NO_FATAL_FAILURE(Start({2, 1}, "[General]\nHdlcLog=1\n[100001-1]\nHdlcLog=0\n"));
  EXPECT_FALSE(fs::exists(Path(1, 0)));
  EXPECT_FALSE(Text(Path(2, 0)).empty());
  EXPECT_FALSE(Text(Path(1, 1)).empty());
}

TEST_F(Capture, is_appended_to_when_the_card_is_opened_again) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[General]\nHdlcLog=1\n"));
  ASSERT_NO_FATAL_FAILURE(MakeCall("1"));
  const std::string before = Text(Path());
  Card().Restart();
  ASSERT_TRUE(Card().Seen().WaitConnections(2, kSoon));
  ASSERT_TRUE(Card().WaitUp(kSlow));
  ASSERT_TRUE(app->WaitAllReady(kSlow));
  ASSERT_NO_FATAL_FAILURE(MakeCall("2"));
  app->zelk.Shutdown();
  const std::string after = Text(Path());
  ASSERT_GT(after.size(), before.size());
  EXPECT_EQ(after.substr(0, before.size()), before);
  EXPECT_FALSE(Frames(Lines(after.substr(before.size())), 'O').empty());
}

TEST_F(Capture, ends_with_the_opening_that_no_longer_asks_for_it) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[100001-1]\nHdlcLog=1\n"));
  app->zelk.WriteIni("[100001-1]\nHdlcLog=0\n");
  Card().Restart();
  ASSERT_TRUE(Card().Seen().WaitConnections(2, kSoon));
  const std::string before = Text(Path());
  EXPECT_FALSE(before.empty());
  ASSERT_TRUE(Card().WaitUp(kSlow));
  ASSERT_TRUE(app->WaitAllReady(kSlow));
  ASSERT_NO_FATAL_FAILURE(MakeCall("2"));
  app->zelk.Shutdown();
  EXPECT_EQ(Text(Path()), before);
}

TEST_F(Capture, that_cannot_be_written_does_not_disturb_the_calls) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
  sim->Start();
  app = std::make_unique<support::CApplication>("[General]\nHdlcLog=1\n");
  fs::create_directory(Path());
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  ASSERT_NO_FATAL_FAILURE(MakeCall("1"));
}

TEST_F(Capture, decodes_as_lapd_and_q931_in_order_and_none_malformed) {
  if (std::system("command -v tshark > /dev/null && command -v text2pcap > /dev/null") != 0) {
    GTEST_SKIP() << "tshark and text2pcap are not installed; scripts/setup installs them";
  }
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[General]\nHdlcLog=1\n"));
  const std::string capture = CaptureCalls();
  const std::string decode = std::string(ZELK_SCRIPTS_PATH "/decode-capture ") + capture;
  const size_t frames = Lines(Text(capture)).size();

  const std::vector<std::string> summary = Run(decode);
  EXPECT_EQ(summary.size(), frames);
  for (const std::string& line : summary) {
    EXPECT_TRUE(line.find("LAPD") != std::string::npos || line.find("Q.931") != std::string::npos) << line;
  }
  EXPECT_EQ(Run(decode + " -Y '_ws.malformed || _ws.short || _ws.unreassembled'"), Names());
  EXPECT_EQ(Run(decode + " -Y lapd").size(), frames);
  EXPECT_EQ(Run(decode + " -Y q931 -T fields -e frame.p2p_dir -e q931.message_type"),
            (Names{"1\t0x05", "0\t0x02", "0\t0x01", "0\t0x07", "1\t0x0f", "1\t0x45", "0\t0x4d", "1\t0x5a", "0\t0x05",
                   "1\t0x02", "1\t0x01", "1\t0x07", "0\t0x0f", "0\t0x45", "1\t0x4d", "0\t0x5a"}));
  EXPECT_EQ(Run(decode + " -Y 'q931.message_type==5' -T fields -e q931.called_party_number.digits"),
            (Names{"8001000", "0405556789"}));
}

}  // namespace

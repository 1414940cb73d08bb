// SPDX-License-Identifier: GPL-2.0-only
#include <map>

#include "common/q931_decode.h"
#include "trace_fixture.h"

// zelk-extcap as Wireshark runs it: from its folder of such programs, beside the library and the simulated cards.
namespace {

using cardsim::Call;
using cardsim::EDirection;

// By the name of a trunk and the direction: "100001-2 1" is to the library.
using Streams = std::map<std::string, std::vector<std::string>>;

class Extcap : public CTraceTest {
 protected:
  void SetUp() override {
    CTraceTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    std::filesystem::create_directories(Path("extcap"));
    std::filesystem::copy(bin / "zelk-extcap", Path("extcap"));
    const std::string label = "Extcap path:";
    for (const std::string& line : Lines(Run("tshark -G folders"))) {
      if (line.starts_with(label)) {
        place = line.substr(line.find_first_not_of(" \t", label.size()));
      }
    }
    ASSERT_FALSE(place.empty());
  }
  void TearDown() override {
    if (!IsSkipped()) {
      Run("touch " + Path("pids") + "; kill -INT $(cat " + Path("pids") + ") 2> /dev/null || true");
    }
    CTraceTest::TearDown();
  }

  // tshark where the folder is this one: it takes no other from root.
  std::string Tshark(const std::string& arguments) const {
    return "unshare -m sh -c 'echo $$ >> " + Path("pids") + "; mount --bind " + Path("extcap") + " " + place +
           "; exec tshark " + arguments + "'";
  }
  void StartTshark(const std::string& arguments, const std::string& name) const {
    Run(Tshark(arguments) + " > " + Path(name) + " 2> " + Path(name + ".errors") + " &");
  }
  // With every frame in a line that Told reads.
  void StartFrames(const std::string& source, const std::string& name) const {
    StartTshark("-l " + source +
                    " -T fields -E separator=, -e frame.interface_name -e frame.p2p_dir -e lapd.control.p "
                    "-e lapd.control.f -e q931.call_ref -e q931.call_ref_flag -e q931.message_type "
                    "-e q931.cause_value",
                name);
    ASSERT_TRUE(support::Eventually(
        [&] { return TextOf(Path(name + ".errors")).find("Capturing on") != std::string::npos; }, kSlow));
  }
  // Ends each tshark as Ctrl-C does; it is over when its source is.
  void StopTsharks() const {
    Run("kill -INT $(cat " + Path("pids") + "); for p in $(cat " + Path("pids") +
        "); do while kill -0 $p 2> /dev/null; do :; done; done; rm " + Path("pids"));
    for (const char* program : {"zelk-extcap", "dumpcap"}) {
      EXPECT_EQ(Run(std::string("pgrep -x --ns $$ --nslist net ") + program, 1), "");
    }
  }

  // From the very first frame on, all of which the simulator keeps.
  void StartWatched(const cardsim::SSimulatorConfig& config, const std::string& ini = {}) {
    ASSERT_NO_FATAL_FAILURE(Start(config, ini));
    ASSERT_TRUE(Card().WaitUp(kSlow)) << app->zelk.LogText();
    OpenAll();
  }

  Streams Told(const std::string& name) const {
    Streams streams;
    for (const std::string& line : Lines(TextOf(Path(name)))) {
      const size_t first = line.find(',');
      const size_t second = line.find(',', first + 1);
      streams[line.substr(0, first) + " " + line.substr(first + 1, second - first - 1)].push_back(
          line.substr(second + 1));
    }
    return streams;
  }
  // What the exchange sent and heard: P of commands and F of responses, call reference, message, cause.
  Streams Record(bool isLibraryNetwork) {
    Streams streams;
    for (const cardsim::SFrameRecord& frame : Card().Seen().Frames()) {
      const tool::SQ921Frame decoded = frame.Decode();
      const bool isFromNetwork = (frame.direction == EDirection::kFromLibrary) == isLibraryNetwork;
      const bool isCommand = decoded.commandBit == isFromNetwork;
      const std::string bit = decoded.pollFinal ? "1" : "";
      std::string line = isCommand ? bit + ",," : "," + bit + ",";
      if (const tool::SQ931Message& message = decoded.message; message.valid) {
        char text[64];
        std::snprintf(text, sizeof text, "%04x,%d,0x%02x,", static_cast<unsigned>(message.callReference),
                      message.fromDestination ? 1 : 0, unsigned{message.type});
        line += text + (message.Cause() < 0 ? "" : std::to_string(message.Cause()));
      } else {
        line += ",,,";
      }
      streams[std::to_string(Card().Serial()) + "-" + std::to_string(frame.trunk + 1) +
              (frame.direction == EDirection::kToLibrary ? " 1" : " 0")]
          .push_back(line);
    }
    return streams;
  }
  // Of the frames that were received the library's file has those alone that carry something.
  static Streams Messages(Streams streams) {
    for (auto& each : streams) {
      std::vector<std::string>& lines = each.second;
      lines.erase(std::remove_if(lines.begin(), lines.end(), [](const auto& line) { return line.ends_with(",,,,"); }),
                  lines.end());
    }
    return streams;
  }
  // tshark comes to say what the record has; what goes on after it is of no account.
  void ExpectTold(const std::string& name, const Streams& record) const {
    Streams told;
    support::Eventually(
        [&] {
          told = Told(name);
          return std::all_of(record.begin(), record.end(),
                             [&](const auto& each) { return told[each.first].size() >= each.second.size(); });
        },
        kSlow);
    for (const auto& [stream, lines] : record) {
      told[stream].resize(std::min(told[stream].size(), lines.size()));
      EXPECT_EQ(told[stream], lines) << stream;
    }
  }
  void ConnectAndClear(int timeslot, int trunk, int cause) {
    const Call call = ConnectIncoming(timeslot, trunk);
    call->Hangup(cause);
    ASSERT_TRUE(call->WaitEnded(kSoon));
    ASSERT_TRUE(NetworkIsIdle(trunk));
  }

  std::string place;  // where tshark looks
};

TEST_F(Extcap, tshark_lists_its_interfaces_and_what_they_are) {
  const std::string list = Run(Tshark("-D"));
  EXPECT_NE(list.find(" zelk-lo (D-channels of the cards at lo)\n"), std::string::npos) << list;
  EXPECT_NE(list.find(" zelk-hdlc (D-channel file of the library, while it grows)\n"), std::string::npos) << list;
  EXPECT_EQ(list.find("zelk-nflog"), std::string::npos) << list;
  EXPECT_NE(Run(Tshark("-i zelk-lo -L")).find("LINUX_LAPD (LAPD)"), std::string::npos);
  const std::string program = Path("extcap") + "/zelk-extcap ";
  EXPECT_EQ(Run(program + "--version"), ZELK_VERSION_STRING "\n");
  EXPECT_NE(Run(program + "--extcap-config --extcap-interface zelk-lo").find("{call=--trunk}"), std::string::npos);
  Run(program + "--extcap-dlts --extcap-interface eth0", 4);
  Run(program + "--capture --extcap-interface zelk-lo --fifo " + Path("none/fifo"), 3);
  Run(program + "--capture --extcap-interface zelk-none --fifo /dev/null", 2);
  EXPECT_NE(TextOf(Path("errors")).find("zelk-extcap: none: cannot be captured"), std::string::npos);
  Run(program + "--extcap-interface zelk-lo --extcap-capture-filter 'tcp port 1'", 4);
}

TEST_F(Extcap, a_live_capture_is_the_signalling_of_each_trunk) {
  ASSERT_NO_FATAL_FAILURE(StartFrames("-i zelk-lo", "all"));
  ASSERT_NO_FATAL_FAILURE(StartFrames("-i zelk-lo -o extcap.zelk_lo.trunk:100001-1,100001-3", "some"));
  ASSERT_TRUE(support::Eventually(
      [] {
        const std::string sockets = TextOf("/proc/self/net/packet");
        return std::count(sockets.begin(), sockets.end(), '\n') > 2;
      },
      kSlow));
  ASSERT_NO_FATAL_FAILURE(StartWatched(cardsim::SSimulatorConfig::WithTrunks({3})));
  for (int trunk = 0; trunk < 3; ++trunk) {
    ConnectAndClear(3 + trunk, trunk, 17 + trunk);
  }
  const Call dialled = ConnectOutgoing(40);
  app->zelk.Hangup(40);
  ASSERT_TRUE(dialled->WaitEnded(kSoon));
  Streams record = Record(false);
  EXPECT_EQ(record.size(), 6U);
  ExpectTold("all", record);
  for (const char* stream : {"100001-2 0", "100001-2 1"}) {
    record.erase(stream);
  }
  ExpectTold("some", record);
  EXPECT_EQ(Told("some").size(), 4U);
  StopTsharks();
}

TEST_F(Extcap, commands_of_a_library_that_is_the_network_are_commands) {
  cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks({1});
  config.cards[0].roles[0].userSide = true;
  ASSERT_NO_FATAL_FAILURE(StartFrames("-i zelk-lo", "all"));
  ASSERT_TRUE(support::Eventually(
      [] {
        const std::string sockets = TextOf("/proc/self/net/packet");
        return std::count(sockets.begin(), sockets.end(), '\n') > 1;
      },
      kSlow));
  ASSERT_NO_FATAL_FAILURE(StartWatched(config, "[General]\nClientType=1\n"));
  ConnectAndClear(3, 0, 16);
  ExpectTold("all", Record(true));
  StopTsharks();
}

// The file's own frames of layer 2 are not all that passed: messages are compared.
TEST_F(Extcap, a_file_of_the_library_is_followed_while_it_grows) {
  ASSERT_NO_FATAL_FAILURE(StartWatched(cardsim::SSimulatorConfig::WithTrunks({1}), "[General]\nHdlcLog=1\n"));
  const std::string file = app->zelk.Folder() + "/zelk-100001-1.hdlc";
  ConnectAndClear(3, 0, 17);
  ASSERT_NO_FATAL_FAILURE(StartFrames("-Y q931 -i zelk-hdlc -o extcap.zelk_hdlc.file:" + file, "file"));
  ConnectAndClear(4, 0, 31);
  const Streams record = Messages(Record(false));
  EXPECT_EQ(record.size(), 2U);
  ExpectTold("file", record);
  // A library that is started anew begins it anew.
  app->zelk.Shutdown();
  std::ofstream(file, std::ios::binary | std::ios::trunc)
      << "O 2026-11-22 14:03:07 0000 00 01 00 00 08 02 00 05 5A \r\n";
  const auto last = [&] { return Told("file")["100001-1 0"].back(); };
  EXPECT_TRUE(support::Eventually([&] { return last() == ",,0005,0,0x5a,"; }, kSlow)) << last();
  StopTsharks();
}

}  // namespace

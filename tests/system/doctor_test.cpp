// SPDX-License-Identifier: GPL-2.0-only
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "trace_fixture.h"

// zelk-doctor on the network between the library and the simulated cards, and beside the library.
namespace {

using cardsim::Bytes;
using cardsim::Call;

class Doctor : public CTraceTest {
 protected:
  std::string Doctored(const std::string& arguments, int expected = 0) const {
    return Run("'" + (bin / "zelk-doctor").string() + "' " + arguments, expected);
  }
  std::string Library() const { return std::filesystem::path(app->zelk.LogPath()).parent_path().string(); }

  // Until the capture has what shows that all before it is there too.
  void FinishCapture(const std::string& rule) {
    EXPECT_TRUE(support::Eventually(
        [&] {
          return Run("( '" + (bin / "zelk-doctor").string() + "' --capture " + Capture() + " || true )").find(rule) !=
                 std::string::npos;
        },
        kSlow))
        << Run("( '" + (bin / "zelk-doctor").string() + "' --capture " + Capture() + " || true )");
    StopCapture();
  }

  // Nothing is remarked. Where a loaded machine has stood still, sound really came late: that may be.
  void ExpectSound(const std::string& arguments) const {
    const std::string text = Run("( '" + (bin / "zelk-doctor").string() + "' " + arguments + " || true )");
    for (const std::string& line : Lines(text)) {
      const bool isRemark =
          line.starts_with("fault: ") || line.starts_with("warning: ") || line.starts_with("not seen: ");
      bool isStill = false;
      for (const char* rule : {"[audio-lost]", "[lines-starved]", "[audio-late]", "[replies-late]", "[replies-missing]",
                               "[thread-late]", "[callback-slow]"}) {
        isStill = isStill || line.ends_with(rule);
      }
      EXPECT_TRUE(!isRemark || isStill) << text;
    }
    EXPECT_NE(text.find("[reply-delay]"), std::string::npos) << text;
  }
  static void ExpectSays(const std::string& text, const std::string& severity, const std::string& sentence) {
    EXPECT_NE(text.find(severity + ": " + sentence), std::string::npos) << text;
  }
  size_t CountPackets(const std::string& file, const std::string& filter) const {
    return Lines(Run("tshark -r " + file + " -Y '" + filter + "'")).size();
  }
};

TEST_F(Doctor, a_sound_run_has_nothing_to_remark) {
  ASSERT_NO_FATAL_FAILURE(StartCaptured({2, 1}, "[Debug]\nStatus=1\n[100001-2]\nHdlcLog=1\n"));
  for (int i = 0; i < 4; ++i) {
    const Call call = ConnectIncoming(i + 1, i % 2);
    call->Hangup(i % 2 == 0 ? 16 : 17);
    ASSERT_TRUE(call->WaitEnded(kSoon));
  }
  const Call dialled = ConnectOutgoing(10);
  app->zelk.Hangup(10);
  ASSERT_TRUE(dialled->WaitEnded(kSoon));
  app->zelk.Shutdown();
  FinishCapture("reply-delay");
  ExpectSound("--library " + Library() + " --capture " + Capture());
}

TEST_F(Doctor, what_is_wrong_with_lines_is_told) {
  ASSERT_NO_FATAL_FAILURE(StartCaptured({4}, "[Generel]\n[100007-1]\n"));
  Card().SetTrunkStatus(0, 1);
  Card().SendHdlcErrors(1, 2, 10);
  for (int i = 0; i < 3; ++i) {
    Card().RestartTimeslot(2, 3);
  }
  const Call refused = Card().PlaceCall({.trunk = 3, .timeslot = 5});
  ASSERT_TRUE(app->WaitEvent(ChannelOf(3, 5), ZELK_EVENT_INCOMING_CALL, kSoon));
  refused->Hangup(102);
  ASSERT_TRUE(refused->WaitEnded(kSoon));
  Card().SendQ931(3, Bytes{0x08, 0x02, 0x00, 0x07, 0x7D, 0x08, 0x03, 0x81, 0xE0, 0x18, 0x14, 0x01, 0x01});
  Card().SetControlSilent(true);
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CHANNEL_STATE, kSlow));
  FinishCapture("card-silent");
  const std::string text = Doctored("--library " + Library() + " --capture " + Capture(), 2);
  ExpectSays(text, "fault", "Trunk 100001-1: layer 1 is out of service (status 1). [layer1-out]");
  ExpectSays(text, "fault", "Trunk 100001-2: the line cannot be read: 10 HDLC errors in ");
  ExpectSays(text, "warning", "Trunk 100001-3: timeslot 3 was restarted 3 times in a minute. [restart-storm]");
  // A message that crosses the clearing may be one more of those.
  ExpectSays(text, "warning", "Trunk 100001-4: the exchange does not understand ");
  EXPECT_NE(text.find("cause 96 MANDATORY_IE_MISSING, diagnostics 18"), std::string::npos) << text;
  ExpectSays(text, "warning", "Trunk 100001-4: a side waited in vain for the other's message in 1 call.");
  ExpectSays(text, "fault", "Card 100001 said nothing on its control connection for ");
  ExpectSays(text, "warning", "libZelkApi.ini has a section [Generel], which the library does not know; General is");
  ExpectSays(text, "warning", "libZelkApi.ini has a section [100007-1], and no card that was seen has the serial");
}

TEST_F(Doctor, two_user_sides_are_told) {
  cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks({1});
  config.cards[0].roles[0].userSide = true;
  ASSERT_NO_FATAL_FAILURE(StartCapture());
  sim = std::make_unique<cardsim::CSimulator>(config);
  sim->Start();
  app = std::make_unique<support::CApplication>();
  ASSERT_TRUE(app->zelk.Init());
  FinishCapture("layer2-same-side");
  ExpectSays(Doctored("--capture " + Capture(), 2), "fault",
             "Trunk 100001-1: both ends play the user side of the D-channel, so layer 2 does not come up.");
}

TEST_F(Doctor, beside_a_working_application_it_sends_nothing) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({2}, "[Debug]\nStatus=1\n"));
  const Call call = ConnectIncoming(3);
  ForgetAll();
  const std::string all = Path("all.pcapng");
  const std::string pid = Run("dumpcap -q -i lo -w " + all + " > /dev/null 2>&1 & echo $!");
  ASSERT_TRUE(
      support::Eventually([&] { return std::filesystem::exists(all) && std::filesystem::file_size(all) > 0; }, kSlow));
  ExpectSound("--library " + Library() + " -i lo --seconds 2");
  ExpectSays(Doctored("--library " + Library() + " --probe", 3), "not seen",
             "A library runs on this machine, so no probe is sent. [probe-refused]");
  Run("kill -INT " + pid.substr(0, pid.find('\n')) + "; while kill -0 " + pid.substr(0, pid.find('\n')) +
      "; do :; done");
  // All there is: the control connection that was there before, and its sound.
  EXPECT_GT(CountPackets(all, "udp"), 100U);
  EXPECT_EQ(CountPackets(all, "tcp.flags.syn == 1 or tcp.stream > 0 or udp.stream > 0 or not (tcp or udp)"), 0U);
  EXPECT_FALSE(call->WaitEnded(std::chrono::seconds{0}));
  EXPECT_TRUE(app->Events(ChannelOf(0, 3)).empty());
  app->zelk.Hangup(ChannelOf(0, 3));
  ASSERT_TRUE(call->WaitEnded(kSoon));
}

TEST_F(Doctor, a_probe_finds_cards_where_no_library_runs) {
  ExpectSays(Doctored("--probe", 2), "fault", "No card answers a probe. [probe-no-card]");
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
  sim->Start();
  ExpectSays(Doctored("--probe", 2), "measured", "A card at 127.0.1.1 answers at lo (127.0.0.1). [probe-card]");
}

// Who has the port of the adapter's address for himself alone keeps every other off.
TEST_F(Doctor, a_probe_says_why_it_could_not_be_sent) {
  const int holder = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_port = htons(5854);
  place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(holder, reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
  const std::string text = Doctored("--probe", 2);  // the loopback adapter is no adapter of cards
  ExpectSays(text, "not seen", "The network of lo (127.0.0.1) cannot be asked: Address already in use. [probe-failed]");
  EXPECT_EQ(text.find("probe-no-card"), std::string::npos) << text;
  close(holder);
}

TEST_F(Doctor, the_log_and_d_channel_files_are_read) {
  ASSERT_NO_FATAL_FAILURE(StartCaptured({1}, "[General]\nHdlcLog=1\n"));
  const Call refused = Card().PlaceCall({.trunk = 0, .timeslot = 5});
  ASSERT_TRUE(app->WaitEvent(ChannelOf(0, 5), ZELK_EVENT_INCOMING_CALL, kSoon));
  refused->Hangup(102);
  ASSERT_TRUE(refused->WaitEnded(kSoon));
  Card().SetControlSilent(true);
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CHANNEL_STATE, kSlow));
  ASSERT_TRUE(app->zelk.WaitLog("Card 0 is down"));
  FinishCapture("card-silent");
  app->zelk.Shutdown();
  const std::string text = Doctored("--library " + Library(), 2);
  ExpectSays(text, "warning", "In the last day of its log the library lost card 0 (once). [log-card-lost]");
  ExpectSays(text, "warning",
             "Trunk 100001-1: a side waited in vain for the other's message in 1 call. [timer-expired]");
  EXPECT_NE(text.find("zelk-100001-1.hdlc, line "), std::string::npos) << text;
  // What the capture says of the trunk too is said once.
  const std::string both = Doctored("--library " + Library() + " --capture " + Capture(), 2);  // the card is seen
  ExpectSays(both, "fault", "Card 100001 said nothing on its control connection");
  ExpectSays(both, "warning", "Trunk 100001-1: a side waited in vain");
  EXPECT_EQ(both.find("zelk-100001-1.hdlc, line "), std::string::npos) << both;
  // By themselves, and nothing of this machine.
  EXPECT_EQ(Doctored("--log " + app->zelk.LogPath(), 1).find("adapter-none"), std::string::npos);
  ExpectSays(Doctored("--capture " + Library() + "/zelk-100001-1.hdlc", 1), "warning", "Trunk 100001-1: a side waited");
  ExpectSays(Doctored("--log " + (bin / "zelk-doctor").string(), 3), "not seen", (bin / "zelk-doctor").string());
  ExpectSays(Doctored("--log " + Path("none"), 3), "not seen", Path("none") + " cannot be read: it cannot be opened.");
}

TEST_F(Doctor, each_object_is_a_line_and_each_end_has_its_code) {
  std::ofstream(Path("empty.pcap")) << "no capture";
  EXPECT_NE(Doctored("--capture " + Path("empty.pcap"), 3).find("(unknown file format). [capture-unreadable]"),
            std::string::npos);
  const std::string lines = Doctored("--json --capture " + Path("empty.pcap"), 3);
  std::ofstream(Path("lines")) << lines;
  EXPECT_EQ(Run("python3 -c \"import json\nfor line in open('" + Path("lines") +
                "'):\n  o = json.loads(line); assert list(o)[:2] == ['type', 'time']; print(o['type'], "
                "o.get('rule'), o.get('code'))\""),
            "hello None None\nfinding capture-unreadable None\nend None 3\n");
  Doctored("--library " + Path("none"), 2);  // no adapter but the loopback's
  Doctored("--seconds 5", 4);
  Doctored("--capture a -i lo", 4);
  Doctored("--capture " + Path("empty.pcap") + " > /dev/full", 5);
  EXPECT_EQ(TextOf(Path("errors")), "zelk-doctor: standard output cannot be written to (No space left on device)\n");
  Run("'" + (bin / "zelk-doctor").string() + "' --capture " + Path("empty.pcap") + " | true");
  EXPECT_EQ(TextOf(Path("errors")), "");
}

}  // namespace

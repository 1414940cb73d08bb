// SPDX-License-Identifier: GPL-2.0-only
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <regex>

#include "trace_live_fixture.h"

// zelk-trace while the library runs: its status page, an adapter, and a terminal of tmux.
namespace {

using cardsim::Call;
using nlohmann::json;

class TraceLive : public CTraceLive {};

constexpr char kTwoCalls[] = "..C...............i...........";

TEST_F(TraceLive, the_page_shows_what_stands_on_every_channel) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({2, 1}, "[Debug]\nStatus=1\n"));
  const Call connected = ConnectIncoming(3, 1);
  const Call ringing = Offer(20, 1);
  const Call ended = ConnectIncoming(5, 0);
  ended->Hangup(17);
  ASSERT_TRUE(ended->WaitEnded(kSoon));
  ASSERT_TRUE(app->WaitEvent(4, ZELK_EVENT_DISCONNECTED, kSoon));
  app->zelk.CloseChannel(89);

  const json page = PageJson();
  EXPECT_TRUE(page["live"]);
  EXPECT_EQ(page["process"], getpid());
  int channel = 0;
  for (const json& card : page["cards"]) {
    EXPECT_EQ(card["card"], Card(card["number"]).Serial());
    EXPECT_EQ(card["state"], "open");
    for (const json& trunk : card["trunks"]) {
      EXPECT_EQ(trunk["layer1"], 0);
      EXPECT_EQ(trunk["layer2"], "up");
      for (const json& each : trunk["channels"]) {
        const char* const state = channel == 32 ? "connected" : channel == 48 ? "ringing" : "idle";
        EXPECT_EQ(each["channel"], channel);
        EXPECT_EQ(each["open"], channel != 89);
        EXPECT_EQ(each["state"], state) << channel;
        ++channel;
      }
    }
  }
  EXPECT_EQ(channel, 90);
  const json& last = page["cards"][0]["trunks"][0]["channels"][4];
  EXPECT_EQ(last["cause"], 17);
  EXPECT_EQ(last["offered"], 1);
  EXPECT_EQ(last["connected"], 1);
  const std::string text = TraceOf("board --once --status " + Page());
  EXPECT_NE(text.find(std::string("  ") + kTwoCalls + "\n"), std::string::npos) << text;
  const std::string metrics = TraceOf("board --metrics --status " + Page());
  EXPECT_NE(metrics.find("\nzelk_trunk_channels_connected{card=\"100001\",trunk=\"2\"} 1\n"), std::string::npos);
}

TEST_F(TraceLive, the_page_follows_sound_alarms_and_the_loss_of_a_card) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({2}, "[Debug]\nStatus=1\n"));
  const Call call = ConnectIncoming(3);
  const std::vector<uint8_t> sound(80000, 0x55);
  ASSERT_TRUE(app->zelk.PlayBuffer(2, sound.data(), static_cast<uint32_t>(sound.size())));
  const auto channel = [&] { return PageJson()["cards"][0]["trunks"][0]["channels"][2]; };
  EXPECT_TRUE(support::Eventually([&] { return channel()["queuedMs"] > 5000; }, kSoon));
  app->zelk.StopPlay(2);
  EXPECT_TRUE(support::Eventually([&] { return channel()["queuedMs"] == 0; }, kSoon)) << channel();
  EXPECT_GT(PageJson()["callbacks"]["record"]["slowestMs"], 0);
  const std::string before = PageJson()["heartbeat"];
  EXPECT_TRUE(support::Eventually([&] { return PageJson()["heartbeat"] != before; }, kSoon));

  Card().SetTrunkStatus(1, 1);
  EXPECT_TRUE(support::Eventually([&] { return PageJson()["cards"][0]["trunks"][1]["layer1"] == 1; }, kSoon));
  Card().SetControlSilent(true);
  EXPECT_TRUE(support::Eventually([&] { return PageJson()["cards"][0]["state"] == "lost"; }, kSlow));
  const json trunk = PageJson()["cards"][0]["trunks"][0];
  EXPECT_EQ(trunk["layer2"], "down");
  EXPECT_EQ(trunk["channels"][2]["state"], "down");
}

TEST_F(TraceLive, a_page_of_something_else_is_not_shown) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}, "[Debug]\nStatus=1\n"));
  ExpectRefused(Changed(8, std::string("\2\0\0\0", 4)), 2, "version 2");
  ExpectRefused(Changed(12, std::string("\1\0\0\0", 4)), 2, "says that it has 1");
  ExpectRefused(Changed(0, "x"), 2, "is no status page");
  ExpectRefused(Changed(340736, "x"), 2, "340737 bytes");
  // No process has this number; and this copy's heart beats no more.
  ExpectRefused(Changed(16, "\xff\xff\xff\x7f"), 1, "process 2147483647, whose page it is, does not live any more");
  EXPECT_FALSE(json::parse(TraceOf("board --json --status " + Path("changed.status"), 1))["live"]);
  app->zelk.Shutdown();
  ExpectRefused(Page(), 1, "is shut down");
  ExpectRefused(Path("none"), 2, "cannot be opened");
}

TEST_F(TraceLive, a_library_without_the_key_has_no_page) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  EXPECT_FALSE(std::filesystem::exists(Page()));
}

// Another process writes there: this library works on without a page, and leaves that one alone.
TEST_F(TraceLive, a_page_that_another_process_writes_is_left_to_it) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
  sim->Start();
  app = std::make_unique<support::CApplication>("[Debug]\nStatus=1\n");
  std::ofstream(Page()) << "of another";
  const std::string holder = Run("python3 -c \"import fcntl,time; f=open('" + Page() +
                                 "','r+'); fcntl.lockf(f,fcntl.LOCK_EX); print('locked',file=open('" + Path("locked") +
                                 "','w')); time.sleep(1000)\" > /dev/null 2>&1 & echo $!");
  ASSERT_TRUE(support::Eventually([&] { return std::filesystem::exists(Path("locked")); }, kSoon));
  StartLibrary();
  EXPECT_EQ(TextOf(Page()), "of another");
  Run("kill " + holder);
}

TEST_F(TraceLive, an_adapter_gives_calls_and_messages_as_they_come) {
  StartProgram(Program() + " calls -i lo --csv", Path("calls"), Path("calls.errors"));
  StartProgram(Program() + " ladder -i lo --follow", Path("ladder"), Path("ladder.errors"));
  ASSERT_TRUE(support::Eventually(
      [] {
        const std::string sockets = TextOf("/proc/self/net/packet");
        return std::count(sockets.begin(), sockets.end(), '\n') > 2;
      },
      kSlow));
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  const Call call = ConnectIncoming(3);
  call->Hangup(17);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  const auto has = [&](const std::string& file, const std::string& text) {
    return support::Eventually([&] { return TextOf(Path(file)).find(text) != std::string::npos; }, kSlow);
  };
  EXPECT_TRUE(has("calls", ",17,USER_BUSY,network,released,")) << TextOf(Path("calls")) << TextOf(Path("calls.errors"));
  EXPECT_TRUE(has("ladder", " SETUP ")) << TextOf(Path("ladder"));
  EXPECT_TRUE(has("ladder", " DISCONNECT ")) << TextOf(Path("ladder"));
  StopPrograms();
  EXPECT_TRUE(support::Eventually([] { return !IsCapturing(); }, kSlow));
}

TEST_F(TraceLive, an_adapter_gives_the_messages_of_a_trunk_alone) {
  StartProgram(Program() + " ladder -i lo --follow --trunk 100001-2", Path("ladder"), Path("ladder.errors"));
  ASSERT_TRUE(support::Eventually(IsCapturing, kSlow));
  ASSERT_NO_FATAL_FAILURE(StartOpen({2}));
  for (const int trunk : {0, 1}) {
    const Call call = ConnectIncoming(3, trunk);
    call->Hangup(17);
    ASSERT_TRUE(call->WaitEnded(kSoon));
  }
  EXPECT_TRUE(support::Eventually(
      [&] { return TextOf(Path("ladder")).find(" RELEASE COMPLETE ") != std::string::npos; }, kSlow))
      << TextOf(Path("ladder.errors"));
  // Those of the other trunk came before.
  const Names lines = Lines(TextOf(Path("ladder")));
  ASSERT_FALSE(lines.empty());
  EXPECT_NE(lines.front().find(" SETUP "), std::string::npos) << lines.front();
  for (const std::string& line : lines) {
    EXPECT_NE(line.find("  100001-2 3 "), std::string::npos) << line;
  }
  StopPrograms();
  EXPECT_TRUE(support::Eventually([] { return !IsCapturing(); }, kSlow));
}

TEST_F(TraceLive, a_pipe_shows_the_same_signalling_to_tshark_live) {
  Run("mkfifo " + Path("pipe"));
  StartProgram("tshark -l -i " + Path("pipe") + " -Y q931 -T fields -e frame.interface_name -e q931.message_type",
               Path("live"), Path("live.errors"));
  StartProgram(Program() + " export -i lo -o -", Path("pipe"), Path("export.errors"));
  ASSERT_TRUE(support::Eventually(IsCapturing, kSlow));
  ASSERT_NO_FATAL_FAILURE(StartOpen({2}));
  const Call call = ConnectIncoming(3, 1);
  call->Hangup(17);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_TRUE(
      support::Eventually([&] { return TextOf(Path("live")).find("100001-2\t0x5a") != std::string::npos; }, kSlow))
      << TextOf(Path("live")) << TextOf(Path("live.errors"));
  EXPECT_EQ(TextOf(Path("live")).substr(0, 13), "100001-2\t0x05") << TextOf(Path("live"));
}

TEST_F(TraceLive, metrics_are_as_prometheus_wants_them) {
  if (std::system("command -v promtool > /dev/null") != 0) {
    GTEST_SKIP() << "promtool is not there (package prometheus)";
  }
  StartProgram("dumpcap -q -i lo -w " + Path("m.pcapng"), "/dev/null", "/dev/null");
  ASSERT_TRUE(support::Eventually(IsCapturing, kSlow));
  ASSERT_NO_FATAL_FAILURE(StartOpen({2}, "[Debug]\nStatus=1\n"));
  const Call call = ConnectIncoming(3, 1);
  const auto metrics = [&] { return "'" + (bin / "zelk-trace").string() + "' board --metrics " + Path("m.pcapng"); };
  EXPECT_TRUE(support::Eventually(
      [&] {
        return Run("( " + metrics() + " || true )").find("_connected{card=\"100001\",trunk=\"2\"} 1") !=
               std::string::npos;
      },
      kSlow));
  StopPrograms();
  EXPECT_EQ(Run("( " + metrics() + " || true ) | promtool check metrics"), "");
  EXPECT_EQ(TextOf(Path("errors")), "");
  EXPECT_EQ(
      Run("'" + (bin / "zelk-trace").string() + "' board --metrics --status " + Page() + " | promtool check metrics"),
      "");
  EXPECT_EQ(TextOf(Path("errors")), "");
}

TEST_F(TraceLive, the_board_on_a_terminal_follows_the_wire_and_the_keys) {
  if (std::system("command -v tmux > /dev/null") != 0) {
    GTEST_SKIP() << "tmux is not there";
  }
  OpenTerminal("board -i lo", "-x 80 -y 24");
  ASSERT_TRUE(support::Eventually(IsCapturing, kSlow)) << Screen();
  EXPECT_TRUE(WaitScreen("No card has said anything yet.")) << Screen();
  ASSERT_NO_FATAL_FAILURE(StartOpen({8, 8, 8}));
  const Call connected = ConnectIncoming(3, 1);
  const Call ringing = Offer(20, 1);
  EXPECT_TRUE(WaitScreen(std::string("100001-2     ok  up   ") + kTwoCalls)) << Screen();
  EXPECT_EQ(Screen().find("starved"), std::string::npos);
  // 24 trunks do not fit into 24 lines: the cursor takes the table along.
  EXPECT_EQ(Screen().find("100003-8"), std::string::npos);
  Keys("End");
  EXPECT_TRUE(WaitScreen("100003-8     ok  up   ..............................")) << Screen();
  EXPECT_EQ(Screen().find("100001-1 "), std::string::npos);
  Keys("Home Down Right Right Enter");
  EXPECT_TRUE(WaitScreen("Present call")) << Screen();
  EXPECT_TRUE(WaitScreen("-- CONNECT --")) << Screen();
  connected->Hangup(17);
  EXPECT_TRUE(WaitScreen("Last call")) << Screen();
  EXPECT_TRUE(WaitScreen("cause 17 USER_BUSY by network")) << Screen();
  TryFilterHelpAndPause();
  Tmux("resize-window -x 200 -y 50");
  EXPECT_TRUE(WaitScreen("starved")) << Screen();
  EXPECT_TRUE(WaitScreen("100003-8")) << Screen();
  EXPECT_TRUE(WaitScreen("100001-2     ok  up   ..................i...........")) << Screen();
  Card(0).SetTrunkStatus(3, 1);
  EXPECT_TRUE(WaitScreen("100001-4     out ")) << Screen();
  sim.reset();
  EXPECT_TRUE(WaitScreen("100002-1     ?   lost xxxxxxxxxxxxxxxxxxxxxxxxxxxxxx")) << Screen();
  Keys("q");
  ExpectLeft("0");
}

TEST_F(TraceLive, the_terminal_is_sound_after_every_end) {
  if (std::system("command -v tmux > /dev/null") != 0) {
    GTEST_SKIP() << "tmux is not there";
  }
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}, "[Debug]\nStatus=1\n"));
  const std::string command = "board --status " + Page();
  OpenTerminal(command, "-x 80 -y 24", "NO_COLOR=1");
  ASSERT_TRUE(WaitScreen("100001-1     ok  up   ..............................")) << Screen();
  EXPECT_FALSE(std::regex_search(Tmux("capture-pane -p -e"), std::regex("\x1b\\[[34][0-7]m")));
  Keys("C-c");
  ExpectLeft("0");
  OpenTerminal(command, "-x 80 -y 24");
  ASSERT_TRUE(WaitScreen("100001-1     ok  up   ")) << Screen();
  Kill();
  ExpectLeft("0");
  OpenTerminal("board -i lo", "-x 80 -y 24");
  ASSERT_TRUE(support::Eventually(IsCapturing, kSlow)) << Screen();
  ASSERT_TRUE(WaitScreen("127.0.1.1-1")) << Screen();  // begun before the capture: no serial number
  Kill();
  ExpectLeft("0");
  OpenTerminal(command, "-x 200 -y 50", "TERM=dumb");
  EXPECT_TRUE(WaitScreen("pacer at most")) << Screen();
  ExpectLeft("0");
}

// Nothing but the end of its input tells a program so that does not belong to the terminal's session.
TEST_F(TraceLive, the_end_of_the_terminal_is_the_end_of_the_board) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}, "[Debug]\nStatus=1\n"));
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_TRUE(terminal >= 0 && grantpt(terminal) == 0 && unlockpt(terminal) == 0);
  const int inside = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
  const std::string program = bin / "zelk-trace";
  const std::string page = Page();
  const pid_t board = fork();
  if (board == 0) {
    setsid();
    dup2(inside, STDIN_FILENO);
    dup2(inside, STDOUT_FILENO);
    setenv("TERM", "xterm", 1);
    execl(program.c_str(), "zelk-trace", "board", "--status", page.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  close(inside);
  std::string shown(4096, ' ');
  EXPECT_GT(read(terminal, shown.data(), shown.size()), 0) << "it draws";
  close(terminal);
  int status = -1;
  EXPECT_TRUE(support::Eventually([&] { return waitpid(board, &status, WNOHANG) == board; }, kSlow));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  if (status == -1) {
    kill(board, SIGKILL);
    waitpid(board, &status, 0);
  }
}

}  // namespace

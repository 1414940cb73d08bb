// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>

#include "trace_fixture.h"

// zelk-trace while the library runs: programs that go on, its status page, and a terminal of tmux.
class CTraceLive : public CTraceTest {
 protected:
  void TearDown() override {
    CloseTerminal();
    Run("touch " + Path("pids") + "; kill -INT $(cat " + Path("pids") + ") 2> /dev/null || true");
    CTraceTest::TearDown();
  }

  std::string Page() const {
    const std::string log = app->zelk.LogPath();
    return log.substr(0, log.rfind('.')) + ".status";
  }
  nlohmann::json PageJson() const { return nlohmann::json::parse(TraceOf("board --json --status " + Page())); }

  // A copy of the page with other bytes at a place.
  std::string Changed(size_t at, const std::string& bytes) const {
    std::string text = TextOf(Page());
    text.replace(at, bytes.size(), bytes);
    std::ofstream(Path("changed.status"), std::ios::binary) << text;
    return Path("changed.status");
  }
  void ExpectRefused(const std::string& page, int code, const std::string& sentence) const {
    EXPECT_EQ(TraceOf("board --once --status " + page, code), "");
    EXPECT_NE(TextOf(Path("errors")).find(sentence), std::string::npos) << TextOf(Path("errors"));
  }

  // ---- a terminal ----

  // Each has a server of its own.
  std::string Socket() const { return Path("tmux" + std::to_string(terminals)); }
  std::string Tmux(const std::string& command) const { return Run("tmux -S " + Socket() + " " + command); }
  void OpenTerminal(const std::string& command, const std::string& size, const std::string& environment = {}) {
    CloseTerminal();
    ++terminals;
    Tmux("-f /dev/null new-session -d " + size + " \"" + environment + " '" + (bin / "zelk-trace").string() + "' " +
         command + "; echo left $?; stty -a; exec cat\"");
  }
  void CloseTerminal() const {
    if (terminals > 0) {
      Tmux("kill-server");
    }
  }
  std::string Screen() const { return Tmux("capture-pane -p"); }
  bool WaitScreen(const std::string& text) const {
    return support::Eventually([&] { return Screen().find(text) != std::string::npos; }, kSlow);
  }
  void Keys(const std::string& keys) const { Tmux("send-keys " + keys); }
  // The program has gone, with this code, and the terminal echoes and is a line at a time again.
  void ExpectLeft(const std::string& code) const {
    EXPECT_TRUE(WaitScreen("left " + code)) << Screen();
    EXPECT_TRUE(WaitScreen(" icanon")) << Screen();
    EXPECT_TRUE(std::regex_search(Screen(), std::regex("[ \n]echo "))) << Screen();
  }
  void Kill() const { Run("kill $(pgrep -x zelk-trace -P $(tmux -S " + Socket() + " display -p '#{pane_pid}'))"); }
  // From the details of a channel back to the whole table.
  void TryFilterHelpAndPause() const {
    Keys("Escape / 100002 Enter");
    EXPECT_TRUE(WaitScreen("[/100002]")) << Screen();
    EXPECT_EQ(Screen().find("100001-2"), std::string::npos) << Screen();
    Keys("? ");
    EXPECT_TRUE(WaitScreen("stand still, and go on")) << Screen();
    Keys("q p");
    EXPECT_TRUE(WaitScreen("[paused]")) << Screen();
    Keys("p / Escape");
  }
  // Runs until it is stopped, at the latest when the test ends.
  void StartProgram(const std::string& command, const std::string& output, const std::string& errors) const {
    Run("sh -c 'echo $$ >> " + Path("pids") + "; exec " + command + "' > " + output + " 2> " + errors + " &");
  }
  std::string Program() const { return (bin / "zelk-trace").string(); }
  void StopPrograms() const { Run("kill -INT $(cat " + Path("pids") + ")"); }
  static bool IsCapturing() {
    const std::string sockets = TextOf("/proc/self/net/packet");
    return std::count(sockets.begin(), sockets.end(), '\n') > 1;
  }

  int terminals = 0;
};

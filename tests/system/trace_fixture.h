// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "call_fixture.h"
#include "cardsim/program/call_record.h"

// zelk-trace beside the library and the simulated cards: programs in a folder of their own.
class CTraceTest : public CCallTest {
 protected:
  void SetUp() override {
    if (remote::CRemoteLibrary::Place() != nullptr) {
      GTEST_SKIP() << "the library is in a network of its own";
    }
    bin = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    if (!std::filesystem::exists(bin / "zelk-trace") || std::system("command -v dumpcap tshark > /dev/null") != 0) {
      GTEST_SKIP() << "zelk-trace or tshark is not there";
    }
    folder = std::filesystem::temp_directory_path() / "zelk-trace";
    std::filesystem::create_directories(folder);
  }
  void TearDown() override {
    StopCapture();
    CCallTest::TearDown();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }

  std::string Path(const std::string& name) const { return (folder / name).string(); }

  // What a command prints.
  std::string Run(const std::string& command, int expected = 0) const {
    const std::string line = command + " 2> " + Path("errors");
    std::FILE* pipe = popen(line.c_str(), "r");
    std::string text;
    std::array<char, 4096> part{};
    for (size_t got = 0; (got = std::fread(part.data(), 1, part.size(), pipe)) > 0;) {
      text.append(part.data(), got);
    }
    const int status = pclose(pipe);
    EXPECT_EQ(WEXITSTATUS(status), expected) << command << "\n" << TextOf(Path("errors")) << text;
    return text;
  }
  std::string TraceOf(const std::string& arguments, int expected = 0) const {
    return Run("'" + (bin / "zelk-trace").string() + "' " + arguments, expected);
  }
  static std::string TextOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  static Names Lines(const std::string& text) {
    Names lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
      lines.push_back(line.substr(0, line.find('\r')));
    }
    return lines;
  }

  // ---- a capture of the whole run ----
  std::string Capture() const { return Path("net.pcapng"); }
  // It runs from before the library's start: dumpcap makes its file when it has opened the adapter.
  void StartCapture() {
    dumpcap = Run("dumpcap -q -i lo -f 'tcp port 5854 or udp port 5854 or udp[8:2] = 0xff55' -w " + Capture() +
                  " > /dev/null 2>&1 & echo $!");
    ASSERT_TRUE(support::Eventually(
        [&] { return std::filesystem::exists(Capture()) && std::filesystem::file_size(Capture()) > 0; }, kSlow));
  }
  void StartCaptured(const std::vector<int>& trunksOfCards, const std::string& ini = {}) {
    ASSERT_NO_FATAL_FAILURE(StartCapture());
    ASSERT_NO_FATAL_FAILURE(StartOpen(trunksOfCards, ini));
  }
  void StopCapture() {
    if (!dumpcap.empty()) {
      const std::string pid = dumpcap.substr(0, dumpcap.find('\n'));
      Run("kill -INT " + pid + "; while kill -0 " + pid + "; do :; done");
      dumpcap.clear();
    }
  }

  std::string dumpcap;  // its process, while it runs
  std::filesystem::path bin;
  std::filesystem::path folder;
};

// And what a whole capture of the network between them tells.
class CCaptureTest : public CTraceTest {
 protected:
  // Until the file has the end of every call; then nothing more is captured.
  void FinishCapture(size_t calls) {
    EXPECT_TRUE(support::Eventually(
        [&] {
          const std::string csv =
              Run("( '" + (bin / "zelk-trace").string() + "' calls --csv " + Capture() + " || true )");
          size_t released = 0;
          for (const std::string& line : Lines(csv)) {
            released += line.find(",released,") != std::string::npos ? 1 : 0;
          }
          return released >= calls;
        },
        kSlow))
        << TraceOf("calls " + Capture());
    StopCapture();
  }

  // Every call in a line, as CallText has it.
  Names CallTexts() const {
    Names texts;
    const Names lines = Lines(TraceOf("calls --csv " + Capture()));
    const Names head = Fields(lines.front());
    for (size_t i = 1; i < lines.size(); ++i) {
      const Names fields = Fields(lines[i]);
      std::string text;
      for (const char* name :
           {"card", "trunk", "timeslot", "direction", "calling", "called", "connected", "cause", "clearedBy"}) {
        const auto at = static_cast<size_t>(std::find(head.begin(), head.end(), name) - head.begin());
        text += (text.empty() ? "" : " ") + fields.at(at);
      }
      texts.push_back(text);
    }
    return texts;
  }
  // "100001 1 5 to library 0301 8001 true 17 network": card, trunk, timeslot, direction, numbers, connected, cause, who
  // cleared.
  static std::string CallText(const cardsim::SCallRecord& call) {
    return std::to_string(100001 + call.card) + " " + std::to_string(call.trunk + 1) + " " +
           std::to_string(call.timeslot) + (call.fromLibrary ? " from library " : " to library ") + call.calling + " " +
           call.called + (call.connected ? " true " : " false ") + std::to_string(call.cause) + " " +
           cardsim::ClearedByName(call.clearedBy);
  }
  static Names Fields(const std::string& line) {
    Names fields;
    std::istringstream in(line);
    for (std::string field; std::getline(in, field, ',');) {
      fields.push_back(field);
    }
    return fields;
  }
};

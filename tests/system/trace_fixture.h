// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "call_fixture.h"

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
    EXPECT_EQ(WEXITSTATUS(status), expected) << command << "\n" << TextOf(Path("errors"));
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

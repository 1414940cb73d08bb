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

  std::filesystem::path bin;
  std::filesystem::path folder;
};

// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/log.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "runtime/config.h"
#include "support/allocation_probe.h"
#include "support/temp_dir.h"

namespace zelk {
namespace {

class ProcessLog : public testing::Test {
 protected:
  void SetUp() override {
    Log().Start(dir.Path("flush.log"));  // takes the lines that earlier tests left
    Log().Start(path);
  }
  void TearDown() override {
    Log().Finish();
    Config().level = 2;
  }

  // The texts of the lines written so far, without date and time.
  std::string Written() {
    Log().Stop();
    std::string all = ReadAll(path);
    std::string texts;
    for (size_t at = 0; at < all.size(); at = all.find('\n', at) + 1) {
      texts += all.substr(at + 20, all.find('\r', at) - at - 20) + "|";
    }
    return texts;
  }

  CTempDir dir;
  std::string path = dir.Path("z.log");
};

TEST_F(ProcessLog, LinesAreWrittenWhateverTheLevel) {
  Config().level = 99;
  LogLine("general", kGeneralLine);
  LogLine("channel", 31);
  EXPECT_EQ(Written(), "  G :general| 31 :channel|");
}

TEST_F(ProcessLog, TheLevelChoosesTheClasses) {
  struct SCase {
    int32_t level;
    bool status;
    bool detail;
  };
  for (const SCase& expected : {SCase{-1, true, true},
                                {0, true, true},
                                {1, true, true},
                                {2, true, false},
                                {3, false, false},
                                {100, false, false}}) {
    Config().level = expected.level;
    EXPECT_TRUE(LogEnabled(ELogClass::kAlways)) << expected.level;
    EXPECT_EQ(LogEnabled(ELogClass::kStatus), expected.status) << expected.level;
    EXPECT_EQ(LogEnabled(ELogClass::kDetail), expected.detail) << expected.level;
  }
}

TEST_F(ProcessLog, FormattedLinesOfADisabledClassAreLeftOut) {
  Config().level = 2;
  LogFormat(ELogClass::kDetail, 1, "detail %d", 1);
  LogFormat(ELogClass::kStatus, 2, "status %s", "two");
  LogFormat(ELogClass::kAlways, kGeneralLine, "always 0x%04X", 0x1006U);
  EXPECT_EQ(Written(), "  2 :status two|  G :always 0x1006|");
}

TEST_F(ProcessLog, LinesWhoseTextFindsNoMemoryAreCountedAsLost) {
  const std::string text(3000, 'x');  // more than formatting has on the stack
  const uint32_t lost =
      support::ForEachFailingAllocation([&text] { LogFormat(ELogClass::kAlways, 7, "%s", text.c_str()); }, [](bool) {});
  ASSERT_GE(lost, 3U);
  EXPECT_EQ(Written(), "  G :Log: lines lost for want of memory: " + std::to_string(lost) + "|  7 :" + text + "|");
}

TEST_F(ProcessLog, ALongTextIsCutWithItsLine) {
  LogFormat(ELogClass::kAlways, 7, "%s", std::string(50'000, 'x').c_str());
  Log().Stop();
  EXPECT_EQ(ReadAll(path).size(), 43'008U);
}

TEST_F(ProcessLog, AnAudioBufferCountOutOfRangeIsLoggedOncePerRead) {
  CConfig config;
  config.audioBuffers = 5000;
  EXPECT_EQ(config.AudioBlocks(), 4096U);
  EXPECT_EQ(config.AudioBlocks(), 4096U);
  EXPECT_EQ(Written(), "  G :AudioBuffers 5000 is out of range, 4096 is used|");
}

TEST_F(ProcessLog, AnEchoTailOutOfRangeIsLoggedOncePerRead) {
  CConfig config;
  EXPECT_EQ(config.EchoTail(32), 32);
  EXPECT_EQ(config.EchoTail(1024), 1024);
  EXPECT_EQ(config.EchoTail(2000), 1024);
  EXPECT_EQ(config.EchoTail(8), 32);  // another trunk's
  config.Read("");
  EXPECT_EQ(config.EchoTail(31), 32);
  EXPECT_EQ(Written(),
            "  G :EchoTail 2000 is out of range, 1024 is used|  G :EchoTail 31 is out of range, 32 is used|");
}

// What happens when a process ends with the log running. The child is a copy of this process and leaves by exit, which
// destroys the static objects, the youngest first.
TEST(ProcessLogAtExit, WritesWhatIsPendingAndWhatOtherStaticObjectsLog) {
  const CTempDir dir;
  const std::string path = dir.Path("exit.log");
  testing::FLAGS_gtest_death_test_style = "fast";
  const auto leave = [&path] {
    static const struct SOther {
      ~SOther() { LogLine("from a destructor", kGeneralLine); }
    } other;
    Log().Start(path);
    LogLine("pending", kGeneralLine);
    std::exit(0);
  };
  EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "");
  const std::string text = ReadAll(path);
  EXPECT_NE(text.find("pending"), std::string::npos);
  EXPECT_NE(text.find("from a destructor"), std::string::npos);
}

}  // namespace
}  // namespace zelk

#include "runtime/log_batch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <vector>

namespace zelk {
namespace {

// Notes every call; opens fail as often as told, writes answer what is queued (all bytes when nothing is).
class CScriptedFile : public ILogFile {
 public:
  bool Open(const std::string& path) override {
    calls.push_back("open " + path);
    if (openFailures > 0) {
      --openFailures;
    } else {
      isOpen = true;
    }
    return isOpen;
  }
  bool IsOpen() const override { return isOpen; }
  int64_t Write(const void* data, size_t length) override {
    int64_t result = static_cast<int64_t>(length);
    if (!answers.empty()) {
      result = std::min(result, answers.front());
      answers.pop_front();
    }
    calls.push_back("write " + std::string(static_cast<const char*>(data), length));
    content.append(static_cast<const char*>(data), static_cast<size_t>(std::max<int64_t>(result, 0)));
    return result;
  }
  void Close() override {
    calls.push_back("close");
    isOpen = false;
  }

  std::vector<std::string> TakeCalls() { return std::exchange(calls, {}); }

  bool isOpen = false;
  int openFailures = 0;
  std::deque<int64_t> answers;
  std::vector<std::string> calls;
  std::string content;
};

using Calls = std::vector<std::string>;

class LogBatch : public testing::Test {
 protected:
  void Pass(const std::string& text, uint32_t nowMs, bool closeAtOnce = false) {
    std::string taken = text;
    batch.Take(taken);
    EXPECT_TRUE(taken.empty());
    batch.WriteOut("p", closeAtOnce, nowMs);
  }

  CScriptedFile file;
  CLogBatch batch{file, 1000};
};

TEST_F(LogBatch, OpensAndWritesWithOneCallAndStaysOpen) {
  Pass("a\r\nb\r\n", 1000);
  EXPECT_EQ(file.TakeCalls(), (Calls{"open p", "write a\r\nb\r\n"}));
  Pass("c", 1499);
  EXPECT_EQ(file.TakeCalls(), (Calls{"write c"}));
}

TEST_F(LogBatch, AnEmptyPassTouchesNothing) {
  Pass("", 9999, true);
  EXPECT_TRUE(file.TakeCalls().empty());
}

TEST_F(LogBatch, AnEmptyPassDoesNotCloseAnOpenFileEither) {
  Pass("a", 1000);
  file.TakeCalls();
  Pass("", 5000);
  EXPECT_TRUE(file.TakeCalls().empty());
  EXPECT_TRUE(file.IsOpen());
}

TEST_F(LogBatch, ClosesHalfASecondAfterTheOpeningAndOpensAgainForTheNext) {
  Pass("a", 1000);
  Pass("b", 1500);
  Pass("c", 1510);
  EXPECT_EQ(file.TakeCalls(), (Calls{"open p", "write a", "write b", "close", "open p", "write c"}));
}

TEST_F(LogBatch, TheOpeningCountsFromItsOwnTimeNotFromTheFirstBatch) {
  Pass("a", 60'000);  // long after construction
  EXPECT_EQ(file.TakeCalls(), (Calls{"open p", "write a"}));
}

TEST_F(LogBatch, TheTickMayWrap) {
  Pass("a", 0xFFFFFF00U);
  Pass("b", 0x00000010U);  // 272 ms later
  EXPECT_TRUE(file.IsOpen());
  Pass("c", 0x00000100U);  // 512 ms later
  EXPECT_FALSE(file.IsOpen());
}

TEST_F(LogBatch, WithImmediateFlushTheFileIsClosedAfterEveryBatch) {
  Pass("a", 1000, true);
  Pass("b", 1001, true);
  EXPECT_EQ(file.TakeCalls(), (Calls{"open p", "write a", "close", "open p", "write b", "close"}));
}

TEST_F(LogBatch, WhatCannotBeWrittenWaitsInOrderUntilTheFileOpens) {
  file.openFailures = 3;
  Pass("a", 1000);
  Pass("b", 1100);
  Pass("c", 1200);
  Pass("d", 1300);
  EXPECT_EQ(file.TakeCalls(), (Calls{"open p", "open p", "open p", "open p", "write abcd"}));
  Pass("e", 1799);
  EXPECT_TRUE(file.IsOpen());
  EXPECT_EQ(file.content, "abcde");
}

TEST_F(LogBatch, AFailedWriteKeepsTheTextAndTheFileOpen) {
  file.answers = {-1, -1};
  Pass("a", 1000, true);
  EXPECT_TRUE(file.IsOpen());
  Pass("b", 9000, true);
  EXPECT_TRUE(file.IsOpen());
  Pass("c", 9100, true);
  EXPECT_EQ(file.TakeCalls(), (Calls{"open p", "write a", "write ab", "write abc", "close"}));
  EXPECT_EQ(file.content, "abc");
}

TEST_F(LogBatch, AShortWriteKeepsTheRest) {
  file.answers = {2, 0};
  Pass("abc", 1000);
  Pass("d", 1100);
  Pass("e", 1200);
  EXPECT_EQ(file.TakeCalls(), (Calls{"open p", "write abc", "write cd", "write cde"}));
  EXPECT_EQ(file.content, "abcde");
}

TEST_F(LogBatch, AShortWriteStillClosesTheFile) {
  file.answers = {1};
  Pass("ab", 1000, true);
  EXPECT_EQ(file.TakeCalls(), (Calls{"open p", "write ab", "close"}));
  Pass("c", 1001, true);
  EXPECT_EQ(file.content, "abc");
}

TEST_F(LogBatch, WhatIsUnwrittenCanBeTakenBackOnce) {
  file.openFailures = 1;
  Pass("a", 1000);
  EXPECT_EQ(batch.TakeBack(), "a");
  EXPECT_EQ(batch.TakeBack(), "");
  Pass("b", 1000);
  EXPECT_EQ(file.content, "b");
}

}  // namespace
}  // namespace zelk

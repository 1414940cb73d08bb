// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/log_batch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <new>
#include <vector>

#include "support/allocation_probe.h"

namespace zelk {
namespace {

// Notes every call; opens fail as often as told, writes answer what is queued (all bytes when nothing is).
class CScriptedFile : public ILogFile {
 public:
  bool Open(const std::string& path) override {
    support::FailAllocation(0);
    calls.push_back("open " + path);
    if (openFailures > 0) {
      --openFailures;
    } else {
      isOpen = true;
    }
    return isOpen;
  }
  bool IsOpen() const override {
    if (deniesMemory) {
      support::FailAllocation(1);  // of what the batch does next
    }
    return isOpen;
  }
  int64_t Write(const char* data, size_t length) override {
    sawFailure = sawFailure || support::AllocationFailed();
    support::FailAllocation(0);
    int64_t result = static_cast<int64_t>(length);
    if (!answers.empty()) {
      result = std::min(result, answers.front());
      answers.pop_front();
    }
    calls.push_back("write " + std::string(data, length));
    content.append(data, static_cast<size_t>(std::max<int64_t>(result, 0)));
    return result;
  }
  void Close() override {
    calls.push_back("close");
    isOpen = false;
  }

  std::vector<std::string> TakeCalls() { return std::exchange(calls, {}); }

  bool isOpen = false;
  bool deniesMemory = false;
  bool sawFailure = false;
  int openFailures = 0;
  std::deque<int64_t> answers;
  std::vector<std::string> calls;
  std::string content;
};

using Calls = std::vector<std::string>;

class LogBatch : public testing::Test {
 protected:
  void Pass(const std::string& text, uint32_t nowMs, bool closeAtOnce = false) {
    LogPieces taken;
    if (!text.empty()) {
      AddText(taken, text);
    }
    batch.Take(taken);
    EXPECT_TRUE(taken.empty());
    const size_t before = file.content.size();
    const size_t written = batch.WriteOut("p", closeAtOnce, nowMs);
    EXPECT_EQ(written, file.content.size() - before);
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
  EXPECT_EQ(batch.TakeBack(), LogPieces{"a"});
  EXPECT_EQ(batch.TakeBack(), LogPieces{});
  Pass("b", 1000);
  EXPECT_EQ(file.content, "b");
}

TEST_F(LogBatch, WithoutTheMemoryForOneCallThePiecesAreWrittenOneByOne) {
  file.openFailures = 2;
  const std::string longText(100, 'x');
  Pass("a", 1000);
  Pass("b", 1100);
  file.TakeCalls();
  file.deniesMemory = true;
  Pass(longText, 1200);
  EXPECT_TRUE(file.sawFailure);
  EXPECT_EQ(file.TakeCalls(), (Calls{"open p", "write a", "write b", "write " + longText}));
}

TEST_F(LogBatch, ThenAShortOrFailedWriteKeepsThePiecesFromThereOn) {
  const std::string longText(100, 'x');
  file.openFailures = 2;
  Pass("aa", 1000);
  Pass("bb", 1100);
  file.answers = {2, 1, -1};
  file.deniesMemory = true;
  Pass(longText, 1200);
  EXPECT_EQ(file.content, "aab");
  Pass("", 1300);
  EXPECT_EQ(file.content, "aab");
  Pass("", 1400);
  EXPECT_EQ(file.content, "aabb" + longText);
  EXPECT_TRUE(file.sawFailure);
}

TEST(LogPieces, TextIsAddedBehindTheLastInPiecesOfLimitedSize) {
  constexpr size_t kLineBytes = 1000;
  constexpr size_t kLines = 1000;
  LogPieces pieces;
  std::string all;
  for (size_t i = 0; i < kLines; ++i) {
    const std::string line(kLineBytes, static_cast<char>('a' + i % 26));
    AddText(pieces, line);
    all += line;
  }
  std::string joined;
  for (const std::string& piece : pieces) {
    EXPECT_LE(piece.size(), 65'536U);
    joined += piece;
  }
  EXPECT_EQ(joined, all);
  EXPECT_LE(pieces.size(), 20U);
}

TEST(LogPieces, WithoutMemoryTheyStayAsTheyAre) {
  const std::string line(1000, 'x');
  for (const size_t before : {size_t{0}, size_t{1}, size_t{65}}) {
    LogPieces pieces;
    for (size_t i = 0; i < before; ++i) {
      AddText(pieces, line);
    }
    const LogPieces was = pieces;
    uint32_t failures = 0;
    bool added = false;
    while (!added) {
      support::FailAllocation(failures + 1);
      try {
        AddText(pieces, line);
        added = true;
      } catch (const std::bad_alloc&) {
        ++failures;
      }
      support::FailAllocation(0);
      EXPECT_TRUE(added || pieces == was);
    }
    EXPECT_GE(failures, 1U) << before;
  }
}

}  // namespace
}  // namespace zelk

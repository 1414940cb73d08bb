// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/mutex.h"
#include "runtime/log_writer.h"
#include "support/allocation_probe.h"
#include "support/eventually.h"

// The log when memory runs out.
namespace zelk {
namespace {

using support::Eventually;

// The texts of lines, without date, tag and end.
std::vector<std::string> TextsOf(const std::string& content) {
  std::vector<std::string> texts;
  for (size_t at = 0; at < content.size(); at = content.find('\n', at) + 1) {
    const size_t tag = content.find(" :", at) + 2;
    texts.push_back(content.substr(tag, content.find('\r', at) - tag));
  }
  return texts;
}

// A disk that can be away, and a log thread that gets no memory once the disk was seen to be away.
struct SScarceDisk {
  std::atomic<bool> isThere{false};
  std::atomic<bool> deniesMemory{true};
  std::atomic<int> opens{0};
  CMutex lock;
  std::string content ZELK_GUARDED_BY(lock);

  bool EndsIn(const std::string& text) {
    const CScopedLock hold(lock);
    return content.size() >= text.size() && content.compare(content.size() - text.size(), text.size(), text) == 0;
  }
  std::string Content() {
    const CScopedLock hold(lock);
    return content;
  }
};

class CFileOnScarceDisk : public ILogFile {
 public:
  explicit CFileOnScarceDisk(SScarceDisk& theDisk) : disk(theDisk) {}
  bool Open(const std::string& /*path*/) override {
    isOpen = disk.isThere;
    if (disk.deniesMemory) {
      support::FailAllocation(1);  // the log thread's next one
    }
    ++disk.opens;
    return isOpen;
  }
  bool IsOpen() const override { return isOpen; }
  int64_t Write(const char* data, size_t length) override {
    support::FailAllocation(0);
    const CScopedLock hold(disk.lock);
    disk.content.append(data, length);
    return static_cast<int64_t>(length);
  }
  void Close() override { isOpen = false; }

 private:
  SScarceDisk& disk;
  bool isOpen = false;
};

class LogWriterWithoutMemory : public testing::Test {
 protected:
  bool WaitOpens(int count) {
    return Eventually([&] { return disk.opens >= count; });
  }
  // What is in the file when this text has come there.
  std::vector<std::string> WrittenUpTo(const std::string& last) {
    EXPECT_TRUE(Eventually([&] { return disk.EndsIn(":" + last + "\r\n"); })) << last;
    return TextsOf(disk.Content());
  }

  SScarceDisk disk;
  CLogWriter writer{[this] { return std::make_unique<CFileOnScarceDisk>(disk); }};
};

TEST_F(LogWriterWithoutMemory, WhatWaitsForTheDiskIsKeptInOrder) {
  ASSERT_TRUE(writer.Start("p"));
  writer.Line("one", kGeneralLine);
  ASSERT_TRUE(WaitOpens(1));
  writer.Line("two", kGeneralLine);
  ASSERT_TRUE(WaitOpens(2));
  disk.isThere = true;
  writer.Line("three", kGeneralLine);
  EXPECT_EQ(WrittenUpTo("three"), (std::vector<std::string>{"one", "two", "three"}));
}

TEST_F(LogWriterWithoutMemory, AStoppedThreadGivesBackWhatItCouldNotWrite) {
  ASSERT_TRUE(writer.Start("p"));
  writer.Line("one", kGeneralLine);
  ASSERT_TRUE(WaitOpens(1));
  writer.Line("two", kGeneralLine);
  writer.Stop();
  writer.Line("three", kGeneralLine);
  disk.isThere = true;
  ASSERT_TRUE(writer.Start("p"));
  EXPECT_EQ(WrittenUpTo("three"), (std::vector<std::string>{"one", "two", "three"}));
}

TEST_F(LogWriterWithoutMemory, OneLineSaysHowManyWereLost) {
  disk.isThere = true;
  disk.deniesMemory = false;
  writer.Line("before", kGeneralLine);
  const uint32_t lost =
      support::ForEachFailingAllocation([this] { writer.Line("long enough for memory of its own", 7); }, [](bool) {});
  ASSERT_GE(lost, 2U);
  writer.Line("after", kGeneralLine);
  ASSERT_TRUE(writer.Start("p"));
  EXPECT_EQ(WrittenUpTo("after"),
            (std::vector<std::string>{"before", "Log: lines lost for want of memory: " + std::to_string(lost),
                                      "long enough for memory of its own", "after"}));
}

TEST_F(LogWriterWithoutMemory, LossesThatNoLineFollowsAreSaidAtTheEnd) {
  disk.isThere = true;
  disk.deniesMemory = false;
  ASSERT_TRUE(writer.Start("p"));
  support::FailAllocation(1);
  writer.Line("long enough for memory of its own", 7);
  ASSERT_TRUE(support::AllocationFailed());
  writer.Finish();
  EXPECT_EQ(TextsOf(disk.Content()), (std::vector<std::string>{"Log: lines lost for want of memory: 1"}));
}

TEST_F(LogWriterWithoutMemory, AStartThatGetsNoMemoryIsRefusedAndLosesNothing) {
  disk.isThere = true;
  disk.deniesMemory = false;
  writer.Line("early", kGeneralLine);
  const std::string path(100, 'p');
  bool started = false;
  const uint32_t failures = support::ForEachFailingAllocation([&] { started = writer.Start(path); },
                                                              [&](bool failed) { EXPECT_EQ(started, !failed); });
  EXPECT_GE(failures, 3U);
  EXPECT_EQ(WrittenUpTo("early"), (std::vector<std::string>{"early"}));
}

// What was first waits, whatever is logged after it.
TEST_F(LogWriterWithoutMemory, ALogThatIsNeverWrittenTakesLimitedMemory) {
  constexpr size_t kLineBytes = 19 + 6 + 4 + 2;
  constexpr size_t kFitting = 1000;
  constexpr size_t kTooMany = 50;
  disk.deniesMemory = false;
  CLogWriter limited([this] { return std::make_unique<CFileOnScarceDisk>(disk); }, kFitting * kLineBytes + 3);
  ASSERT_TRUE(limited.Start("p"));
  const auto number = [](size_t i) { return std::to_string(1000 + i); };
  for (size_t i = 0; i < kFitting + kTooMany; ++i) {
    limited.Line(number(i).c_str(), 7);
    if (i == kFitting / 2) {
      ASSERT_TRUE(WaitOpens(1)) << "some wait at the thread, some have not come so far";
    }
  }
  disk.isThere = true;
  limited.Line("one too many", 7);  // lost like the others, and wakes the thread all the same
  ASSERT_TRUE(Eventually([&] { return disk.EndsIn(":1999\r\n"); }));
  EXPECT_TRUE(Eventually([&] {
    limited.Line("after", kGeneralLine);
    return disk.EndsIn(":after\r\n");
  }));
  const std::vector<std::string> texts = TextsOf(disk.Content());
  ASSERT_GE(texts.size(), kFitting + 2);
  for (size_t i = 0; i < kFitting; ++i) {
    ASSERT_EQ(texts[i], number(i));
  }
  EXPECT_EQ(texts[kFitting].substr(0, 34), "Log: lines lost for want of memory");
  EXPECT_GE(std::stoul(texts[kFitting].substr(36)), kTooMany + 1);
  EXPECT_EQ(texts[kFitting + 1], "after");
}

}  // namespace
}  // namespace zelk

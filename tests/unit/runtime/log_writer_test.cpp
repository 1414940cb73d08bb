#include "runtime/log_writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "runtime/config.h"
#include "support/allocation_probe.h"
#include "unit/platform/temp_dir.h"

namespace zelk {
namespace {

constexpr uint32_t kGenerousMs = 10'000;

// The file is the only thing the writer shows, so it is polled until the condition holds.
template <class Condition>
bool Eventually(Condition condition) {
  const uint32_t start = TickMs();
  while (!condition()) {
    if (TickMs() - start > kGenerousMs) {
      return false;
    }
    SleepMs(1);
  }
  return true;
}

bool Contains(const std::string& path, const std::string& text) {
  return ReadAll(path).find(text) != std::string::npos;
}

class LogWriter : public testing::Test {
 protected:
  bool Written(const std::string& text) {
    return Eventually([&] { return Contains(path, text); });
  }

  CTempDir dir;
  std::string path = dir.Path("z.log");
  CLogWriter writer;
};

TEST_F(LogWriter, WritesALineWithDateTagAndEnd) {
  ASSERT_TRUE(writer.Start(path));
  writer.Line("hello", 12);
  ASSERT_TRUE(Written("hello"));
  const std::string text = ReadAll(path);
  EXPECT_EQ(text.size(), 19 + std::string("  12 :hello\r\n").size());
  EXPECT_EQ(text.substr(19), "  12 :hello\r\n");
}

TEST_F(LogWriter, LinesBeforeTheStartAreWrittenByTheFirstBatch) {
  writer.Line("early", kGeneralLine);
  ASSERT_TRUE(writer.Start(path));
  EXPECT_TRUE(Written("early"));
}

TEST_F(LogWriter, KeepsWhatIsInTheFile) {
  dir.Write("z.log", "old\r\n");
  ASSERT_TRUE(writer.Start(path));
  writer.Line("new", kGeneralLine);
  ASSERT_TRUE(Written("new"));
  EXPECT_EQ(ReadAll(path).substr(0, 5), "old\r\n");
}

TEST_F(LogWriter, StopWritesWhatWasPendingAtOnce) {
  ASSERT_TRUE(writer.Start(path));
  for (int i = 0; i < 100; ++i) {
    writer.Line("line", i);
  }
  writer.Stop();
  const std::string text = ReadAll(path);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 100);
}

TEST_F(LogWriter, LinesAfterAStopAreWrittenByTheNextStart) {
  ASSERT_TRUE(writer.Start(path));
  writer.Stop();
  writer.Line("between", kGeneralLine);
  EXPECT_FALSE(Contains(path, "between"));
  ASSERT_TRUE(writer.Start(path));
  EXPECT_TRUE(Written("between"));
}

TEST_F(LogWriter, ASecondStartMovesToTheNewFileWithoutLoss) {
  const std::string second = dir.Path("second.log");
  ASSERT_TRUE(writer.Start(path));
  writer.Line("one", kGeneralLine);
  ASSERT_TRUE(writer.Start(second));
  writer.Line("two", kGeneralLine);
  writer.Stop();
  EXPECT_TRUE(Contains(path, "one"));
  EXPECT_FALSE(Contains(path, "two"));
  EXPECT_TRUE(Contains(second, "two"));
}

TEST_F(LogWriter, StopsAreHarmlessWithoutAThread) {
  writer.Stop();
  writer.Stop();
  ASSERT_TRUE(writer.Start(path));
  writer.Stop();
  writer.Stop();
}

TEST_F(LogWriter, TextOfAFileThatCannotBeOpenedIsWrittenLaterInOrder) {
  const std::string late = dir.Path("later/z.log");
  ASSERT_TRUE(writer.Start(late));
  writer.Line("first", kGeneralLine);
  writer.Stop();
  writer.Line("second", kGeneralLine);
  ASSERT_TRUE(writer.Start(late));
  std::filesystem::create_directory(dir.Path("later"));
  writer.Line("third", kGeneralLine);
  writer.Stop();
  const std::string text = ReadAll(late);
  const size_t first = text.find("first");
  const size_t second = text.find("second");
  const size_t third = text.find("third");
  ASSERT_NE(first, std::string::npos);
  ASSERT_NE(second, std::string::npos);
  ASSERT_NE(third, std::string::npos);
  EXPECT_LT(first, second);
  EXPECT_LT(second, third);
}

TEST_F(LogWriter, ADeletedFileIsMadeAnew) {
  ASSERT_TRUE(writer.Start(path));
  writer.Line("before", kGeneralLine);
  ASSERT_TRUE(Written("before"));
  ASSERT_TRUE(std::filesystem::remove(path));
  // The file is kept open for half a second at most; what goes into the deleted one meanwhile is gone with it.
  EXPECT_TRUE(Eventually([&] {
    writer.Line("after", kGeneralLine);
    return Contains(path, "after");
  }));
}

TEST_F(LogWriter, LinesOfManyThreadsAllArriveWhole) {
  ASSERT_TRUE(writer.Start(path));
  std::vector<std::thread> threads;
  for (int channel = 0; channel < 4; ++channel) {
    threads.emplace_back([this, channel] {
      for (int i = 0; i < 500; ++i) {
        writer.Line(("number " + std::to_string(i)).c_str(), channel);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  writer.Stop();
  std::vector<int> next(4, 0);
  const std::string text = ReadAll(path);
  for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
    const auto channel = static_cast<size_t>(std::stoi(text.substr(at + 19, 4)));
    ASSERT_LT(channel, next.size());
    const std::string expected = ":number " + std::to_string(next[channel]++) + "\r\n";
    ASSERT_EQ(text.substr(at + 24, expected.size()), expected);
  }
  EXPECT_EQ(next, (std::vector<int>{500, 500, 500, 500}));
}

TEST_F(LogWriter, FinishWritesLinesThatNoThreadTook) {
  ASSERT_TRUE(writer.Start(path));
  writer.Stop();
  writer.Line("last words", kGeneralLine);
  writer.Finish();
  EXPECT_TRUE(Contains(path, "last words"));
}

TEST_F(LogWriter, FinishWithoutAStartHasNowhereToWriteAndLaterLinesDoNoHarm) {
  writer.Line("unheard", kGeneralLine);
  writer.Finish();
  writer.Line("late", kGeneralLine);
  writer.Finish();
  EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
}

TEST_F(LogWriter, TheDestructorWritesWhatWasPending) {
  {
    CLogWriter local;
    ASSERT_TRUE(local.Start(path));
    local.Line("pending", kGeneralLine);
  }
  EXPECT_TRUE(Contains(path, "pending"));
}

// Writes of a file that takes everything, each with its time.
struct SWrites {
  struct SWrite {
    uint32_t atMs;
    std::string text;
  };
  CMutex lock;
  std::vector<SWrite> list ZELK_GUARDED_BY(lock);

  std::vector<SWrite> List() {
    const CScopedLock hold(lock);
    return list;
  }
};

class CTimedFile : public ILogFile {
 public:
  explicit CTimedFile(SWrites& theWrites) : writes(theWrites) {}
  bool Open(const std::string& /*path*/) override { return isOpen = true; }
  bool IsOpen() const override { return isOpen; }
  int64_t Write(const void* data, size_t length) override {
    const CScopedLock hold(writes.lock);
    writes.list.push_back({TickMs(), std::string(static_cast<const char*>(data), length)});
    return static_cast<int64_t>(length);
  }
  void Close() override { isOpen = false; }

 private:
  SWrites& writes;
  bool isOpen = false;
};

TEST(LogWriterPace, ALineWaitsATenthOfASecondForOthersThatGoOutWithIt) {
  constexpr uint32_t kCloseTogetherMs = 50;
  SWrites writes;
  CLogWriter writer([&writes] { return std::make_unique<CTimedFile>(writes); });
  ASSERT_TRUE(writer.Start("p"));
  // Again when the machine did not let this thread log two lines close together.
  for (bool areCloseTogether = false; !areCloseTogether;) {
    const size_t before = writes.List().size();
    const uint32_t start = TickMs();
    writer.Line("one", kGeneralLine);
    writer.Line("two", kGeneralLine);
    areCloseTogether = TickMs() - start < kCloseTogetherMs;
    ASSERT_TRUE(Eventually([&] { return writes.List().size() > before; }));
    if (areCloseTogether) {
      const SWrites::SWrite first = writes.List()[before];
      EXPECT_GE(first.atMs - start, 99U);
      EXPECT_NE(first.text.find(":one\r\n"), std::string::npos);
      EXPECT_NE(first.text.find(":two\r\n"), std::string::npos);
    } else {
      ASSERT_TRUE(Eventually([&] { return writes.List().back().text.find(":two\r\n") != std::string::npos; }));
    }
  }
}

// A disk that hangs in the first write until it is let go, then fails it; the files after it write to memory.
struct SHangingDisk {
  CEvent entered;
  CEvent letGo;
  CMutex lock;
  std::string content ZELK_GUARDED_BY(lock);
  std::atomic<int> opened{0};

  std::string Content() {
    const CScopedLock hold(lock);
    return content;
  }
};

class CFileOnHangingDisk : public ILogFile {
 public:
  explicit CFileOnHangingDisk(SHangingDisk& theDisk) : disk(theDisk) {}
  bool Open(const std::string& /*path*/) override {
    hangs = disk.opened.fetch_add(1) == 0;
    return isOpen = true;
  }
  bool IsOpen() const override { return isOpen; }
  int64_t Write(const void* data, size_t length) override {
    if (hangs) {
      disk.entered.Set();
      disk.letGo.Wait();
      return -1;
    }
    const CScopedLock hold(disk.lock);
    disk.content.append(static_cast<const char*>(data), length);
    return static_cast<int64_t>(length);
  }
  void Close() override { isOpen = false; }

 private:
  SHangingDisk& disk;
  bool isOpen = false;
  bool hangs = false;
};

TEST(LogWriterOnAHangingDisk, StopWaitsOneSecondAndTheTextIsWrittenByALaterThread) {
  SHangingDisk disk;
  CLogWriter writer([&disk] { return std::make_unique<CFileOnHangingDisk>(disk); });
  ASSERT_TRUE(writer.Start("p"));
  writer.Line("hung", kGeneralLine);
  ASSERT_TRUE(disk.entered.WaitFor(kGenerousMs));
  writer.Line("meanwhile", kGeneralLine);
  const uint32_t before = TickMs();
  ASSERT_TRUE(writer.Start("p"));
  EXPECT_GE(TickMs() - before, 999U);
  EXPECT_TRUE(Eventually([&] { return disk.Content().find("meanwhile") != std::string::npos; }));
  EXPECT_EQ(disk.Content().find("hung"), std::string::npos);
  disk.letGo.Set();
  EXPECT_TRUE(Eventually([&] {
    writer.Line("later", kGeneralLine);
    return disk.Content().find("hung") != std::string::npos;
  }));
}

TEST(LogWriterOnAHangingDisk, TheDestructorWaitsForTheThreadThatStopGaveUp) {
  SHangingDisk disk;
  CThread helper;
  {
    CLogWriter writer([&disk] { return std::make_unique<CFileOnHangingDisk>(disk); });
    ASSERT_TRUE(writer.Start("p"));
    writer.Line("hung", kGeneralLine);
    ASSERT_TRUE(disk.entered.WaitFor(kGenerousMs));
    writer.Stop();
    ASSERT_TRUE(helper.Start("let-go", [&disk] { disk.letGo.Set(); }));
  }
  EXPECT_TRUE(helper.JoinFor(kGenerousMs));
}

// Notes what is done with the file; the lines' texts alone.
class CNotedFile : public ILogFile {
 public:
  CNotedFile(CMutex& theLock, std::string& theCalls) : lock(theLock), calls(theCalls) {}
  bool Open(const std::string& /*path*/) override {
    Note("open ");
    return isOpen = true;
  }
  bool IsOpen() const override { return isOpen; }
  int64_t Write(const void* data, size_t length) override {
    const std::string text(static_cast<const char*>(data), length);
    const size_t tag = text.find(" :") + 2;
    Note("write " + text.substr(tag, text.find('\r') - tag) + " ");
    return static_cast<int64_t>(length);
  }
  void Close() override {
    Note("close ");
    isOpen = false;
  }

 private:
  void Note(const std::string& call) {
    const CScopedLock hold(lock);
    calls += call;
  }

  CMutex& lock;
  std::string& calls;
  bool isOpen = false;
};

class LogWriterFlush : public testing::Test {
 protected:
  void TearDown() override { Config().flushImmediate = false; }

  std::string Calls() {
    const CScopedLock hold(lock);
    return calls;
  }

  CMutex lock;
  std::string calls;
  CLogWriter writer{[this] { return std::make_unique<CNotedFile>(lock, calls); }};
};

TEST_F(LogWriterFlush, WithImmediateFlushTheFileIsClosedAfterEveryBatch) {
  Config().flushImmediate = true;
  ASSERT_TRUE(writer.Start("p"));
  writer.Line("one", kGeneralLine);
  ASSERT_TRUE(Eventually([&] { return Calls() == "open write one close "; })) << Calls();
  writer.Line("two", kGeneralLine);
  EXPECT_TRUE(Eventually([&] { return Calls() == "open write one close open write two close "; })) << Calls();
}

TEST_F(LogWriterFlush, WithoutItTheFileIsNotClosedBehindABatchThatIsWrittenAtOnce) {
  ASSERT_TRUE(writer.Start("p"));
  writer.Line("one", kGeneralLine);
  writer.Stop();  // the thread's last pass is over
  EXPECT_EQ(Calls(), "open write one ");
}

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
  int64_t Write(const void* data, size_t length) override {
    support::FailAllocation(0);
    const CScopedLock hold(disk.lock);
    disk.content.append(static_cast<const char*>(data), length);
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

TEST_F(LogWriterWithoutMemory, AThreadThatIsStoppedGivesBackWhatItCouldNotWrite) {
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

TEST_F(LogWriterWithoutMemory, LinesThatMemoryDoesNotHoldAreLostAndOneLineSaysHowMany) {
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

// What was first waits, whatever is logged behind it.
TEST_F(LogWriterWithoutMemory, ALogThatIsNeverWrittenTakesALimitedPartOfTheMemory) {
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

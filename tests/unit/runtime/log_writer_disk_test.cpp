// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/event.h"
#include "platform/mutex.h"
#include "platform/thread.h"
#include "runtime/config.h"
#include "runtime/log_writer.h"
#include "support/eventually.h"

// When the log's thread writes, opens and closes its file, and what a disk that hangs does to it.
namespace zelk {
namespace {

using support::Eventually;

constexpr uint32_t kGenerousMs = 10'000;

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
  int64_t Write(const char* data, size_t length) override {
    const CScopedLock hold(writes.lock);
    writes.list.push_back({TickMs(), std::string(data, length)});
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
  int64_t Write(const char* data, size_t length) override {
    if (hangs) {
      disk.entered.Set();
      disk.letGo.Wait();
      return -1;
    }
    const CScopedLock hold(disk.lock);
    disk.content.append(data, length);
    return static_cast<int64_t>(length);
  }
  void Close() override { isOpen = false; }

 private:
  SHangingDisk& disk;
  bool isOpen = false;
  bool hangs = false;
};

TEST(LogWriterOnAHangingDisk, StopWaitsASecondAndALaterThreadWrites) {
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
  int64_t Write(const char* data, size_t length) override {
    const std::string text(data, length);
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

TEST_F(LogWriterFlush, WithoutItTheFileStaysOpenAfterABatchWrittenAtOnce) {
  ASSERT_TRUE(writer.Start("p"));
  writer.Line("one", kGeneralLine);
  writer.Stop();  // the thread's last pass is over
  EXPECT_EQ(Calls(), "open write one ");
}

}  // namespace
}  // namespace zelk

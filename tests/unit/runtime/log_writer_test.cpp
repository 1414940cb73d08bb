// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/log_writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "support/eventually.h"
#include "support/temp_dir.h"

namespace zelk {
namespace {

// The file is the only thing the writer shows.
using support::Eventually;

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

}  // namespace
}  // namespace zelk

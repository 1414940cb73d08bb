// SPDX-License-Identifier: GPL-2.0-only

// The writer thread's time, for lines a to d that are logged at these moments:
//
//   a  b                      c                                         d
//   |--+------100 ms-------|  |------100 ms-------|                     |------100 ms-------|
//   wake                   |  wake                |                     wake                |
//            open, write a+b  write c, keep open  |   write d, close (500 ms since the opening)
//
#include "runtime/log_writer.h"

#include <atomic>
#include <exception>
#include <new>
#include <utility>

#include "platform/clock.h"
#include "platform/file.h"
#include "runtime/config.h"
#include "runtime/format.h"

namespace zelk {

namespace {

constexpr uint32_t kGatherMs = 100;
constexpr uint32_t kStopLimitMs = 1000;

class CLogFile : public ILogFile {
 public:
  bool Open(const std::string& path) override { return file.Open(path); }
  bool IsOpen() const override { return file.IsOpen(); }
  int64_t Write(const char* text, size_t length) override { return file.Write(text, length); }
  void Close() override { file.Close(); }

 private:
  CAppendFile file;
};

}  // namespace

// What belongs to one thread from Start to its end, which may come after the next Start.
struct CLogWriter::SRun {
  SRun(std::string logPath, std::unique_ptr<ILogFile> logFile)
      : path(std::move(logPath)), file(std::move(logFile)), batch(*file, TickMs()) {}

  const std::string path;
  CEvent stop;
  const std::unique_ptr<ILogFile> file;
  CLogBatch batch;
};

CLogWriter::CLogWriter() : CLogWriter([] { return std::make_unique<CLogFile>(); }) {}

CLogWriter::CLogWriter(MakeFile fileMaker, size_t mostBytes)
    : makeFile(std::move(fileMaker)), mostWaitingBytes(mostBytes) {}

CLogWriter::~CLogWriter() {
  Stop();
  while (true) {
    {
      const CScopedLock hold(lock);
      if (threadsInside == 0) {
        return;
      }
    }
    nobodyInside.Wait();
  }
}

bool CLogWriter::Start(const std::string& logPath) {
  Stop();
  bool started = false;
  try {
    started = StartThread(logPath);
  } catch (const std::bad_alloc&) {
    // A thread that gets no memory is none.
  }
  if (!started) {
    run = nullptr;
  }
  return started;
}

bool CLogWriter::StartThread(const std::string& logPath) {
  path = logPath;
  run = std::make_shared<SRun>(logPath, makeFile());
  std::function<void()> body = [this, mine = run] { WriteUntilStopped(*mine); };
  {
    const CScopedLock hold(lock);
    ++threadsInside;
    nobodyInside.Reset();
    wake.Reset();
    if (!pending.empty()) {
      wake.Set();
    }
  }
  if (thread.Start("zelk-log", std::move(body))) {
    return true;
  }
  Leave(*run);
  return false;
}

void CLogWriter::Stop() {
  if (run != nullptr) {
    run->stop.Set();
    wake.Set();
    thread.JoinFor(kStopLimitMs);
    run = nullptr;  // a thread that hangs in the file holds on to it and closes the file at its end
  }
}

void CLogWriter::Finish() {
  const std::shared_ptr<SRun> stopped = run;
  Stop();
  LogPieces rest;
  {
    const CScopedLock hold(lock);
    if (threadsInside > 0) {
      if (!OtherThreadsAreGone()) {
        return;  // a hanging thread has the file: nobody else should hang with it
      }
      // The end of the process took the thread wherever it was: what it had not written is ours to write.
      if (stopped != nullptr) {
        rest = stopped->batch.TakeBack();
      }
    }
    AddLastNotice();
    rest.splice(rest.end(), pending);
    waitingBytes = 0;
  }
  if (!path.empty()) {
    WriteLast(rest);
  }
  std::string().swap(path);
}

// For lines that were lost and that no line follows any more.
void CLogWriter::AddLastNotice() {
  try {
    if (lostLines > 0) {
      AddToPending(LossNotice(LocalNow()));
      lostLines = 0;
    }
  } catch (const std::exception&) {
    // There is no later time to say it.
  }
}

void CLogWriter::WriteLast(LogPieces& rest) {
  try {
    const std::unique_ptr<ILogFile> file = makeFile();
    CLogBatch last(*file, TickMs());
    last.Take(rest);
    last.WriteOut(path, true, TickMs());
  } catch (const std::exception&) {
    // There is no later time to write it.
  }
}

void CLogWriter::Line(const char* text, int32_t channel) {
  try {
    const SLocalTime now = LocalNow();
    const CLogLine line(now, text, channel);
    Append(line.Characters(), now);
  } catch (const std::exception&) {
    LineLost();
  }
}

void CLogWriter::LineLost() {
  {
    const CScopedLock hold(lock);
    ++lostLines;
  }
  wake.Set();
}

// A line that is lost wakes the thread too: what waits may then be written, which makes room.
void CLogWriter::Append(std::string_view line, const SLocalTime& now) {
  {
    const CScopedLock hold(lock);
    if (waitingBytes + line.size() > mostWaitingBytes) {
      ++lostLines;
    } else if (lostLines > 0) {
      AddToPending(LossNotice(now).append(line));
      lostLines = 0;
    } else {
      AddToPending(line);
    }
  }
  wake.Set();
}

void CLogWriter::AddToPending(std::string_view text) {
  AddText(pending, text);
  waitingBytes += text.size();
}

std::string CLogWriter::LossNotice(const SLocalTime& now) const {
  std::string text;
  FormatString(text, "Log: lines lost for want of memory: %llu", static_cast<unsigned long long>(lostLines));
  return std::string(CLogLine(now, text.c_str(), kGeneralLine).Characters());
}

void CLogWriter::WriteUntilStopped(SRun& mine) {
  bool stopping = false;
  while (!stopping) {
    wake.Wait();
    // Lines that arrive close together go out in one write; a stop cuts the pause short.
    mine.stop.WaitFor(kGatherMs);
    wake.Reset();
    WritePass(mine);
    stopping = mine.stop.WaitFor(0);
  }
  Leave(mine);
}

void CLogWriter::WritePass(SRun& mine) {
  {
    const CScopedLock hold(lock);
    mine.batch.Take(pending);
  }
  const size_t written = mine.batch.WriteOut(mine.path, Config().flushImmediate, TickMs());
  const CScopedLock hold(lock);
  waitingBytes -= written;
}

// Puts what could not be written before what came since: the next thread tries again.
void CLogWriter::Leave(SRun& mine) {
  const CScopedLock hold(lock);
  pending.splice(pending.begin(), mine.batch.TakeBack());
  if (--threadsInside == 0) {
    nobodyInside.Set();
  }
}

}  // namespace zelk

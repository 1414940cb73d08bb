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
#include <utility>

#include "platform/clock.h"
#include "platform/file.h"
#include "runtime/config.h"

namespace zelk {

namespace {

constexpr uint32_t kGatherMs = 100;
constexpr uint32_t kStopLimitMs = 1000;

class CLogFile : public ILogFile {
 public:
  bool Open(const std::string& path) override { return file.Open(path); }
  bool IsOpen() const override { return file.IsOpen(); }
  int64_t Write(const void* data, size_t length) override { return file.Write(data, length); }
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

CLogWriter::CLogWriter(MakeFile fileMaker) : makeFile(std::move(fileMaker)) {}

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
  path = logPath;
  run = std::make_shared<SRun>(logPath, makeFile());
  {
    const CScopedLock hold(lock);
    ++threadsInside;
    nobodyInside.Reset();
    wake.Reset();
    if (!pending.empty()) {
      wake.Set();
    }
  }
  if (thread.Start("zelk-log", [this, mine = run] { WriteUntilStopped(*mine); })) {
    return true;
  }
  Leave(*run);
  Stop();
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
  std::string rest;
  {
    const CScopedLock hold(lock);
    if (threadsInside > 0) {
      if (!OtherThreadsAreGone()) {
        return;  // a hanging thread has the file: nobody else should hang with it
      }
      // The end of the process took the thread wherever it was: what it had not written is ours to write.
      rest = stopped == nullptr ? std::string() : stopped->batch.TakeBack();
    }
    rest += pending;
    std::string().swap(pending);
  }
  if (!path.empty()) {
    SRun last(path, makeFile());
    last.batch.Take(rest);
    last.batch.WriteOut(path, true, TickMs());
  }
  std::string().swap(path);
}

void CLogWriter::Line(const char* text, int32_t channel) {
  try {
    std::string line;
    BuildLogLine(line, LocalNow(), text, channel);
    Append(line);
  } catch (const std::exception&) {
    // No memory for the line: logging never fails visibly.
  }
}

void CLogWriter::Append(const std::string& line) {
  {
    const CScopedLock hold(lock);
    pending += line;
  }
  wake.Set();
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
  mine.batch.WriteOut(mine.path, Config().flushImmediate, TickMs());
}

// Puts what could not be written in front of what came since: the next thread tries again.
void CLogWriter::Leave(SRun& mine) {
  const CScopedLock hold(lock);
  pending.insert(0, mine.batch.TakeBack());
  if (--threadsInside == 0) {
    nobodyInside.Set();
  }
}

}  // namespace zelk

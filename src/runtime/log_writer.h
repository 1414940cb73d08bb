// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/event.h"
#include "platform/mutex.h"
#include "platform/thread.h"
#include "runtime/log_batch.h"
#include "runtime/log_line.h"

namespace zelk {

// The log: lines of any thread are collected in memory, a thread of its own writes them to the file in batches.
// Thread: Line by any, and it never blocks on the file; Start, Stop and Finish by one thread at a time (the
// initialising or unloading one).
// Start returns false when the system gives no thread or no memory; lines are then collected all the same. File errors
// are not reported: the text waits for the next batch. A line for which there is no memory, or no room below the
// limit for what may wait, is lost; the next line that is taken comes after one that says how many were. A thread that
// hangs in the file when it is stopped is left to itself and gives back what it could not write; the destructor waits
// for it.
class CLogWriter {
 public:
  using MakeFile = std::function<std::unique_ptr<ILogFile>()>;
  // About a million lines: a log that cannot be written for hours loses nothing, one that never can takes no more.
  static constexpr size_t kMostWaitingBytes = 64U << 20;

  CLogWriter();
  // fileMaker: for the file that each Start writes to. mostBytes: what may wait to be written.
  explicit CLogWriter(MakeFile fileMaker, size_t mostBytes = kMostWaitingBytes);
  ~CLogWriter();  // Stops.
  CLogWriter(const CLogWriter&) = delete;
  CLogWriter& operator=(const CLogWriter&) = delete;

  // Stops a running thread first. Lines collected before are written by the first batch.
  bool Start(const std::string& path);
  // Blocks up to a second. The thread writes what was pending before it leaves.
  void Stop();
  // For the unloading of the library: stops, writes whatever is still pending and gives the memory back.
  void Finish();

  // Adds a line, stamped with the local time; kGeneralLine or a channel number.
  void Line(const char* text, int32_t channel);
  // Counts a line as lost whose text its caller could not make for want of memory.
  void LineLost();

 private:
  struct SRun;

  bool StartThread(const std::string& logPath);
  void Append(std::string_view line, const SLocalTime& now);
  void AddToPending(std::string_view text) ZELK_REQUIRES(lock);
  std::string LossNotice(const SLocalTime& now) const ZELK_REQUIRES(lock);
  void AddLastNotice() ZELK_REQUIRES(lock);
  void WriteLast(LogPieces& rest);
  void WriteUntilStopped(SRun& run);
  void WritePass(SRun& run);
  void Leave(SRun& run);

  const MakeFile makeFile;
  const size_t mostWaitingBytes;
  CMutex lock;
  LogPieces pending ZELK_GUARDED_BY(lock);        // lines that no thread has taken yet
  size_t waitingBytes ZELK_GUARDED_BY(lock) = 0;  // of these and of what threads have taken and not written
  uint64_t lostLines ZELK_GUARDED_BY(lock) = 0;   // and not yet told
  uint32_t threadsInside ZELK_GUARDED_BY(lock) = 0;
  CEvent wake;  // set by every line and by stop
  CEvent nobodyInside;
  std::string path;           // of the last Start; starting thread only
  std::shared_ptr<SRun> run;  // of the thread that runs; starting thread only
  CThread thread;
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>

namespace zelk {

// What the log writer needs of a file that it appends to.
class ILogFile {
 public:
  virtual ~ILogFile() = default;
  virtual bool Open(const std::string& path) = 0;  // at the end; created when missing
  virtual bool IsOpen() const = 0;
  virtual int64_t Write(const char* text, size_t length) = 0;  // bytes written, -1 on failure
  virtual void Close() = 0;
};

// Text on its way to the file, in order, in pieces of whole lines: moving it from one place to the next needs no
// memory.
using LogPieces = std::list<std::string>;

// Adds whole lines after the others. Throws std::bad_alloc when there is no memory; nothing has changed then.
void AddText(LogPieces& pieces, std::string_view text);

// The text a log writer has taken and not yet written, with the rules for opening, writing and closing the file. What
// could not be written stays before what is taken next, so nothing is dropped and the order is kept. Nothing here
// fails for want of memory.
// Thread: the writer's only. WriteOut blocks on the file. Time is passed in; no clock is read here.
class CLogBatch {
 public:
  // openedAt: the tick that counts as the last opening until there is one. The file is not owned.
  CLogBatch(ILogFile& target, uint32_t openedAt) : file(target), openedAtMs(openedAt) {}

  // Moves the whole text to the batch's end; it is empty afterwards.
  void Take(LogPieces& text) noexcept;
  // Writes with one call, opening the file before where needed, and closes it when asked to or half a second after the
  // opening. A failure leaves the text for the next time. The bytes that were written.
  size_t WriteOut(const std::string& path, bool closeAtOnce, uint32_t nowMs);
  // What is still unwritten, moved out.
  LogPieces TakeBack() noexcept;

 private:
  void Join();
  bool WriteText(size_t& written);

  ILogFile& file;
  uint32_t openedAtMs;
  LogPieces batch;
};

}  // namespace zelk

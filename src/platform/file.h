// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace zelk {

// A file that is only appended to and that others may read, write, rename and delete meanwhile: log and capture.
// Thread: one at a time. Failures return false or -1.
class CAppendFile {
 public:
  CAppendFile();
  ~CAppendFile();  // Closes.
  CAppendFile(const CAppendFile&) = delete;
  CAppendFile& operator=(const CAppendFile&) = delete;

  // Opens for writing at the end; creates the file if it is missing, keeps what is in it.
  bool Open(const std::string& path);
  bool IsOpen() const;
  // One write call; the bytes written, fewer than asked when the disk fills, -1 on failure.
  int64_t Write(const void* data, size_t length);
  void Close();

 private:
  struct SState;
  std::unique_ptr<SState> state;
};

// A regular file read at any position, shared with everybody.
// Thread: one at a time. Failures return false or 0.
class CReadFile {
 public:
  CReadFile();
  ~CReadFile();  // Closes.
  CReadFile(const CReadFile&) = delete;
  CReadFile& operator=(const CReadFile&) = delete;

  bool Open(const char* path);
  bool IsOpen() const;
  uint64_t Size() const;  // at this moment; 0 when closed
  // Bytes read from this offset, fewer than asked at the end of the file or on a read error.
  size_t ReadAt(uint64_t offset, void* data, size_t length);
  // Behind the stretch of the file from this offset on that was never written, which reads as zeros; the offset itself
  // where there is none or the system does not tell.
  uint64_t BehindHole(uint64_t offset) const;
  bool Close();  // true also when nothing was open

 private:
  struct SState;
  std::unique_ptr<SState> state;
};

// An existing regular file opened for reading and writing, shared with nobody. Linux has no mandatory sharing modes:
// there an advisory lock (flock) is taken, and the open fails while another holder of such a lock has the file. A file
// system without such locks is done without.
// Thread: one at a time.
class CUpdateFile {
 public:
  CUpdateFile();
  ~CUpdateFile();  // Closes.
  CUpdateFile(const CUpdateFile&) = delete;
  CUpdateFile& operator=(const CUpdateFile&) = delete;

  bool OpenExisting(const char* path);
  uint32_t Size32() const;  // low 32 bits of the size
  // Writes at the current position, which starts at 0 and moves on; true when every byte was written.
  bool Write(const void* data, size_t length);
  // False when the system reports a failure; a second try is then allowed. True when nothing is open.
  bool Close();

 private:
  struct SState;
  std::unique_ptr<SState> state;
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "platform/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace zelk {

namespace {

constexpr int kClosed = -1;

int OpenRetrying(const char* path, int flags, mode_t mode = 0) {
  int descriptor = kClosed;
  do {
    descriptor = open(path, flags | O_CLOEXEC, mode);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

// O_NONBLOCK, so that a named pipe does not hold the caller up before it is refused. Regular files ignore it.
int OpenRegular(const char* path, int flags) {
  const int descriptor = OpenRetrying(path, flags | O_NONBLOCK | O_NOCTTY);
  struct stat status {};
  if (descriptor >= 0 && (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode))) {
    close(descriptor);
    return kClosed;
  }
  return descriptor;
}

// The number is given back whatever close reports, so it is never closed twice. An interrupted close has closed.
bool CloseDescriptor(int& descriptor) {
  if (descriptor < 0) {
    return true;
  }
  const bool closed = close(descriptor) == 0 || errno == EINTR;
  descriptor = kClosed;
  return closed;
}

int64_t WriteOnce(int descriptor, const void* data, size_t length) {
  const size_t asked = std::min(length, static_cast<size_t>(SSIZE_MAX));
  ssize_t written = -1;
  do {
    written = write(descriptor, data, asked);
  } while (written < 0 && errno == EINTR);
  return written;
}

// Takes the lock where the file system has such locks.
bool IsHeldByAnother(int descriptor) {
  return flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

uint64_t SizeOf(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

}  // namespace

struct CAppendFile::SState {
  int descriptor = kClosed;
};

CAppendFile::CAppendFile() : state(std::make_unique<SState>()) {}

CAppendFile::~CAppendFile() {
  Close();
}

bool CAppendFile::Open(const std::string& path) {
  Close();
  state->descriptor = OpenRetrying(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY, 0644);
  return IsOpen();
}

bool CAppendFile::IsOpen() const {
  return state->descriptor >= 0;
}

int64_t CAppendFile::Write(const void* data, size_t length) {
  return IsOpen() ? WriteOnce(state->descriptor, data, length) : -1;
}

void CAppendFile::Close() {
  CloseDescriptor(state->descriptor);
}

struct CReadFile::SState {
  int descriptor = kClosed;
};

CReadFile::CReadFile() : state(std::make_unique<SState>()) {}

CReadFile::~CReadFile() {
  Close();
}

bool CReadFile::Open(const char* path) {
  Close();
  state->descriptor = path == nullptr ? kClosed : OpenRegular(path, O_RDONLY);
  return IsOpen();
}

bool CReadFile::IsOpen() const {
  return state->descriptor >= 0;
}

uint64_t CReadFile::Size() const {
  return IsOpen() ? SizeOf(state->descriptor) : 0;
}

size_t CReadFile::ReadAt(uint64_t offset, void* data, size_t length) {
  size_t done = 0;
  while (IsOpen() && done < length && offset + done <= static_cast<uint64_t>(INT64_MAX)) {
    const ssize_t got =
        pread(state->descriptor, static_cast<char*>(data) + done,
              std::min(length - done, static_cast<size_t>(SSIZE_MAX)), static_cast<off_t>(offset + done));
    if (got > 0) {
      done += static_cast<size_t>(got);
    } else if (got == 0 || errno != EINTR) {
      break;
    }
  }
  return done;
}

uint64_t CReadFile::BehindHole(uint64_t offset) const {
  const uint64_t size = Size();
  if (offset >= size) {
    return offset;
  }
  // ENXIO: there is no data up to the end. What this does to the descriptor's own position is of no matter here.
  const off_t data = lseek(state->descriptor, static_cast<off_t>(offset), SEEK_DATA);
  if (data < 0) {
    return errno == ENXIO ? size : offset;
  }
  return static_cast<uint64_t>(data);
}

bool CReadFile::Close() {
  return CloseDescriptor(state->descriptor);
}

struct CUpdateFile::SState {
  int descriptor = kClosed;
};

CUpdateFile::CUpdateFile() : state(std::make_unique<SState>()) {}

CUpdateFile::~CUpdateFile() {
  Close();
}

bool CUpdateFile::OpenExisting(const char* path) {
  Close();
  state->descriptor = path == nullptr ? kClosed : OpenRegular(path, O_RDWR);
  if (state->descriptor >= 0 && IsHeldByAnother(state->descriptor)) {
    Close();
  }
  return state->descriptor >= 0;
}

uint32_t CUpdateFile::Size32() const {
  return state->descriptor >= 0 ? static_cast<uint32_t>(SizeOf(state->descriptor)) : 0;
}

bool CUpdateFile::Write(const void* data, size_t length) {
  size_t done = 0;
  while (done < length) {
    const int64_t written = WriteOnce(state->descriptor, static_cast<const char*>(data) + done, length - done);
    if (written <= 0) {
      return false;
    }
    done += static_cast<size_t>(written);
  }
  return true;
}

bool CUpdateFile::Close() {
  return CloseDescriptor(state->descriptor);
}

}  // namespace zelk

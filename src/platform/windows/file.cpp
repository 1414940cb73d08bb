// SPDX-License-Identifier: GPL-2.0-only
#include "platform/file.h"

#include <windows.h>

#include <algorithm>

namespace zelk {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kMostBytesAtOnce = 1U << 30;

DWORD AtOnce(size_t length) {
  return static_cast<DWORD>(std::min(length, size_t{kMostBytesAtOnce}));
}

// Pipes, consoles and other devices are not files to play or to convert.
HANDLE OpenRegular(const char* path, DWORD access, DWORD sharing) {
  if (path == nullptr) {
    return INVALID_HANDLE_VALUE;
  }
  HANDLE handle = CreateFileA(path, access, sharing, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle != INVALID_HANDLE_VALUE && GetFileType(handle) != FILE_TYPE_DISK) {
    CloseHandle(handle);
    handle = INVALID_HANDLE_VALUE;
  }
  return handle;
}

// A handle that the system refuses to close stays, so that a second try can be made.
bool CloseFile(HANDLE& handle) {
  if (handle != INVALID_HANDLE_VALUE && CloseHandle(handle) == FALSE) {
    return false;
  }
  handle = INVALID_HANDLE_VALUE;
  return true;
}

uint64_t SizeOf(HANDLE handle) {
  LARGE_INTEGER size{};
  return GetFileSizeEx(handle, &size) != FALSE ? static_cast<uint64_t>(size.QuadPart) : 0;
}

int64_t WriteOnce(HANDLE handle, const void* data, size_t length) {
  DWORD written = 0;
  return WriteFile(handle, data, AtOnce(length), &written, nullptr) != FALSE ? int64_t{written} : -1;
}

}  // namespace

struct CAppendFile::SState {
  HANDLE handle = INVALID_HANDLE_VALUE;
};

CAppendFile::CAppendFile() : state(std::make_unique<SState>()) {}

CAppendFile::~CAppendFile() {
  Close();
}

bool CAppendFile::Open(const std::string& path) {
  Close();
  // The right to append alone makes every write go to the end of that moment, whoever wrote there meanwhile.
  state->handle = CreateFileA(path.c_str(), FILE_APPEND_DATA | SYNCHRONIZE, kShareAll, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
  if (IsOpen()) {
    SetFilePointerEx(state->handle, LARGE_INTEGER{}, nullptr, FILE_END);
  }
  return IsOpen();
}

bool CAppendFile::IsOpen() const {
  return state->handle != INVALID_HANDLE_VALUE;
}

int64_t CAppendFile::Write(const void* data, size_t length) {
  return IsOpen() ? WriteOnce(state->handle, data, length) : -1;
}

void CAppendFile::Close() {
  CloseFile(state->handle);
}

struct CReadFile::SState {
  HANDLE handle = INVALID_HANDLE_VALUE;
};

CReadFile::CReadFile() : state(std::make_unique<SState>()) {}

CReadFile::~CReadFile() {
  Close();
}

bool CReadFile::Open(const char* path) {
  Close();
  state->handle = OpenRegular(path, GENERIC_READ, kShareAll);
  return IsOpen();
}

bool CReadFile::IsOpen() const {
  return state->handle != INVALID_HANDLE_VALUE;
}

uint64_t CReadFile::Size() const {
  return IsOpen() ? SizeOf(state->handle) : 0;
}

size_t CReadFile::ReadAt(uint64_t offset, void* data, size_t length) {
  size_t done = 0;
  while (IsOpen() && done < length && offset + done <= static_cast<uint64_t>(INT64_MAX)) {
    const uint64_t at = offset + done;
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(at);
    place.OffsetHigh = static_cast<DWORD>(at >> 32);
    DWORD got = 0;
    if (ReadFile(state->handle, static_cast<char*>(data) + done, AtOnce(length - done), &got, &place) == FALSE ||
        got == 0) {
      break;
    }
    done += got;
  }
  return done;
}

// Asked for on a file that the multimedia functions do not walk: not worth a system call of its own here.
uint64_t CReadFile::BehindHole(uint64_t offset) const {
  return offset;
}

bool CReadFile::Close() {
  return CloseFile(state->handle);
}

struct CUpdateFile::SState {
  HANDLE handle = INVALID_HANDLE_VALUE;
};

CUpdateFile::CUpdateFile() : state(std::make_unique<SState>()) {}

CUpdateFile::~CUpdateFile() {
  Close();
}

bool CUpdateFile::OpenExisting(const char* path) {
  Close();
  state->handle = OpenRegular(path, GENERIC_READ | GENERIC_WRITE, 0);
  return state->handle != INVALID_HANDLE_VALUE;
}

uint32_t CUpdateFile::Size32() const {
  return state->handle != INVALID_HANDLE_VALUE ? static_cast<uint32_t>(SizeOf(state->handle)) : 0;
}

bool CUpdateFile::Write(const void* data, size_t length) {
  size_t done = 0;
  while (done < length) {
    const int64_t written = WriteOnce(state->handle, static_cast<const char*>(data) + done, length - done);
    if (written <= 0) {
      return false;
    }
    done += static_cast<size_t>(written);
  }
  return true;
}

bool CUpdateFile::Close() {
  return CloseFile(state->handle);
}

}  // namespace zelk

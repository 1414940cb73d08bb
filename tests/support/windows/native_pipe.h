// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

// A named pipe that nobody writes to: who reads it as a file waits for ever.
class CNamedPipe {
 public:
  // folder: of no use here, where pipes have a place of their own.
  explicit CNamedPipe(const std::string& /*folder*/)
      : path("\\\\.\\pipe\\zelk-test-" + std::to_string(GetCurrentProcessId())),
        handle(CreateNamedPipeA(path.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, PIPE_UNLIMITED_INSTANCES, 0, 0, 0,
                                nullptr)) {
    if (handle == INVALID_HANDLE_VALUE) {
      throw std::runtime_error("no named pipe");
    }
  }
  ~CNamedPipe() { CloseHandle(handle); }
  CNamedPipe(const CNamedPipe&) = delete;
  CNamedPipe& operator=(const CNamedPipe&) = delete;

  const char* Path() const { return path.c_str(); }

 private:
  const std::string path;
  HANDLE handle;
};

// A device that opens and reads like a file.
constexpr const char* kDevicePath = "NUL";

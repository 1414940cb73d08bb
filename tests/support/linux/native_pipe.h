// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

// A named pipe that nobody writes to: who opens or reads it as a file waits for ever.
class CNamedPipe {
 public:
  // folder: one of the test's own.
  explicit CNamedPipe(const std::string& folder) : path(folder + "/pipe.wav") {
    if (mkfifo(path.c_str(), 0600) != 0) {
      throw std::runtime_error("no named pipe");
    }
  }
  ~CNamedPipe() { unlink(path.c_str()); }
  CNamedPipe(const CNamedPipe&) = delete;
  CNamedPipe& operator=(const CNamedPipe&) = delete;

  const char* Path() const { return path.c_str(); }

 private:
  const std::string path;
};

// A device that opens and reads like a file.
constexpr const char* kDevicePath = "/dev/null";

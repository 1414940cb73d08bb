// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Job: an example as a program of its own, what it says and how it ends. Thread: any. Waits return false when the time
// runs out; WaitLine at once when the program has ended without it. Failures to start throw std::runtime_error. It is
// killed with the object, and with the test program.
class CExampleProcess {
 public:
  explicit CExampleProcess(const std::vector<std::string>& command);
  ~CExampleProcess();
  CExampleProcess(const CExampleProcess&) = delete;
  CExampleProcess& operator=(const CExampleProcess&) = delete;

  // As Ctrl-C does.
  void Interrupt();
  // Until `part` stands in count lines of its standard output.
  bool WaitLine(const std::string& part, std::chrono::milliseconds timeout, size_t count = 1) const;
  bool WaitError(const std::string& part, std::chrono::milliseconds timeout) const;
  bool WaitEnd(std::chrono::milliseconds timeout) const;
  // -1 while it runs and when a signal ended it.
  int ExitCode() const;
  std::string Output() const;
  std::string Errors() const;

 private:
  void Read(int outputPipe, int errorPipe);
  void Signal(int number);

  pid_t process = -1;
  mutable std::mutex lock;
  mutable std::condition_variable changed;
  std::string output;  // guarded by lock
  std::string errors;  // guarded by lock
  bool ended = false;  // guarded by lock
  int exitCode = -1;   // guarded by lock
  std::thread reader;
};

// How many lines have `part` in them.
size_t CountLines(const std::string& text, const std::string& part);

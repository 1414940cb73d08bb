// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace tool {

// Job: another program, whose standard output is read here. It reads nothing itself, and what it has to say on its
// standard error is kept for when it fails. Thread: one, but Stop any and signal handlers too. Ends the program when it
// goes.
class CChildProcess {
 public:
  // The program is looked for in PATH. Throws std::runtime_error when it cannot be started.
  explicit CChildProcess(const std::vector<std::string>& command);
  ~CChildProcess();
  CChildProcess(const CChildProcess&) = delete;
  CChildProcess& operator=(const CChildProcess&) = delete;

  // What it writes. The caller closes it, and calls this once.
  std::FILE* TakeOutput();
  // Asks it to end, which it does with all that it has written. Nothing more after that.
  void Stop();
  // Until it has ended: what it said on its standard error. To be called when the end of its output has come.
  std::string Wait();

 private:
  std::FILE* output = nullptr;
  std::FILE* errors = nullptr;
  int process = -1;
};

// A program that reads what is written to the stream, as bytes. Null when it cannot be started. Closing waits for its
// end.
std::FILE* OpenPipeTo(const std::string& command);
int ClosePipe(std::FILE* pipe);

// Whether there is a process of this number.
bool ProcessLives(std::uint32_t number);

// This program and its children run behind all others from now on: who only looks must not keep a telephone waiting.
void GiveWay();

// Has handler called when somebody asks this program to end (Ctrl-C, kill, the end of the terminal), instead of ending
// it. The handler may do what a signal handler may.
void OnEndRequest(void (*handler)(int));

}  // namespace tool

// SPDX-License-Identifier: GPL-2.0-only
#include "examples/example_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <sstream>
#include <stdexcept>

namespace {

struct SPipe {
  SPipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error("no pipe");
    }
    readEnd = ends[0];
    writeEnd = ends[1];
  }
  int readEnd;
  int writeEnd;
};

[[noreturn]] void BecomeExample(const SPipe& output, const SPipe& errors, char** arguments) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  signal(SIGINT, SIG_DFL);
  dup2(output.writeEnd, STDOUT_FILENO);
  dup2(errors.writeEnd, STDERR_FILENO);
  execvp(arguments[0], arguments);
  _exit(127);
}

// Appends what has come; false at the end of the pipe.
bool Take(int pipe, std::string& text, std::mutex& lock) {
  std::array<char, 4096> piece{};
  const ssize_t count = read(pipe, piece.data(), piece.size());
  if (count > 0) {
    const std::lock_guard guard(lock);
    text.append(piece.data(), static_cast<size_t>(count));
  }
  return count > 0;
}

}  // namespace

size_t CountLines(const std::string& text, const std::string& part) {
  std::istringstream lines(text);
  size_t count = 0;
  for (std::string line; std::getline(lines, line);) {
    count += line.find(part) != std::string::npos ? 1U : 0U;
  }
  return count;
}

CExampleProcess::CExampleProcess(const std::vector<std::string>& command) {
  std::vector<std::string> words = command;
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  const SPipe outputPipe;
  const SPipe errorPipe;
  process = fork();
  if (process == 0) {
    BecomeExample(outputPipe, errorPipe, arguments.data());
  }
  close(outputPipe.writeEnd);
  close(errorPipe.writeEnd);
  if (process < 0) {
    throw std::runtime_error("no process");
  }
  reader = std::thread([this, outputPipe, errorPipe] { Read(outputPipe.readEnd, errorPipe.readEnd); });
}

CExampleProcess::~CExampleProcess() {
  Signal(SIGKILL);
  reader.join();
}

void CExampleProcess::Read(int outputPipe, int errorPipe) {
  std::array<pollfd, 2> pipes{pollfd{outputPipe, POLLIN, 0}, pollfd{errorPipe, POLLIN, 0}};
  while (pipes[0].fd >= 0 || pipes[1].fd >= 0) {
    poll(pipes.data(), pipes.size(), -1);
    for (size_t which = 0; which < pipes.size(); ++which) {
      if (pipes[which].revents != 0 && !Take(pipes[which].fd, which == 0 ? output : errors, lock)) {
        close(pipes[which].fd);
        pipes[which].fd = -1;
      }
      pipes[which].revents = 0;
    }
    changed.notify_all();
  }
  // Not reaped yet: its number stays its own until the lock is held.
  siginfo_t information{};
  waitid(P_PID, static_cast<id_t>(process), &information, WEXITED | WNOWAIT);
  const std::lock_guard guard(lock);
  int status = 0;
  waitpid(process, &status, 0);
  exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  ended = true;
  changed.notify_all();
}

void CExampleProcess::Signal(int number) {
  const std::lock_guard guard(lock);
  if (!ended) {
    kill(process, number);
  }
}

void CExampleProcess::Interrupt() {
  Signal(SIGINT);
}

bool CExampleProcess::WaitLine(const std::string& part, std::chrono::milliseconds timeout, size_t count) const {
  std::unique_lock guard(lock);
  const auto isThere = [&] { return CountLines(output, part) >= count; };
  changed.wait_for(guard, timeout, [&] { return ended || isThere(); });
  return isThere();
}

bool CExampleProcess::WaitError(const std::string& part, std::chrono::milliseconds timeout) const {
  std::unique_lock guard(lock);
  const auto isThere = [&] { return CountLines(errors, part) > 0; };
  changed.wait_for(guard, timeout, [&] { return ended || isThere(); });
  return isThere();
}

bool CExampleProcess::WaitEnd(std::chrono::milliseconds timeout) const {
  std::unique_lock guard(lock);
  return changed.wait_for(guard, timeout, [&] { return ended; });
}

int CExampleProcess::ExitCode() const {
  const std::lock_guard guard(lock);
  return exitCode;
}

std::string CExampleProcess::Output() const {
  const std::lock_guard guard(lock);
  return output;
}

std::string CExampleProcess::Errors() const {
  const std::lock_guard guard(lock);
  return errors;
}

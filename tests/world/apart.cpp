// SPDX-License-Identifier: GPL-2.0-only
#include "world/apart.h"

#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdio>
#include <stdexcept>

namespace world {
namespace {

constexpr char kDone = 'D';
// Of the processor: work that never comes back, whatever the world's clock says, ends by a signal.
constexpr rlim_t kMostSeconds = 900;
constexpr int kMoreAtOnce = 4 << 20;

[[noreturn]] void Child(int out, const std::function<std::string()>& work) {
  const rlimit limit{kMostSeconds, kMostSeconds};
  setrlimit(RLIMIT_CPU, &limit);
  // What a world frees it wants again: nothing of it goes back to the system.
  mallopt(M_TRIM_THRESHOLD, INT_MAX);
  mallopt(M_TOP_PAD, kMoreAtOnce);
  const std::string result = kDone + work();
  size_t at = 0;
  while (at < result.size()) {
    const ssize_t written = write(out, result.data() + at, result.size() - at);
    if (written <= 0) {
      break;
    }
    at += static_cast<size_t>(written);
  }
  std::fflush(nullptr);
  _exit(0);
}

std::string ReadAll(int in) {
  std::string text;
  std::array<char, 65536> buffer{};
  for (;;) {
    const ssize_t got = read(in, buffer.data(), buffer.size());
    if (got <= 0) {
      return text;
    }
    text.append(buffer.data(), static_cast<size_t>(got));
  }
}

}  // namespace

SApart DoApart(const std::function<std::string()>& work) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    throw std::runtime_error("no pipe");
  }
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) {
    throw std::runtime_error("no process");
  }
  if (child == 0) {
    close(ends[0]);
    Child(ends[1], work);
  }
  close(ends[1]);
  const std::string text = ReadAll(ends[0]);
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0 && !text.empty()) {
    return {true, text.substr(1)};
  }
  return {false, WIFSIGNALED(status) ? "ended by signal " + std::to_string(WTERMSIG(status))
                                     : "ended with " + std::to_string(WEXITSTATUS(status))};
}

}  // namespace world

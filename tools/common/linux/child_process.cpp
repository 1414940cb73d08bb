// SPDX-License-Identifier: GPL-2.0-only
#include "common/child_process.h"

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace tool {

namespace {

// A process group of its own, so that Ctrl-C at the terminal reaches this program alone, which ends the child in its
// turn; and the signals as a program expects them.
class CAttributes {
 public:
  CAttributes() {
    posix_spawnattr_init(&attributes);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  }
  ~CAttributes() { posix_spawnattr_destroy(&attributes); }
  CAttributes(const CAttributes&) = delete;
  CAttributes& operator=(const CAttributes&) = delete;

  posix_spawnattr_t attributes;
};

int Spawn(const std::vector<std::string>& command, int output, int errors, int& process) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& each : command) {
    arguments.push_back(const_cast<char*>(each.c_str()));
  }
  arguments.push_back(nullptr);
  const CAttributes attributes;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  const int result =
      posix_spawnp(&process, arguments.front(), &actions, &attributes.attributes, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return result;
}

}  // namespace

CChildProcess::CChildProcess(const std::vector<std::string>& command) {
  std::array<int, 2> ends{};
  errors = std::tmpfile();
  if (errors == nullptr || pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error(command.front() + ": cannot be started (" + std::strerror(errno) + ")");
  }
  const int result = Spawn(command, ends[1], fileno(errors), process);
  close(ends[1]);
  if (result != 0) {
    close(ends[0]);
    std::fclose(errors);
    throw std::runtime_error(command.front() + ": cannot be started (" + std::strerror(result) + ")");
  }
  output = fdopen(ends[0], "rb");
}

CChildProcess::~CChildProcess() {
  Stop();
  if (output != nullptr) {
    std::fclose(output);
  }
  Wait();
  std::fclose(errors);
}

std::FILE* CChildProcess::TakeOutput() {
  return std::exchange(output, nullptr);
}

void CChildProcess::Stop() {
  if (process > 0) {
    kill(process, SIGTERM);
  }
}

std::string CChildProcess::Wait() {
  if (process > 0) {
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    process = -1;
  }
  std::string text;
  std::array<char, 512> part{};
  std::rewind(errors);
  for (std::size_t got = 0; (got = std::fread(part.data(), 1, part.size(), errors)) > 0;) {
    text.append(part.data(), got);
  }
  return text;
}

std::FILE* OpenPipeTo(const std::string& command) {
  return popen(("exec " + command).c_str(), "w");
}

int ClosePipe(std::FILE* pipe) {
  return pclose(pipe);
}

bool ProcessLives(std::uint32_t number) {
  return number != 0 && (kill(static_cast<pid_t>(number), 0) == 0 || errno == EPERM);
}

void GiveWay() {
  constexpr int kNice = 10;
  // Such a process does not take a processor from another when it wakes. It works without both as well.
  const sched_param none{};
  (void)sched_setscheduler(0, SCHED_BATCH, &none);
  (void)setpriority(PRIO_PROCESS, 0, kNice);
}

void OnEndRequest(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;  // what is being read from a child is read to its end
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaction(signal, &action, nullptr);
  }
}

}  // namespace tool

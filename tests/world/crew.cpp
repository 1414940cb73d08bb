// SPDX-License-Identifier: GPL-2.0-only
#include "world/crew.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <new>
#include <stdexcept>

namespace world {
namespace {

class CSharedStop : public ICrewStop {
 public:
  CSharedStop() {
    void* const memory = mmap(nullptr, sizeof(Flag), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
      throw std::runtime_error("no memory to share");
    }
    flag = ::new (memory) Flag(false);
  }
  ~CSharedStop() override { munmap(flag, sizeof(Flag)); }
  void Set() override { flag->store(true); }
  bool IsSet() const override { return flag->load(); }

 private:
  using Flag = std::atomic<bool>;
  static_assert(Flag::is_always_lock_free);
  Flag* flag;
};

struct SWorker {
  pid_t process = 0;
  int result = -1;  // the reading end
};

// A result is short enough for the pipe to take it whole, so nobody need read before the end.
constexpr size_t kLongestResult = 4096;

SWorker Begin(const std::function<std::string()>& work) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    throw std::runtime_error("no pipe");
  }
  std::fflush(nullptr);
  const pid_t process = fork();
  if (process < 0) {
    throw std::runtime_error("no process");
  }
  if (process == 0) {
    close(ends[0]);
    const std::string result = work().substr(0, kLongestResult);
    const bool isTold = write(ends[1], result.data(), result.size()) == static_cast<ssize_t>(result.size());
    std::fflush(nullptr);
    _exit(isTold ? 0 : 1);
  }
  close(ends[1]);
  return {process, ends[0]};
}

std::string End(const SWorker& worker) {
  std::array<char, kLongestResult> buffer{};
  const ssize_t got = read(worker.result, buffer.data(), buffer.size());
  close(worker.result);
  int status = 0;
  waitpid(worker.process, &status, 0);
  const bool isWhole = got > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return isWhole ? std::string(buffer.data(), static_cast<size_t>(got)) : std::string();
}

}  // namespace

std::vector<std::string> RunCrew(size_t count, const std::function<std::string(size_t, ICrewStop&)>& work) {
  CSharedStop stop;
  std::vector<SWorker> workers;
  for (size_t i = 0; i < count; ++i) {
    workers.push_back(Begin([&, i] { return work(i, stop); }));
  }
  std::vector<std::string> results;
  for (const SWorker& worker : workers) {
    results.push_back(End(worker));
    if (results.back().empty()) {
      stop.Set();
    }
  }
  return results;
}

}  // namespace world

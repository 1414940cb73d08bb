// SPDX-License-Identifier: GPL-2.0-only
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/simulated/tasks/carrier.h"

// The thread sanitizer would take the baton for a lock around everything that tasks do, and find nothing.
#define ZELK_UNSEEN __attribute__((no_sanitize("thread"), noinline))

namespace zelk::sim {

namespace {

// Whose turn it is, said by one thread and awaited by another.
class CTurn {
 public:
  ZELK_UNSEEN void Give() {
    __atomic_store_n(&given, 1, __ATOMIC_RELEASE);
    syscall(SYS_futex, &given, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
  }
  ZELK_UNSEEN void Await() {
    while (__atomic_exchange_n(&given, 0, __ATOMIC_ACQUIRE) == 0) {
      syscall(SYS_futex, &given, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
    }
  }

 private:
  int given = 0;
};

class CThreadStrand : public CStrand {
 public:
  ~CThreadStrand() override {
    if (thread.joinable()) {
      thread.join();
    }
  }

  CTurn turn;
  std::thread thread;
};

class CThreadCarrier : public CCarrier {
 public:
  std::unique_ptr<CStrand> Make(std::function<void()> body) override {
    auto strand = std::make_unique<CThreadStrand>();
    try {
      strand->thread = std::thread([own = strand.get(), run = std::move(body)] {
        own->turn.Await();
        run();
      });
    } catch (const std::system_error&) {
      return nullptr;
    }
    return strand;
  }
  CStrand& Home() override { return home; }

  void Switch(CStrand& from, CStrand& to) override {
    static_cast<CThreadStrand&>(to).turn.Give();
    static_cast<CThreadStrand&>(from).turn.Await();
  }

  void SwitchForGood(CStrand&, CStrand& to) override { static_cast<CThreadStrand&>(to).turn.Give(); }

  // It waits for its turn until the process ends.
  void Abandon(std::unique_ptr<CStrand> strand) override {
    static_cast<CThreadStrand*>(strand.get())->thread.detach();
    (void)strand.release();
  }

 private:
  CThreadStrand home;
};

}  // namespace

std::unique_ptr<CCarrier> MakeThreadCarrier() {
  return std::make_unique<CThreadCarrier>();
}

}  // namespace zelk::sim

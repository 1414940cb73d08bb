// SPDX-License-Identifier: GPL-2.0-only
#include <atomic>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/simulated/tasks/carrier.h"

namespace zelk::sim {

namespace {

// Whose turn it is, said by one thread and awaited by another.
class CTurn {
 public:
  void Give() {
    given.store(true, std::memory_order_release);
    given.notify_one();
  }
  void Await() {
    given.wait(false, std::memory_order_acquire);
    given.store(false, std::memory_order_relaxed);
  }

 private:
  std::atomic<bool> given{false};
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

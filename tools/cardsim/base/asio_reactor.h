// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <memory>

#include "cardsim/base/reactor.h"

namespace cardsim {

// Job: a reactor on the system's sockets and clock, with a thread of its own. Thread: as IReactor says; Call blocks
// until its work has run. Stop joins the thread.
// With a turn, the thread sleeps that long between two looks at what has come, so that nothing that comes wakes it:
// what waking it costs would be on the account of who sends, and that is who is measured.
class CAsioReactor : public IReactor {
 public:
  explicit CAsioReactor(std::chrono::microseconds turn = std::chrono::microseconds(0));
  ~CAsioReactor() override;
  CAsioReactor(const CAsioReactor&) = delete;
  CAsioReactor& operator=(const CAsioReactor&) = delete;

  void Start() override;
  void Stop() override;

  void Post(std::function<void()> work) override;
  void After(std::chrono::milliseconds delay, std::function<void()> work) override;
  void Call(const std::function<void()>& work) override;
  Time Now() const override { return std::chrono::steady_clock::now(); }

  std::unique_ptr<IDatagrams> OpenDatagrams(const SDatagramOptions& options, IDatagrams::Handler handler) override;
  std::unique_ptr<IListener> Listen(const SEndpoint& local, IListener::Handler handler) override;
  std::unique_ptr<ITimer> MakeTimer() override;

 private:
  struct SState;
  std::unique_ptr<SState> state;
};

}  // namespace cardsim

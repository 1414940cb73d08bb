// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>

#include "cardsim/base/reactor.h"

namespace cardsim {

// Job: a reactor on the system's sockets and clock, with a thread of its own. Thread: as IReactor says; Call blocks
// until its work has run. Stop joins the thread.
class CAsioReactor : public IReactor {
 public:
  CAsioReactor();
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

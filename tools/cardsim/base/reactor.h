// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace asio {
class io_context;
}

namespace cardsim {

// Job: one thread that runs socket events, timers and posted work in turn. The simulator has two: signalling (control
// connections, discovery, libpri, calls) and audio.
// Thread: any. Call blocks until its work has run (run in place when called on the reactor's own thread or while it is
// stopped). Sockets that use Io() must be gone before the reactor is.
class CReactor {
 public:
  CReactor();
  ~CReactor();
  CReactor(const CReactor&) = delete;
  CReactor& operator=(const CReactor&) = delete;

  void Start();
  void Stop();  // joins; work that is still waiting is dropped

  void Post(std::function<void()> work);
  void After(std::chrono::milliseconds delay, std::function<void()> work);
  void Call(const std::function<void()>& work);

  asio::io_context& Io();

 private:
  struct SState;
  std::unique_ptr<SState> state;
};

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/base/reactor.h"

#include <asio.hpp>
#include <exception>
#include <future>
#include <mutex>
#include <thread>

namespace cardsim {

struct CReactor::SState {
  asio::io_context io;
  asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(io);
  std::mutex lock;
  bool running = false;      // guarded by lock
  std::thread::id threadId;  // guarded by lock
  std::thread thread;        // touched by Start and Stop only
};

CReactor::CReactor() : state(std::make_unique<SState>()) {}

CReactor::~CReactor() {
  Stop();
}

void CReactor::Start() {
  const std::lock_guard guard(state->lock);
  if (state->running) {
    return;
  }
  state->io.restart();
  state->running = true;
  state->thread = std::thread([this] { state->io.run(); });
  state->threadId = state->thread.get_id();
}

void CReactor::Stop() {
  {
    const std::lock_guard guard(state->lock);
    if (!state->running) {
      return;
    }
    state->running = false;
  }
  state->io.stop();
  state->thread.join();
}

void CReactor::Post(std::function<void()> work) {
  asio::post(state->io, std::move(work));
}

void CReactor::After(std::chrono::milliseconds delay, std::function<void()> work) {
  auto timer = std::make_shared<asio::steady_timer>(state->io, delay);
  timer->async_wait([timer, action = std::move(work)](const asio::error_code& error) {
    if (!error) {
      action();
    }
  });
}

void CReactor::Call(const std::function<void()>& work) {
  bool inPlace = false;
  {
    const std::lock_guard guard(state->lock);
    inPlace = !state->running || state->threadId == std::this_thread::get_id();
  }
  if (inPlace) {
    work();
    return;
  }
  std::promise<void> done;
  asio::post(state->io, [&] {
    try {
      work();
      done.set_value();
    } catch (...) {
      done.set_exception(std::current_exception());
    }
  });
  done.get_future().get();
}

asio::io_context& CReactor::Io() {
  return state->io;
}

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/base/asio_reactor.h"

#include <asio.hpp>
#include <exception>
#include <future>
#include <mutex>
#include <thread>

#include "cardsim/base/asio_sockets.h"

namespace cardsim {
namespace {

class CAsioTimer : public ITimer {
 public:
  explicit CAsioTimer(asio::io_context& io) : wake(io) {}

  void At(std::chrono::steady_clock::time_point time, std::function<void()> work) override {
    wake.expires_at(time);
    wake.async_wait([action = std::move(work)](const asio::error_code& error) {
      if (!error) {
        action();
      }
    });
  }
  void Cancel() override { wake.cancel(); }

 private:
  asio::steady_timer wake;
};

}  // namespace

struct CAsioReactor::SState {
  explicit SState(std::chrono::microseconds reactorTurn) : turn(reactorTurn) {}
  void Run() {
    if (turn.count() == 0) {
      io.run();
    }
    while (!io.stopped()) {
      io.poll();
      std::this_thread::sleep_for(turn);
    }
  }

  const std::chrono::microseconds turn;
  asio::io_context io;
  asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(io);
  std::mutex lock;
  bool running = false;      // guarded by lock
  std::thread::id threadId;  // guarded by lock
  std::thread thread;        // touched by Start and Stop only
};

CAsioReactor::CAsioReactor(std::chrono::microseconds turn) : state(std::make_unique<SState>(turn)) {}

CAsioReactor::~CAsioReactor() {
  CAsioReactor::Stop();
}

void CAsioReactor::Start() {
  const std::lock_guard guard(state->lock);
  if (state->running) {
    return;
  }
  state->io.restart();
  state->running = true;
  state->thread = std::thread([this] { state->Run(); });
  state->threadId = state->thread.get_id();
}

void CAsioReactor::Stop() {
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

void CAsioReactor::Post(std::function<void()> work) {
  asio::post(state->io, std::move(work));
}

void CAsioReactor::After(std::chrono::milliseconds delay, std::function<void()> work) {
  auto timer = std::make_shared<asio::steady_timer>(state->io, delay);
  timer->async_wait([timer, action = std::move(work)](const asio::error_code& error) {
    if (!error) {
      action();
    }
  });
}

void CAsioReactor::Call(const std::function<void()>& work) {
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

std::unique_ptr<IDatagrams> CAsioReactor::OpenDatagrams(const SDatagramOptions& options, IDatagrams::Handler handler) {
  return OpenAsioDatagrams(state->io, options, std::move(handler));
}

std::unique_ptr<IListener> CAsioReactor::Listen(const SEndpoint& local, IListener::Handler handler) {
  return ListenWithAsio(state->io, local, std::move(handler));
}

std::unique_ptr<ITimer> CAsioReactor::MakeTimer() {
  return std::make_unique<CAsioTimer>(state->io);
}

}  // namespace cardsim

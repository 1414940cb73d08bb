/* SPDX-License-Identifier: GPL-2.0-only */

/** @file Where the library's callbacks end: the queues of this process. */
#ifndef ZELK_CPP_HUB_HPP
#define ZELK_CPP_HUB_HPP

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "zelk/ZelkApi.h"
#include "zelk/cpp/Events.hpp"
#include "zelk/cpp/Sound.hpp"
#include "zelk/cpp/Waiting.hpp"

namespace zelkapi {

/** Code of the application that runs on threads of the library; each serves a whole card. */
struct Handlers {
  /** Runs before the event is queued. See "Callbacks" in zelk/ZelkApi.h for what may be done there. */
  std::function<void(const Event&)> onEventOnLibraryThread;
  /** Hears every received block of 160 bytes of every channel. */
  std::function<void(int channel, const std::uint8_t* alaw)> onRecordOnLibraryThread;
  /** May change every block of 160 bytes of every channel before it is sent. */
  std::function<void(int channel, std::uint8_t* alaw)> onPlayOnLibraryThread;
};

namespace detail {

/**
 * The one place of a process that the library's callbacks put into. It is never destroyed: a callback that the library
 * left behind, a thread that still waits, and the end of the process find it as it was.
 */
class Hub {
 public:
  enum class Start { Done, AlreadyRunning, InitFailed, Forked };

  static Hub& get() {
    static Hub* const hub = new Hub;
    return *hub;
  }

  Gate gate;
  Events events;
  Sound sound;

  /** Sets the callbacks and starts the library. What is in handlers is kept until no callback uses it any more. */
  Start start(Handlers own = {}) {
    if (isForked()) {
      return Start::Forked;
    }
    const std::lock_guard<std::mutex> held(lifecycle);
    if (owner.load() != 0) {
      return Start::AlreadyRunning;
    }
    auto copy = std::make_unique<const Handlers>(std::move(own));
    owner = processNumber();
    failedOnes = 0;
    events.begin();
    sound.begin();
    gate.set(Gate::State::Starting);
    setCallbacks(std::move(copy));
    if (!ZELK_Init()) {
      takeDown();
      return Start::InitFailed;
    }
    gate.set(Gate::State::Open);
    return Start::Done;
  }

  /** Ends every wait, waits for calls that are inside and shuts the library down. False when it was not running. */
  bool stop() {
    if (isForked()) {
      return false;
    }
    const std::lock_guard<std::mutex> held(lifecycle);
    if (owner.load() == 0) {
      return false;
    }
    takeDown();
    return true;
  }

  /** Comes through the gate; false in a child made by fork, too. */
  bool enter() noexcept { return !isForked() && gate.enter(); }

  /** The lock under which texts and numbers of channels are asked for and copied. */
  std::mutex& informationLock() noexcept { return information; }

  /** In a child of the process that started the library: its threads are not here, and a lock may never be free. */
  bool isForked() const noexcept {
    const long number = owner.load();
    return number != 0 && number != processNumber();
  }

 private:
  Hub() = default;

  void setCallbacks(std::unique_ptr<const Handlers> own) {
    hasRecordHandler = static_cast<bool>(own->onRecordOnLibraryThread);
    const bool plays = static_cast<bool>(own->onPlayOnLibraryThread);
    handlers = own.release();
    ZELK_SetEventCallback(&Hub::onEvent);
    ZELK_SetRecordCallback(&Hub::onRecord);
    if (plays) {
      ZELK_SetPlayCallback(&Hub::onPlay);
    }
  }

  void takeDown() {
    events.end();
    sound.end();
    gate.close();
    ZELK_SetEventCallback(nullptr);
    ZELK_SetRecordCallback(nullptr);
    std::unique_ptr<const Handlers> own(handlers.exchange(nullptr));
    if (own->onPlayOnLibraryThread) {
      ZELK_SetPlayCallback(nullptr);
    }
    ZELK_Shutdown();
    leftBehind.push_back(std::move(own));
    if (inHandlers.load() == 0) {
      leftBehind.clear();  // otherwise a callback that the library has left behind is in one of them
    }
    sound.clear();
    owner = 0;
  }

  // Runs code of the application, if there is any; what it throws must not reach the library.
  template <class Run>
  static void handle(int channel, FailedHandler kind, Run run) noexcept {
    Hub& hub = get();
    ++hub.inHandlers;
    if (const Handlers* const own = hub.handlers.load()) {
      onLibraryThread() = true;
      try {
        run(*own);
      } catch (...) {
        hub.report(channel, kind);
      }
      onLibraryThread() = false;
    }
    --hub.inHandlers;
  }

  // Sound comes 50 times a second on every channel: of its handlers the first fault is told, events' every time.
  void report(int channel, FailedHandler kind) noexcept {
    const auto mark = static_cast<std::uint32_t>(1U << kind);
    if (kind == kEventHandler || (failedOnes.fetch_or(mark) & mark) == 0) {
      events.put(channel, kHandlerFailed, kind);
    }
  }

  static void ZELK_CALL onEvent(std::int32_t channel, std::uint32_t code, std::int32_t param) {
    handle(channel, kEventHandler, [&](const Handlers& own) {
      if (own.onEventOnLibraryThread) {
        own.onEventOnLibraryThread(Events::stamped(channel, code, param));
      }
    });
    get().events.put(channel, code, param);
  }

  static void ZELK_CALL onRecord(std::uint32_t channel, const std::uint8_t* data, std::uint32_t length) {
    if (length != ZELK_BLOCK_BYTES) {
      return;
    }
    Hub& hub = get();
    if (hub.hasRecordHandler.load(std::memory_order_relaxed)) {
      handle(static_cast<int>(channel), kRecordHandler, [&](const Handlers& own) {
        if (own.onRecordOnLibraryThread) {
          own.onRecordOnLibraryThread(static_cast<int>(channel), data);
        }
      });
    }
    hub.sound.put(channel, data);
  }

  static void ZELK_CALL onPlay(std::uint32_t channel, std::uint8_t* data, std::uint32_t) {
    handle(static_cast<int>(channel), kPlayHandler, [&](const Handlers& own) {
      if (own.onPlayOnLibraryThread) {
        own.onPlayOnLibraryThread(static_cast<int>(channel), data);
      }
    });
  }

  std::mutex lifecycle;
  std::mutex information;
  std::atomic<long> owner{0};  // the process that started it; 0: not started
  std::atomic<const Handlers*> handlers{nullptr};
  std::vector<std::unique_ptr<const Handlers>> leftBehind;  // guarded by lifecycle
  std::atomic<bool> hasRecordHandler{false};
  std::atomic<std::uint32_t> inHandlers{0};
  std::atomic<std::uint32_t> failedOnes{0};
};

/** Being inside the library: throws NotRunning where it does not run. */
class Pass {
 public:
  Pass() {
    if (!Hub::get().enter()) {
      throw NotRunning();
    }
  }
  ~Pass() { Hub::get().gate.leave(); }
  Pass(const Pass&) = delete;
  Pass& operator=(const Pass&) = delete;
};

}  // namespace detail
}  // namespace zelkapi

#endif

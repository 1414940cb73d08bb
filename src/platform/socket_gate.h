// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/event.h"

namespace zelk {

// Counts the threads inside calls on a descriptor, so that it is given back by the last one that leaves after a close.
//
//   Publish                 idle -> kOpen
//   BeginClose              kOpen -> kClosing, the closer counted in
//   Leave of the last one   kClosing -> kReleasing; it gives the descriptors back and calls Released
//   Released                kReleasing -> idle, which wakes WaitIdle
//
// Thread: any. Only WaitIdle blocks. Enter and Leave are one atomic operation each and never wait.
class CSocketGate {
 public:
  // True when the socket is open. Leave must follow in both cases: even a caller that came too late was counted.
  bool Enter() { return (word.fetch_add(1, std::memory_order_acquire) & kOpen) != 0; }

  // True when the caller is the one that must give the descriptors back and then call Released.
  bool Leave() {
    if (word.fetch_sub(1, std::memory_order_acq_rel) != (kClosing | 1)) {
      return false;
    }
    uint32_t expected = kClosing;
    return word.compare_exchange_strong(expected, kReleasing, std::memory_order_acq_rel);
  }

  bool IsOpen() const { return (word.load(std::memory_order_acquire) & kOpen) != 0; }

  void Publish() { word.fetch_or(kOpen, std::memory_order_release); }

  // False when it is not open (or another thread closes it). After true the caller is inside and must leave.
  bool BeginClose() {
    uint32_t now = word.load(std::memory_order_acquire);
    do {
      if ((now & kOpen) == 0) {
        return false;
      }
    } while (!word.compare_exchange_weak(now, ((now & ~kOpen) | kClosing) + 1, std::memory_order_acq_rel));
    released.Reset();  // the caller is inside, so this close cannot be complete before
    return true;
  }

  void Released() {
    word.fetch_and(~kReleasing, std::memory_order_release);
    released.Set();
  }

  // Blocks until a close that has begun is complete.
  void WaitIdle() {
    while ((word.load(std::memory_order_acquire) & (kClosing | kReleasing)) != 0) {
      released.Wait();
    }
  }

 private:
  static constexpr uint32_t kOpen = 1U << 31;
  static constexpr uint32_t kClosing = 1U << 30;
  static constexpr uint32_t kReleasing = 1U << 29;

  std::atomic<uint32_t> word{0};  // one of the bits above or none, plus the number of threads inside
  CEvent released;                // says when to look again, no more: it may still be set while the next close begins
};

// Holds a socket's gate for the length of a call. The socket has it as `gate`, and Release gives its descriptors back.
template <class Socket>
class CInsideGate {
 public:
  explicit CInsideGate(Socket& socket) : entered(socket), open(socket.gate.Enter()) {}
  ~CInsideGate() {
    if (entered.gate.Leave()) {
      entered.Release();
    }
  }
  CInsideGate(const CInsideGate&) = delete;
  CInsideGate& operator=(const CInsideGate&) = delete;
  // False when the socket is not open.
  explicit operator bool() const { return open; }

 private:
  Socket& entered;
  const bool open;
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include "cardsim/base/bytes.h"
#include "cardsim/base/endpoint.h"

namespace cardsim {

// Job: a UDP socket. Thread: the reactor's, where its handler runs too. It closes with its destruction, after which
// the handler is not called; the handler may destroy it. What cannot be sent at once is lost.
class IDatagrams {
 public:
  using Handler = std::function<void(ByteView datagram, const SEndpoint& from)>;

  virtual ~IDatagrams() = default;
  virtual void SendTo(ByteView datagram, const SEndpoint& to) = 0;
};

struct SDatagramOptions {
  SEndpoint local;
  bool broadcast = false;       // datagrams to broadcast addresses are sent
  std::size_t bufferBytes = 0;  // wished for, each way; 0: as the system has them
};

// Job: one accepted TCP connection. Thread: the reactor's, where its handlers run too. It closes with its destruction,
// after which nothing is called; handlers may destroy it. One Write at a time.
class IStream {
 public:
  struct SHandlers {
    std::function<void(ByteView)> data;
    std::function<void()> ended;  // the other side has ended its half, or the connection is broken
  };
  using Written = std::function<void(bool isWhole)>;

  virtual ~IStream() = default;
  virtual void Read(SHandlers handlers) = 0;  // from now on
  virtual void Write(Bytes bytes, Written written) = 0;
  virtual void HalfClose() = 0;
  virtual void Reset() = 0;  // ends it with a RST; nothing is called any more
};

// Job: a listening TCP socket, until its destruction. The handler is not called after that.
class IListener {
 public:
  using Handler = std::function<void(std::unique_ptr<IStream> stream, const SEndpoint& peer)>;

  virtual ~IListener() = default;
};

// Job: one wake-up at a time; a later At takes the place of an earlier. Thread: the reactor's.
class ITimer {
 public:
  virtual ~ITimer() = default;
  virtual void At(std::chrono::steady_clock::time_point time, std::function<void()> work) = 0;
  virtual void Cancel() = 0;
};

// Job: runs socket events, timers and posted work in turn, never two at once, and has the clock and the network that
// they see. The simulator has two: signalling (control connections, discovery, libpri, calls) and audio.
// Thread: Start, Stop, Post, After, Call and Now from any; the rest from the reactor's own. Call returns when its work
// has run (in place when it is called from the reactor's work, or while the reactor is stopped). What the reactor makes
// must be gone before it is. OpenDatagrams and Listen throw std::system_error when the address cannot be had.
class IReactor {
 public:
  using Time = std::chrono::steady_clock::time_point;

  virtual ~IReactor() = default;

  virtual void Start() = 0;
  virtual void Stop() = 0;  // work that is still waiting is dropped

  virtual void Post(std::function<void()> work) = 0;
  virtual void After(std::chrono::milliseconds delay, std::function<void()> work) = 0;
  virtual void Call(const std::function<void()>& work) = 0;
  virtual Time Now() const = 0;

  virtual std::unique_ptr<IDatagrams> OpenDatagrams(const SDatagramOptions& options, IDatagrams::Handler handler) = 0;
  virtual std::unique_ptr<IListener> Listen(const SEndpoint& local, IListener::Handler handler) = 0;
  virtual std::unique_ptr<ITimer> MakeTimer() = 0;
};

}  // namespace cardsim

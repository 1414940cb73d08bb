// SPDX-License-Identifier: GPL-2.0-only

// The network of a world: the library's machine, with its adapters, and other machines, which are the test's.
//
//   The library's end are its CSockets. The outside's are endpoints for datagrams and listeners for streams at
//   (address, port) of any address; an address is a machine that is there from the first time that one was opened at
//   it. Handlers are acts (world.h): they run between tasks, must not block, and may call everything here, closing and
//   destroying what they belong to included.
//
//   auto card = world.Network().OpenDatagrams({address, 8150}, [&](std::span<const uint8_t> data, SIpv4Endpoint from) {
//     card->SendTo(reply, from);
//   });
//   auto control = world.Network().Listen({address, 8150}, [&](std::shared_ptr<CStream> stream) {
//     stream->OnData([=](std::span<const uint8_t> data) { stream->Write(answer); });
//     stream->OnEnd([=] { stream->Close(); });
//     stream->OnReset([=] { ... });
//   });
//   world.Network().SetLink(address, {.delayUs = 2000, .lossPerMillion = 10'000});
//
// Streams keep their order and lose nothing, whatever the link does: what it loses is sent again, later.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "platform/adapters.h"
#include "platform/ipv4_address.h"

namespace zelk::sim {

class CWorld;

constexpr SIpv4Address Address(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  return {static_cast<uint32_t>(a) | static_cast<uint32_t>(b) << 8 | static_cast<uint32_t>(c) << 16 |
          static_cast<uint32_t>(d) << 24};
}

constexpr SIpv4Address kLoopback = Address(127, 0, 0, 1);
// What a world's library machine has unless the test says otherwise: this one, of 255.255.255.0, and the loopback.
constexpr SIpv4Address kLibraryAddress = Address(10, 1, 0, 1);

// One way of the connection between the library's machine and another one. Datagrams and streams.
struct SLink {
  int64_t delayUs = 100;
  int64_t jitterUs = 0;  // up to so much more, drawn; the order stays
  uint32_t lossPerMillion = 0;
  uint32_t duplicatePerMillion = 0;
  uint32_t reorderPerMillion = 0;  // a datagram that comes up to reorderUs later than its turn
  int64_t reorderUs = 5000;
  uint64_t bytesPerSecond = 0;     // 0: no limit
  size_t queueBytes = 256U << 10;  // what may wait for the line; datagrams beyond are lost
  bool isCut = false;              // nothing comes through
  uint32_t partialPerMillion = 0;  // a send or receive of a stream by the library moves only a part
};

// A machine's datagram socket, of the outside. Closed when it is destroyed.
class CDatagrams {
 public:
  virtual ~CDatagrams() = default;
  virtual SIpv4Endpoint Local() const = 0;
  // To an address of the library's machine, to another machine, or to everyone (an adapter's broadcast address).
  virtual void SendTo(std::span<const uint8_t> data, SIpv4Endpoint remote) = 0;
};

// The outside's end of a stream. It lives until both ends are done with it, whoever holds it: handlers may hold it.
class CStream {
 public:
  virtual ~CStream() = default;
  virtual SIpv4Endpoint Local() const = 0;
  virtual SIpv4Endpoint Peer() const = 0;

  virtual void OnData(std::function<void(std::span<const uint8_t>)> handler) = 0;
  virtual void OnEnd(std::function<void()> handler) = 0;    // the peer sends no more
  virtual void OnReset(std::function<void()> handler) = 0;  // the connection is gone; so are the handlers, afterwards

  // Queued without a limit; nothing after HalfClose.
  virtual void Write(std::span<const uint8_t> data) = 0;
  // Of what was written: not yet in the peer's receive buffer.
  virtual size_t Unsent() const = 0;
  // No data is taken while this is on: the library's buffers fill.
  virtual void StopReading(bool on) = 0;

  virtual void HalfClose() = 0;  // sends no more
  virtual void Close() = 0;      // sends no more and takes none: what still comes is answered by a reset
  virtual void Reset() = 0;      // at once, whatever was written
  // Gone without a word, as a machine without power. isBack: later messages are answered by a reset, as by the machine
  // when it runs again.
  virtual void Vanish(bool isBack) = 0;
};

// A port at which streams are accepted. Closed when it is destroyed; its streams go on.
class CListener {
 public:
  enum class EAnswer {
    kAccept,
    kRefuse,  // as if nobody listened
    kStall,   // never
  };

  virtual ~CListener() = default;
  virtual SIpv4Endpoint Local() const = 0;
  virtual void SetAnswer(EAnswer answer) = 0;
};

// What passes the library's machine's adapters, when it does: sent, or arrived.
struct SWireMessage {
  enum class EKind { kDatagram, kAsk, kAccept, kRefuse, kData, kEnd, kReset };  // all but the first of a stream
  EKind kind;
  SIpv4Endpoint from;
  SIpv4Endpoint to;
  std::span<const uint8_t> data;
};

// Thread: tasks and acts of the world.
class CNetwork {
 public:
  using Tap = std::function<void(const SWireMessage&)>;
  using DatagramHandler = std::function<void(std::span<const uint8_t> data, SIpv4Endpoint from)>;
  using AcceptHandler = std::function<void(std::shared_ptr<CStream> stream)>;

  explicit CNetwork(CWorld& owner);
  ~CNetwork();
  CNetwork(const CNetwork&) = delete;
  CNetwork& operator=(const CNetwork&) = delete;

  // The library's machine, in the system's order. ListAdapters returns the result.
  void SetAdapters(std::vector<SAdapter> adapters, int result = kAdaptersListed);

  // Port 0 takes a free one. Null when the port is taken.
  std::unique_ptr<CDatagrams> OpenDatagrams(SIpv4Endpoint local, DatagramHandler handler);
  std::unique_ptr<CListener> Listen(SIpv4Endpoint local, AcceptHandler handler);

  // How messages between the library's machine and this one travel from now on, both ways.
  void SetLink(SIpv4Address machine, const SLink& link);
  void SetLink(SIpv4Address machine, const SLink& toMachine, const SLink& toLibrary);
  // Of machines without a link of their own.
  void SetDefaultLink(const SLink& link);

  // Called with every message, as one who captures there would have it. It changes nothing. Null: nobody looks.
  void SetTap(Tap tap);

  // A port of the library's machine that another program has: a bind to it fails.
  void TakePort(SIpv4Endpoint local, bool isStream);
  void FreePort(SIpv4Endpoint local, bool isStream);
  // What a socket's receive buffer grants at most, of what is asked; 0: all.
  void SetBufferLimit(int bytes);

  size_t OpenSockets() const;  // of the library

  class CImpl;
  CImpl& Impl() { return *impl; }  // for the library's side (socket.cpp)

 private:
  std::unique_ptr<CImpl> impl;
};

}  // namespace zelk::sim

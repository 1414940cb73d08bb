// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/ipv4_address.h"

namespace zelk {

// Makes the socket library ready (Winsock 2.2 on Windows, nothing elsewhere). Its result is not needed.
void StartSockets();

// The system's setting that limits receive or send buffers, as its administrator knows it; empty where there is none.
const char* ReceiveBufferLimit();
const char* SendBufferLimit();

enum class EWait { kReady, kTimeout, kError };
constexpr int32_t kWaitForever = -1;

// A non-throwing IPv4 socket.
// Thread: any thread may send, receive and wait at the same time; Close may come from any thread and releases every
// wait at once with kError. The descriptor is given back only when no thread is inside a call on it, so that a reused
// number can never be reached through a closed socket.
// Failures return false, a negative count or kError. After a connection reset every receive keeps failing (a closing
// peer that sent everything reads 0, for ever).
class CSocket {
 public:
  CSocket();
  ~CSocket();  // Closes.
  CSocket(const CSocket&) = delete;
  CSocket& operator=(const CSocket&) = delete;

  // A new socket, blocking until told otherwise; one that is still open is closed first.
  bool OpenTcp();
  bool OpenUdp();
  void Close();
  bool IsOpen() const;

  bool SetNonBlocking(bool on);
  // What the system grants may be less, and is no failure; the second pair tells it (0 when it cannot be told).
  bool SetReceiveBuffer(int bytes);
  bool SetSendBuffer(int bytes);
  int ReceiveBuffer() const;
  int SendBuffer() const;
  // A stream's small messages go at once, instead of waiting until those before are acknowledged (RFC 896).
  bool SetNoDelay(bool on);
  // On: a stream's small messages, whoever sends them, wait for those that follow, the system's 200 ms at most; off:
  // what waits goes. False where the system has no such wait: then each goes at once.
  bool SetHoldsBack(bool on);
  bool SetBroadcast(bool on);
  // Lets a wildcard and a specific bind of one port stand side by side, as they do on Windows without an option.
  bool SetSharedPort();
  bool Bind(const SIpv4Endpoint& local);
  uint16_t LocalPort() const;  // 0 when it cannot be told

  enum class EConnect { kDone, kPending, kFailed };
  EConnect Connect(const SIpv4Endpoint& remote);

  EWait WaitReadable(int32_t timeoutMs);
  // Also how a pending connect is awaited; a refused connection counts as kError.
  EWait WaitWritable(int32_t timeoutMs);

  // Bytes moved, 0 for an orderly end of the stream (Receive), or -1 (also when a non-blocking call would block).
  // A datagram longer than the capacity is cut to it.
  int Send(const void* data, size_t length);
  int Receive(void* data, size_t capacity);
  int SendTo(const void* data, size_t length, const SIpv4Endpoint& remote);
  int ReceiveFrom(void* data, size_t capacity, SIpv4Endpoint& remote);
  // The same on a datagram socket, but waits for a datagram whatever SetNonBlocking says, in one system call where
  // there is such. -1 once it is closed.
  int ReceiveFromWaiting(void* data, size_t capacity, SIpv4Endpoint& remote);

 private:
  struct SImpl;
  std::unique_ptr<SImpl> impl;
};

}  // namespace zelk

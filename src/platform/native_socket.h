// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "native/socket.h"
#include "platform/socket.h"

namespace zelk {

// What the systems do each in its own way; platform/socket.cpp is the rest. Failures leave their reason in
// LastSocketError.
enum class EInterest { kRead, kWrite };

// Thread: as CSocket's gate lets it; only the two that say so block.
struct SNativeSocket {
  NativeSocket handle = kNoSocket;  // no call on it waits but Wait and ReceiveFromWaiting
  NativeSocket wake = kNoSocket;    // readable, once woken, for ever
  bool isDatagram = false;

  // type is SOCK_STREAM or SOCK_DGRAM; false leaves nothing open.
  bool Open(int type);
  void Close();
  // Lets every wait that has begun or will begin return at once; a receive among them returns 0 or an error.
  void Wake();
  // kError when woken. A connect that failed gives kReady or kError; the pending error tells.
  EWait Wait(EInterest interest, int32_t timeoutMs) const;

  bool SetBuffer(int name, int bytes);
  int Buffer(int name) const;  // the size as it was asked for, or less; 0 when it cannot be told
  bool SetSharedPort();
  bool SetHoldsBack(bool on);
  int SendTo(const void* data, int length, const sockaddr_in& to);
  // A datagram longer than the capacity is cut to it.
  int ReceiveFrom(void* data, int capacity, sockaddr_in& from);
  // The same, but waits for a datagram without a limit: in the call itself where the system has a way to end that.
  int ReceiveFromWaiting(void* data, int capacity, sockaddr_in& from);
};

int LastSocketError();
bool IsInterrupted(int error);
bool WouldBlock(int error);
bool IsConnectPending(int error);
// Errors after which a connection is gone for good. A full buffer, a missing connection or a write after an orderly
// end are not among them.
bool IsConnectionLost(int error);

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "remote/message.h"

namespace remote {

// One thread's way to the other side. Both ends may ask; who has asked answers the other's questions until its own
// answer comes, so a call and the callbacks inside it stay on one thread on each side.
// Not shared between threads. Throws std::runtime_error when the other side is gone.
class CConnection {
 public:
  using Serve = std::function<CMessage(CMessage&)>;

  CConnection(int connected, Serve answer);
  ~CConnection();
  CConnection(const CConnection&) = delete;
  CConnection& operator=(const CConnection&) = delete;

  // Throws when nobody listens there.
  static int ConnectTo(const std::string& address, int port);

  // The first message of a connection says what it is for.
  void Greet(EAsk purpose) { Ask(CMessage(purpose)); }
  std::optional<EAsk> AwaitGreeting();  // nothing when the other side has gone before

  CMessage Ask(const CMessage& request);
  // Answers until the other side closes.
  void ServeUntilClosed();

 private:
  void Send(const CMessage& message);
  bool TrySend(const CMessage& message);
  bool Receive(CMessage& message);
  bool ReceiveBytes(void* data, size_t length);

  int socket;
  Serve serve;
};

}  // namespace remote

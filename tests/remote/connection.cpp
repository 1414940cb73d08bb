// SPDX-License-Identifier: GPL-2.0-only
#include "remote/connection.h"

#include <stdexcept>
#include <utility>

#include "native_sockets.h"

namespace remote {

namespace {

struct SHeader {
  uint32_t length;
  EAsk ask;
  uint8_t isReply;
  uint16_t unused;
};

}  // namespace

CConnection::CConnection(int connected, Serve answer) : socket(connected), serve(std::move(answer)) {
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

CConnection::~CConnection() {
  CloseSocket(socket);
}

int CConnection::ConnectTo(const std::string& address, int port) {
  const auto made = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_addr.s_addr = inet_addr(address.c_str());
  to.sin_port = htons(static_cast<uint16_t>(port));
  if (connect(made, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
    throw std::runtime_error("nobody listens at " + address + " port " + std::to_string(port));
  }
  return static_cast<int>(made);
}

std::optional<EAsk> CConnection::AwaitGreeting() {
  CMessage greeting;
  if (!Receive(greeting) || !TrySend(CMessage(greeting.ask, true))) {
    return std::nullopt;
  }
  return greeting.ask;
}

CMessage CConnection::Ask(const CMessage& request) {
  Send(request);
  CMessage message;
  while (Receive(message)) {
    if (message.isReply) {
      return message;
    }
    Send(serve(message));
  }
  throw std::runtime_error("the other side is gone");
}

void CConnection::ServeUntilClosed() {
  CMessage message;
  while (Receive(message) && TrySend(serve(message))) {
  }
}

void CConnection::Send(const CMessage& message) {
  if (!TrySend(message)) {
    throw std::runtime_error("the other side is gone");
  }
}

bool CConnection::TrySend(const CMessage& message) {
  SHeader header{static_cast<uint32_t>(message.bytes.size()), message.ask, message.isReply, 0};
  std::vector<uint8_t> whole(sizeof header);
  std::memcpy(whole.data(), &header, sizeof header);
  whole.insert(whole.end(), message.bytes.begin(), message.bytes.end());
  for (size_t sent = 0; sent < whole.size();) {
    const auto taken = send(socket, whole.data() + sent, whole.size() - sent, MSG_NOSIGNAL);
    if (taken <= 0) {
      return false;
    }
    sent += static_cast<size_t>(taken);
  }
  return true;
}

bool CConnection::Receive(CMessage& message) {
  SHeader header{};
  if (!ReceiveBytes(&header, sizeof header)) {
    return false;
  }
  message = CMessage(header.ask, header.isReply != 0);
  message.bytes.resize(header.length);
  return ReceiveBytes(message.bytes.data(), header.length);
}

bool CConnection::ReceiveBytes(void* data, size_t length) {
  auto* to = static_cast<uint8_t*>(data);
  while (length > 0) {
    const auto got = recv(socket, to, length, 0);
    if (got <= 0) {
      return false;
    }
    to += got;
    length -= static_cast<size_t>(got);
  }
  return true;
}

}  // namespace remote

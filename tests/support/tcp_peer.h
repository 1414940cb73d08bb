// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

#include "native_sockets.h"

namespace zelk {

// The other end of a TCP connection, on the system's own calls: listens on a port of 127.0.0.1 and serves one caller.
class CTcpPeer {
 public:
  explicit CTcpPeer(int backlog = 4) : listener(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof local;
    ready = bind(listener, reinterpret_cast<sockaddr*>(&local), size) == 0 && listen(listener, backlog) == 0 &&
            getsockname(listener, reinterpret_cast<sockaddr*>(&local), &size) == 0;
    port = ntohs(local.sin_port);
  }
  ~CTcpPeer() {
    CloseOrderly();
    StopListening();
  }
  CTcpPeer(const CTcpPeer&) = delete;
  CTcpPeer& operator=(const CTcpPeer&) = delete;

  bool IsReady() const { return ready; }
  uint16_t Port() const { return port; }
  bool Accept() { return (served = accept(listener, nullptr, nullptr)) >= 0; }
  void Send(const std::string& text) const { (void)!send(served, text.data(), text.size(), MSG_NOSIGNAL); }
  void CloseOrderly() { CloseDescriptor(served); }
  // A close without lingering sends a reset instead of an end.
  void CloseWithReset() {
    const linger none{1, 0};
    setsockopt(served, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    CloseDescriptor(served);
  }
  void StopListening() { CloseDescriptor(listener); }

 private:
  static void CloseDescriptor(int& descriptor) {
    if (descriptor >= 0) {
      CloseSocket(descriptor);
      descriptor = -1;
    }
  }

  int listener;
  int served = -1;
  uint16_t port = 0;
  bool ready = false;
};

}  // namespace zelk

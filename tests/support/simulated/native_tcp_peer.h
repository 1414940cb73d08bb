// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "platform/event.h"
#include "platform/simulated/network.h"
#include "platform/simulated/world.h"

namespace zelk {

// The other end of a TCP connection, outside of the library in a simulated world; used as the one of the system is.
class CTcpPeer {
 public:
  CTcpPeer()
      : listener(sim::CWorld::Current()->Network().Listen({sim::kLoopback, 0},
                                                          [this](const std::shared_ptr<sim::CStream>& stream) {
                                                            stream->StopReading(true);
                                                            waiting = stream;
                                                            called.Set();
                                                          })),
        port(listener->Local().port) {}
  ~CTcpPeer() {
    CloseOrderly();
    StopListening();
  }
  CTcpPeer(const CTcpPeer&) = delete;
  CTcpPeer& operator=(const CTcpPeer&) = delete;

  bool IsReady() const { return listener != nullptr; }
  uint16_t Port() const { return port; }
  bool Accept() {
    called.Wait();
    called.Reset();
    served = waiting;
    return served != nullptr;
  }
  void Send(const std::string& text) const {
    served->Write({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
  }
  void CloseOrderly() {
    if (served != nullptr) {
      served->Close();
      served = nullptr;
    }
  }
  void CloseWithReset() {
    served->Reset();
    served = nullptr;
  }
  void StopListening() { listener.reset(); }

 private:
  CEvent called;
  std::shared_ptr<sim::CStream> waiting;
  std::shared_ptr<sim::CStream> served;
  std::unique_ptr<sim::CListener> listener;
  uint16_t port;
};

}  // namespace zelk

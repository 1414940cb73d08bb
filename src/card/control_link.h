// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/mutex.h"
#include "platform/socket.h"
#include "runtime/stop_flag.h"

namespace zelk {

// The TCP connection to a card. Every generation of the card has a socket of its own, which its control thread shares,
// so that a thread left over from an earlier generation never reaches a later connection.
// Thread: opener for Connect; any for the rest. Connect blocks up to 2 s. A message goes out in one call; one that does
// not fit into the socket's buffer is lost, and nothing is reported.
class CControlLink {
 public:
  // cancel (may be null) ends the wait early. False leaves the link closed.
  bool Connect(const SIpv4Endpoint& card, SIpv4Address localAddress, const CStopFlag* cancel);
  void Send(const uint8_t* message, size_t length);
  void Close();
  bool IsOpen() const;
  // The socket of the current generation, null when there has been none. Waits on it end when the link is closed.
  std::shared_ptr<CSocket> Socket() const;

 private:
  mutable CMutex lock;
  std::shared_ptr<CSocket> socket ZELK_GUARDED_BY(lock);
};

}  // namespace zelk

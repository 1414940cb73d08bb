// SPDX-License-Identifier: GPL-2.0-only
#include "card/control_link.h"

#include "platform/clock.h"

namespace zelk {

namespace {

constexpr int kBufferBytes = 358400;
constexpr uint32_t kConnectWaitMs = 2000;
constexpr int32_t kConnectSliceMs = 50;

// A wait that runs out is no failure: the card may still be starting, and the wait for its information decides.
bool AwaitConnection(CSocket& socket, const CStopFlag* cancel) {
  const uint32_t start = TickMs();
  while (TickMs() - start < kConnectWaitMs) {
    const EWait result = socket.WaitWritable(kConnectSliceMs);
    if (result != EWait::kTimeout) {
      return result == EWait::kReady;
    }
    if (cancel != nullptr && cancel->IsSet()) {
      return false;
    }
  }
  return true;
}

bool ConnectSocket(CSocket& socket, const SIpv4Endpoint& card, SIpv4Address localAddress, const CStopFlag* cancel) {
  if (!socket.OpenTcp() || !socket.SetNonBlocking(true) || !socket.Bind({localAddress, 0})) {
    return false;
  }
  const CSocket::EConnect result = socket.Connect(card);
  if (result == CSocket::EConnect::kFailed) {
    return false;
  }
  return result == CSocket::EConnect::kDone || AwaitConnection(socket, cancel);
}

}  // namespace

bool CControlLink::Connect(const SIpv4Endpoint& card, SIpv4Address localAddress, const CStopFlag* cancel) {
  auto opened = std::make_shared<CSocket>();
  if (!ConnectSocket(*opened, card, localAddress, cancel)) {
    return false;
  }
  opened->SetReceiveBuffer(kBufferBytes);
  opened->SetSendBuffer(kBufferBytes);
  opened->SetNoDelay(true);  // a D-channel frame must not wait for the acknowledgement of the one before
  const CScopedLock<CMutex> held(lock);
  socket = std::move(opened);
  return true;
}

void CControlLink::Send(const uint8_t* message, size_t length) {
  if (const std::shared_ptr<CSocket> current = Socket()) {
    current->Send(message, length);
  }
}

void CControlLink::Close() {
  if (const std::shared_ptr<CSocket> current = Socket()) {
    current->SetNonBlocking(false);
    current->Close();
  }
}

bool CControlLink::IsOpen() const {
  const std::shared_ptr<CSocket> current = Socket();
  return current != nullptr && current->IsOpen();
}

std::shared_ptr<CSocket> CControlLink::Socket() const {
  const CScopedLock<CMutex> held(lock);
  return socket;
}

}  // namespace zelk

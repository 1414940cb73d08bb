// SPDX-License-Identifier: GPL-2.0-only
#include "stream/audio_session.h"

#include <utility>

#include "runtime/log.h"

namespace zelk {
namespace {

constexpr int kSocketBufferBytes = 4194304;  // lets a late receive thread catch up without losing packets

void ReportBuffer(const char* which, int granted, const char* limit) {
  if (granted > 0 && granted < kSocketBufferBytes) {
    LogFormat(ELogClass::kStatus, kGeneralLine, "Audio socket %s buffer of %d bytes, %d wanted%s%s", which, granted,
              kSocketBufferBytes, *limit == '\0' ? "" : ", see ", limit);
  }
}

}  // namespace

CAudioSession::CAudioSession(std::shared_ptr<SAudioControls> cardControls, IAudioNotice& cardNotice)
    : controls(std::move(cardControls)),
      sender(*controls, *this, stop),
      receiver(*controls, cardNotice, echo, sender, stop),
      pacer(*controls, rings) {}

bool CAudioSession::Create(SIpv4Address localAddress, SIpv4Address card, uint32_t trunkCount, uint32_t blocks,
                           const SDtmfSettings& dtmf) {
  if (trunkCount == 0 || trunkCount > kMaxTrunks)
    return false;
  cardAddress = card;
  rings.ResetDetectors(dtmf);
  return OpenSocket(localAddress) && rings.Create(trunkCount, blocks) && sender.Create(rings) && receiver.Create(rings);
}

bool CAudioSession::OpenSocket(SIpv4Address localAddress) {
  if (!socket.OpenUdp() || !socket.Bind({localAddress, 0}))
    return false;
  localPort = socket.LocalPort();
  if (localPort == 0)
    return false;
  // The system may grant less. Audio flows with any size, but with less a late receive thread loses packets sooner.
  socket.SetReceiveBuffer(kSocketBufferBytes);
  socket.SetSendBuffer(kSocketBufferBytes);
  socket.SetNonBlocking(true);
  ReportBuffers();
  return true;
}

// Once a card: a later generation would find the same.
void CAudioSession::ReportBuffers() const {
  if (controls->buffersReported.exchange(true))
    return;
  ReportBuffer("receive", socket.ReceiveBuffer(), ReceiveBufferLimit());
  ReportBuffer("send", socket.SendBuffer(), SendBufferLimit());
}

int CAudioSession::SendPacket(const uint8_t* packet, size_t length) {
  return socket.SendTo(packet, length, {cardAddress, kCardPort});
}

}  // namespace zelk

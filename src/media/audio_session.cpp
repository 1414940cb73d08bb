#include "media/audio_session.h"

#include <utility>

namespace zelk {
namespace {

constexpr int kSocketBufferBytes = 4194304;  // lets a late receive thread catch up without losing packets

}  // namespace

CAudioSession::CAudioSession(std::shared_ptr<SAudioControls> cardControls, IAudioNotice& cardNotice)
    : controls(std::move(cardControls)),
      sender(*controls, *this),
      receiver(*controls, cardNotice, echo, sender),
      pacer(*controls, rings) {}

bool CAudioSession::Create(uint32_t localAddress, uint32_t card, uint32_t trunkCount, uint32_t blocks,
                           const SDtmfSettings& dtmf) {
  if (trunkCount == 0 || trunkCount > kMaxTrunks)
    return false;
  cardAddress = card;
  rings.ResetDetectors(dtmf);
  return OpenSocket(localAddress) && rings.Create(trunkCount, blocks) && sender.Create(rings) && receiver.Create(rings);
}

bool CAudioSession::OpenSocket(uint32_t localAddress) {
  if (!socket.OpenUdp() || !socket.Bind({localAddress, 0}))
    return false;
  localPort = socket.LocalPort();
  if (localPort == 0)
    return false;
  // The system may grant less; the road works with any size.
  socket.SetReceiveBuffer(kSocketBufferBytes);
  socket.SetSendBuffer(kSocketBufferBytes);
  socket.SetNonBlocking(true);
  return true;
}

int CAudioSession::SendPacket(const uint8_t* packet, size_t length) {
  return socket.SendTo(packet, length, {cardAddress, kAudioPort});
}

}  // namespace zelk

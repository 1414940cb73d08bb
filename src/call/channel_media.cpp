#include "call/channel_media.h"

#include <cstring>

#include "call/application_events.h"

namespace zelk {

namespace {

void HandlePlayMark(CDevice& device, uint32_t* isLastBlock) {
  if (isLastBlock != nullptr) {
    *isLastBlock = device.wave.QueryPlayMark() ? 1 : 0;
  } else if (device.wave.PlayMarkSent()) {
    ApplicationEvents().Post(device.channelNumber, EVENT_PLAY_DONE, 0);
  }
}

// The bytes are kept as the application finds them.
void FillDevice(CDevice& device, SBlockFill& fill) {
  fill.flushCount = device.wave.FillBlock(fill.data, kBlockBytes);
  std::memcpy(fill.taken.data(), fill.data, kBlockBytes);
  ApplicationEvents().Play(device.channelNumber, fill.data, kBlockBytes);
}

void HandleDevice(CDevice& device, EMediaCode code, void* data, uint32_t length) {
  const uint32_t channel = device.channelNumber;
  auto* block = static_cast<uint8_t*>(data);
  switch (code) {
    case MEDIA_PLAY:
      if (block != nullptr) {
        SBlockFill fill{block};
        FillDevice(device, fill);
      }
      break;
    case MEDIA_RECORD:
      if (block != nullptr) {
        device.wave.RecordTap(block, length);
        ApplicationEvents().Record(channel, block, length);
      }
      break;
    case MEDIA_DTMF:
      ApplicationEvents().Post(channel, EVENT_DTMF, static_cast<int32_t>(length));
      break;
    case MEDIA_PLAY_MARK:
      HandlePlayMark(device, static_cast<uint32_t*>(data));
      break;
  }
}

}  // namespace

CChannelMedia::CChannelMedia(const CCardChannels& cardChannels) : channels(cardChannels) {}

void CChannelMedia::Handle(uint16_t trunk, uint16_t timeslot, EMediaCode code, void* data, uint32_t length) const {
  size_t slot = 0;
  if (!FindSlot(trunk, timeslot, slot)) {
    // The digit of a timeslot without a channel comes with no data and its character as the length.
    if (data != nullptr) {
      std::memset(data, 0, length);
    }
    return;
  }
  if (CDevice* device = channels.At(slot)) {
    HandleDevice(*device, code, data, length);
  }
}

void CChannelMedia::Fill(uint16_t trunk, uint16_t timeslot, SBlockFill& fill) const {
  size_t slot = 0;
  if (!FindSlot(trunk, timeslot, slot)) {
    std::memset(fill.data, 0, kBlockBytes);
  } else if (CDevice* device = channels.At(slot)) {
    FillDevice(*device, fill);
  }
}

bool CChannelMedia::FindSlot(uint16_t trunk, uint16_t timeslot, size_t& slot) const {
  const bool hasChannel = CCardChannels::IsBchannel(timeslot) && timeslot < kTimeslotsPerTrunk;
  slot = hasChannel ? channels.SlotOf(trunk, timeslot) : kMaxChannels;
  return slot < kMaxChannels;
}

}  // namespace zelk

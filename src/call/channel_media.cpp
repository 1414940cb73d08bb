// SPDX-License-Identifier: GPL-2.0-only
#include "call/channel_media.h"

#include <algorithm>

#include "call/application_events.h"
#include "formats/g711.h"
#include "runtime/status_page.h"

namespace zelk {

CChannelMedia::CChannelMedia(const CCardChannels& cardChannels) : channels(cardChannels) {}

void CChannelMedia::Foresee(uint32_t trunk, uint32_t timeslot) const {
  size_t slot = 0;
  if (FindSlot(trunk, timeslot, slot)) {
    channels.Foresee(slot);
  }
}

// The bytes are kept as the application finds them. Of a channel without a play nothing is touched that the pacer does
// not know already, its flush count among it.
void CChannelMedia::FillBlock(uint32_t trunk, uint32_t timeslot, SBlockFill& fill) const {
  size_t slot = 0;
  if (!FindSlot(trunk, timeslot, slot)) {
    fill.FillWith(0);
  } else if (channels.At(slot) != nullptr) {
    CWave& wave = channels.Wave(slot);
    if (!channels.IsBusy(slot)) {
      fill.FillWith(kALawSilence);
    } else if (wave.IsIdle()) {
      fill.FillWith(wave.Silence());
    } else {
      fill.flushCount = wave.FillBlock(fill.data, kBlockBytes);
    }
    if (SStatusChannel* const shown = StatusPage().Channel(channels.CardIndex(), trunk, timeslot)) {
      StatusSet(shown->queuedBytes, wave.QueuedBytes());
    }
    if (const ZelkPlayCallback play = ApplicationEvents().PlayCallback()) {
      fill.KeepQueued();
      const CCallbackWatch watch(kStatusPlay, static_cast<uint32_t>(slot));
      play(static_cast<uint32_t>(slot), fill.data, kBlockBytes);
    }
  }
}

bool CChannelMedia::EndsPlay(uint32_t trunk, uint32_t timeslot) const {
  size_t slot = 0;
  return FindSlot(trunk, timeslot, slot) && channels.At(slot) != nullptr && channels.IsBusy(slot) &&
         channels.Wave(slot).QueryPlayMark();
}

void CChannelMedia::OnMarkSent(uint32_t trunk, uint32_t timeslot) const {
  CDevice* device = Find(trunk, timeslot);
  if (device != nullptr && device->Wave().PlayMarkSent()) {
    ApplicationEvents().Post(device->ChannelNumber(), EVENT_PLAY_DONE, 0);
  }
}

bool CChannelMedia::OnBlockReceived(uint32_t trunk, uint32_t timeslot, AudioBlock block) const {
  size_t slot = 0;
  if (!FindSlot(trunk, timeslot, slot)) {
    std::fill(block.begin(), block.end(), uint8_t{0});
    return true;
  }
  if (channels.At(slot) == nullptr) {
    return false;
  }
  const bool isTapped = channels.IsBusy(slot);
  if (isTapped) {
    channels.Wave(slot).RecordTap(block.data(), kBlockBytes);
  }
  return ApplicationEvents().Record(static_cast<uint32_t>(slot), block.data(), kBlockBytes) || isTapped;
}

void CChannelMedia::OnDigit(uint32_t trunk, uint32_t timeslot, char digit) const {
  if (const CDevice* device = Find(trunk, timeslot)) {
    ApplicationEvents().Post(device->ChannelNumber(), EVENT_DTMF, digit);
  }
}

bool CChannelMedia::FindSlot(uint32_t trunk, uint32_t timeslot, size_t& slot) const {
  const bool hasChannel = IsBchannel(timeslot) && timeslot < kTimeslotsPerTrunk;
  slot = hasChannel ? channels.SlotOf(trunk, timeslot) : kMaxChannels;
  return slot < kMaxChannels;
}

CDevice* CChannelMedia::Find(uint32_t trunk, uint32_t timeslot) const {
  size_t slot = 0;
  return FindSlot(trunk, timeslot, slot) ? channels.At(slot) : nullptr;
}

}  // namespace zelk

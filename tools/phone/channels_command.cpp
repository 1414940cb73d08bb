// SPDX-License-Identifier: GPL-2.0-only
#include <cstdio>
#include <map>

#include "phone/commands.h"

namespace phone {

namespace {

void PrintTable(int32_t count) {
  std::printf("%7s  %10s  %5s  %8s  %s\n", "channel", "card", "trunk", "timeslot", "state");
  for (int32_t channel = 0; channel < count; ++channel) {
    std::printf("%7d  %10u  %5u  %8u  %s\n", channel, ZELK_GetChannelInfo(channel, ZELK_INFO_SERIALNO),
                ZELK_GetChannelInfo(channel, ZELK_INFO_TRUNK) + 1, ZELK_GetChannelInfo(channel, ZELK_INFO_TIMESLOT),
                InfoText(channel, ZELK_INFO_CHANNELSTATE).c_str());
  }
}

void PrintCards(int32_t count) {
  std::map<uint32_t, int32_t> channelsOfCard;
  for (int32_t channel = 0; channel < count; ++channel) {
    ++channelsOfCard[ZELK_GetChannelInfo(channel, ZELK_INFO_SERIALNO)];
  }
  for (const auto& [serial, channels] : channelsOfCard) {
    std::printf("card %u: %d trunks, %d channels\n", serial, channels / ZELK_CHANNELS_PER_TRUNK, channels);
  }
}

}  // namespace

int RunChannels(int trunkSeconds) {
  CRecorder recorder;
  CSession session(recorder);
  const int32_t usable = session.WaitForTrunks(std::chrono::seconds(trunkSeconds));
  PrintTable(session.ChannelCount());
  PrintCards(session.ChannelCount());
  std::printf("%d of %d channels usable\n", usable, session.ChannelCount());
  return usable > 0 ? 0 : 1;
}

}  // namespace phone

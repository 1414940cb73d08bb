// SPDX-License-Identifier: GPL-2.0-only
#include <cstdio>
#include <map>

#include "phone/commands.h"
#include "phone/snapshot.h"

namespace phone {

namespace {

void ShowTable(CReport& report, int32_t count) {
  char line[100];
  std::snprintf(line, sizeof line, "%7s  %10s  %5s  %8s  %s", "channel", "card", "trunk", "timeslot", "state");
  report.Text(line);
  for (int32_t channel = 0; channel < count; ++channel) {
    std::snprintf(line, sizeof line, "%7d  %10u  %5u  %8u  %s", channel, InfoNumber(channel, ZELK_INFO_SERIALNO),
                  InfoNumber(channel, ZELK_INFO_TRUNK) + 1, InfoNumber(channel, ZELK_INFO_TIMESLOT),
                  InfoText(channel, ZELK_INFO_CHANNELSTATE).c_str());
    report.Text(line);
  }
}

void ShowCards(CReport& report, int32_t count) {
  std::map<uint32_t, int32_t> channelsOfCard;
  for (int32_t channel = 0; channel < count; ++channel) {
    ++channelsOfCard[InfoNumber(channel, ZELK_INFO_SERIALNO)];
  }
  for (const auto& [serial, channels] : channelsOfCard) {
    report.Text("card " + std::to_string(serial) + ": " + std::to_string(channels / ZELK_CHANNELS_PER_TRUNK) +
                " trunks, " + std::to_string(channels) + " channels");
  }
}

}  // namespace

void RunChannels(CReport& report, int trunkSeconds) {
  CRecorder recorder;
  CSession session(recorder);
  const int32_t usable = session.WaitForTrunks(std::chrono::seconds(trunkSeconds));
  report.Say("snapshot", "", SnapshotJson());
  if (!report.AsJson()) {
    ShowTable(report, session.ChannelCount());
    ShowCards(report, session.ChannelCount());
    report.Text(std::to_string(usable) + " of " + std::to_string(session.ChannelCount()) + " channels usable");
  }
  if (usable == 0) {
    throw CPhoneError(EExit::kNoTrunk, "no trunk came up in " + std::to_string(trunkSeconds) + " s");
  }
}

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#include "phone/snapshot.h"

#include "phone/session.h"

namespace phone {

namespace {

// Channels of one card stand together, and so do those of one trunk: what was listed last is this channel's, or a new
// one begins with it.
Json& EntryFor(const Json& channel, Json& list, bool isTrunk) {
  const bool isNew =
      list.empty() || list.back()["card"] != channel["card"] || (isTrunk && list.back()["trunk"] != channel["trunk"]);
  if (isNew) {
    Json entry = {{"card", channel["card"]}};
    if (isTrunk) {
      entry["trunk"] = channel["trunk"];
    }
    entry["firstChannel"] = channel["channel"];
    entry["channels"] = 0;
    entry["usable"] = 0;
    list.push_back(entry);
  }
  return list.back();
}

void CountIn(Json& entry, bool isUsable) {
  entry["channels"] = entry["channels"].get<int>() + 1;
  entry["usable"] = entry["usable"].get<int>() + (isUsable ? 1 : 0);
}

}  // namespace

Json ChannelJson(int32_t channel) {
  return {{"channel", channel},
          {"card", InfoNumber(channel, ZELK_INFO_SERIALNO)},
          {"trunk", InfoNumber(channel, ZELK_INFO_TRUNK) + 1},
          {"timeslot", InfoNumber(channel, ZELK_INFO_TIMESLOT)},
          {"state", InfoText(channel, ZELK_INFO_CHANNELSTATE)}};
}

Json SnapshotJson() {
  Json cards = Json::array();
  Json trunks = Json::array();
  Json channels = Json::array();
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    const bool isUsable = InfoNumber(channel, ZELK_INFO_CHANNELSTATE) >= ZELK_CHANNEL_READY;
    channels.push_back(ChannelJson(channel));
    Json& card = EntryFor(channels.back(), cards, false);
    CountIn(card, isUsable);
    card["firmware"] = TextOfLine(InfoText(channel, ZELK_INFO_FIRMWAREVER));
    card["firmwareDate"] = TextOfLine(InfoText(channel, ZELK_INFO_FIRMWAREDATE));
    CountIn(EntryFor(channels.back(), trunks, true), isUsable);
  }
  return {{"cards", cards}, {"trunks", trunks}, {"channels", channels}};
}

}  // namespace phone

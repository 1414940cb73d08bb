// SPDX-License-Identifier: GPL-2.0-only
#include "node/incoming.h"

namespace node {

using phone::Json;

void CIncoming::Hear(const char* type, const Json& fields, phone::UtcTime time) {
  const std::string said = type;
  if (said == "incoming") {
    const auto channel = fields["channel"].get<int32_t>();
    const uint64_t call = ++calls[static_cast<size_t>(channel)];
    sounds[static_cast<size_t>(channel)].clear();
    Json question = fields;
    question["node"] = options.node;
    asks.Ask(
        names.Incoming(), phone::JsonLine("incoming", time, question),
        [this, channel, call](const SReply& reply) {
          if (calls[static_cast<size_t>(channel)] == call) {  // or another call has come since
            Decide(channel, reply);
          }
        },
        {}, options.within);
  } else if (said == "connected") {
    const auto channel = fields["channel"].get<int32_t>();
    std::string& sound = sounds[static_cast<size_t>(channel)];
    if (!sound.empty()) {
      // Not before what is said now has been taken.
      asks.After(std::chrono::milliseconds(0), [this, channel, sound] {
        carry({{"id", "incoming"}, {"do", "play"}, {"channel", channel}, {"file", sound}});
      });
      sound.clear();
    }
  }
}

void CIncoming::Decide(int32_t channel, const SReply& reply) {
  const Json wish = reply.isThere ? Json::parse(reply.data, nullptr, false) : Json();
  if (wish.is_object() && Follow(channel, wish)) {
    ++answered;
    return;
  }
  ++defaulted;
  if (options.byDefault == "reject") {
    Do(channel, "reject");
  } else {
    Do(channel, "answer");
    sounds[static_cast<size_t>(channel)] = options.byDefault == "answer" ? "" : options.byDefault;
  }
}

// False for an answer that is none.
bool CIncoming::Follow(int32_t channel, const Json& wish) {
  const Json what = wish.value("do", Json());
  if (what == "answer") {
    const Json sound = wish.value("play", Json());
    sounds[static_cast<size_t>(channel)] = sound.is_string() ? sound.get<std::string>() : "";
    Do(channel, "answer");
    return true;
  }
  if (what == "reject") {
    Do(channel, "reject");
    return true;
  }
  return what == "take";
}

void CIncoming::Do(int32_t channel, const char* what) {
  carry({{"id", "incoming"}, {"do", what}, {"channel", channel}});
}

}  // namespace node

// SPDX-License-Identifier: GPL-2.0-only
#include "world/application.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "platform/clock.h"
#include "platform/thread.h"
#include "runtime/log.h"
#include "zelk/ZelkApi.h"

namespace world {
namespace {

constexpr uint32_t kLookMs = 2;

CApplication* current = nullptr;

const char* NameOf(uint32_t code) {
  switch (code) {
    case ZELK_EVENT_DTMF:
      return "DTMF";
    case ZELK_EVENT_PLAY_DONE:
      return "PLAY_DONE";
    case ZELK_EVENT_INCOMING_CALL:
      return "INCOMING_CALL";
    case ZELK_EVENT_CONNECTED:
      return "CONNECTED";
    case ZELK_EVENT_DISCONNECTED:
      return "DISCONNECTED";
    case ZELK_EVENT_ALERTING:
      return "ALERTING";
    case ZELK_EVENT_PROCEEDING:
      return "PROCEEDING";
    case ZELK_EVENT_PROGRESS:
      return "PROGRESS";
    case ZELK_EVENT_CHANNEL_STATE:
      return "CHANNEL_STATE";
    default:
      return "?";
  }
}

}  // namespace

CApplication::CApplication(zelk::sim::CWorld& ownWorld) : world(ownWorld) {
  current = this;
  ZELK_SetEventCallback(&OnEvent);
  ZELK_SetPlayCallback(&OnPlay);
  ZELK_SetRecordCallback(&OnRecord);
}

CApplication::~CApplication() {
  ZELK_SetEventCallback(nullptr);
  ZELK_SetPlayCallback(nullptr);
  ZELK_SetRecordCallback(nullptr);
  current = nullptr;
}

void CApplication::SetDown(bool on) {
  isDown = on;
  if (on) {
    leftBehind.insert(inside.begin(), inside.end());
  }
}

CApplication::CInside::CInside(const char* kind) : isCounted(current->onOddCallback != nullptr) {
  if (!isCounted) {
    return;
  }
  thread = zelk::OwnThreadNumber();
  // What an export does inside of a callback is part of that.
  const bool isOutermost = std::find(current->inside.begin(), current->inside.end(), thread) == current->inside.end();
  if (isOutermost && (current->isDown || current->leftBehind.count(thread) != 0)) {
    current->onOddCallback(std::string(kind) + (current->isDown ? " while the library is down" : " of a life before"));
  }
  current->inside.push_back(thread);
}

CApplication::CInside::~CInside() {
  if (isCounted) {
    current->inside.erase(std::find(current->inside.begin(), current->inside.end(), thread));
  }
}

void CApplication::OnEvent(int32_t channel, uint32_t code, int32_t param) {
  const CInside callback("an event");
  CApplication& self = *current;
  const SEvent event{self.world.NowUs(), channel, code, param};
  self.events.push_back(event);
  ++self.counts[{channel, code}];
  // What comes with PROCEEDING has no meaning, and is not the same in another process.
  const std::array<int64_t, 3> noted{channel, code, code == ZELK_EVENT_PROCEEDING ? 0 : param};
  self.world.Note(noted.data(), sizeof noted);
  if (self.onEvent) {
    self.onEvent(event);
  }
}

void CApplication::OnPlay(uint32_t channel, uint8_t* data, uint32_t length) {
  const CInside callback("a block to play");
  if (current->onPlay) {
    current->onPlay(channel, data, length);
  }
}

void CApplication::OnRecord(uint32_t channel, const uint8_t* data, uint32_t length) {
  const CInside callback("a received block");
  const auto found = current->recordings.find(static_cast<int32_t>(channel));
  if (found != current->recordings.end()) {
    found->second.insert(found->second.end(), data, data + length);
  }
}

std::vector<uint32_t> CApplication::CallEvents(int32_t channel) const {
  std::vector<uint32_t> codes;
  for (const SEvent& event : events) {
    if (event.channel == channel && event.code != ZELK_EVENT_CHANNEL_STATE) {
      codes.push_back(event.code);
    }
  }
  return codes;
}

size_t CApplication::Count(int32_t channel, uint32_t code) const {
  const auto found = counts.find({channel, code});
  return found == counts.end() ? 0 : found->second;
}

int32_t CApplication::LastParam(int32_t channel, uint32_t code) const {
  const auto found = std::find_if(events.rbegin(), events.rend(),
                                  [&](const SEvent& event) { return event.channel == channel && event.code == code; });
  return found == events.rend() ? -9999 : found->param;
}

bool CApplication::Await(const std::function<bool()>& condition, int64_t mostMs) const {
  const int64_t endUs = world.NowUs() + mostMs * zelk::sim::kUsPerMs;
  while (!condition()) {
    if (world.NowUs() >= endUs) {
      return false;
    }
    zelk::SleepMs(kLookMs);
  }
  return true;
}

bool CApplication::AwaitEvent(int32_t channel, uint32_t code, int64_t mostMs, size_t count) const {
  return Await([&] { return Count(channel, code) >= count; }, mostMs);
}

bool CApplication::AwaitAllReady(int64_t mostMs) const {
  return Await(
      [] {
        const int32_t count = ZELK_GetChannelCount();
        int32_t ready = 0;
        for (int32_t channel = 0; channel < count; ++channel) {
          ready += ZELK_GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) == ZELK_CHANNEL_READY ? 1 : 0;
        }
        return count > 0 && ready == count;
      },
      mostMs);
}

void UnloadLibrary() {
  zelk::Log().Finish();
}

std::string ToText(const SEvent& event) {
  std::array<char, 100> text{};
  std::snprintf(text.data(), text.size(), "%12.6f channel %4d %s %d",
                static_cast<double>(event.timeUs) / zelk::sim::kUsPerSecond, event.channel, NameOf(event.code),
                event.param);
  return text.data();
}

}  // namespace world

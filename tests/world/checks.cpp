// SPDX-License-Identifier: GPL-2.0-only
#include "world/checks.h"

#include <array>
#include <cstdio>

#include "zelk/ZelkApi.h"

namespace world {

using zelk::sim::kUsPerMs;
using zelk::sim::kUsPerSecond;

// Callbacks for a trunk come one after the other, one a channel at most while an export waits for the trunk's lock.
int64_t SBounds::CallMs() const {
  return 100 + ZELK_CHANNELS_PER_TRUNK * callbackMs;
}

// 150 ms an adapter; a card may be connected to for 2 s and asked three times for 1 s.
int64_t SBounds::InitMs() const {
  return 1000 + cards * 6000;
}

// 3 s for each thread (three a card, and the listener), and 3 s for the trunks of each card.
int64_t SBounds::ShutdownMs(bool isBehindCallback) const {
  return callbackMs == 0 && !isBehindCallback ? 1000 + cards * 1000 : 4000 + cards * 12'000;
}

void CChecks::Fail(const std::string& what) {
  std::array<char, 32> time{};
  std::snprintf(time.data(), time.size(), "%12.6f ", static_cast<double>(world.NowUs()) / kUsPerSecond);
  failures.push_back(time.data() + what);
  world.Note(what.data(), what.size());
}

void CChecks::Require(bool holds, const std::string& what) {
  if (!holds) {
    Fail(what);
  }
}

void CChecks::SetChannels(int32_t count, bool isNetworkSide, bool isForgetful) {
  fresh = CCallGrammar();
  fresh.SetNetworkSide(isNetworkSide);
  if (isForgetful) {
    fresh.SetForgetful();
  }
  grammars.assign(static_cast<size_t>(count), fresh);
}

void CChecks::ForgetCalls() {
  grammars.assign(grammars.size(), fresh);
}

void CChecks::OnEvent(const SEvent& event) {
  if (event.channel < 0 || static_cast<size_t>(event.channel) >= grammars.size()) {
    Fail("an event of a channel that there is not: " + ToText(event));
    return;
  }
  const std::string wrong = Grammar(event.channel).Event(event.code, event.param);
  if (!wrong.empty()) {
    Fail(ToText(event) + " " + wrong);
  }
}

void CChecks::CheckTime(const char* name, int32_t channel, int64_t mostMs, int64_t tookUs) {
  if (tookUs > mostMs * kUsPerMs) {
    Fail(std::string(name) + " of channel " + std::to_string(channel) + " took " + std::to_string(tookUs) + " us");
  }
}

template <class Body>
bool CChecks::Act(const char* name, EAction action, int32_t channel, Body body) {
  const int ticket = Grammar(channel).Begin(action);
  const bool result = Timed(name, channel, bounds.CallMs(), body);
  const std::string wrong = Grammar(channel).Return(ticket, result);
  if (!wrong.empty()) {
    Fail(std::string(name) + " of channel " + std::to_string(channel) + " " + wrong);
  }
  return result;
}

bool CChecks::Init() {
  const zelk::sim::CBound bound(world, "ZELK_Init", 3 * bounds.InitMs() * kUsPerMs);
  return Timed("Init", -1, bounds.InitMs(), [] { return ZELK_Init(); });
}

// A wait without an end comes to one here.
void CChecks::Shutdown(bool isBehindCallback) {
  const int64_t mostMs = bounds.ShutdownMs(isBehindCallback);
  const zelk::sim::CBound bound(world, "ZELK_Shutdown", 3 * mostMs * kUsPerMs);
  Timed("Shutdown", -1, mostMs, [] {
    ZELK_Shutdown();
    return true;
  });
}

bool CChecks::Dial(int32_t channel, const std::string& number) {
  return Act("Dial", EAction::kDial, channel, [&] { return ZELK_Dial(channel, number.c_str(), "8001000"); });
}

bool CChecks::Answer(int32_t channel) {
  return Act("Answer", EAction::kAnswer, channel, [&] { return ZELK_Answer(channel); });
}

bool CChecks::Reject(int32_t channel) {
  return Act("Reject", EAction::kReject, channel, [&] { return ZELK_Reject(channel); });
}

bool CChecks::Hangup(int32_t channel) {
  return Act("Hangup", EAction::kHangup, channel, [&] { return ZELK_Hangup(channel); });
}

bool CChecks::Play(int32_t channel, const cardsim::Bytes& sound) {
  return Timed("PlayBuffer", channel, bounds.CallMs(),
               [&] { return ZELK_PlayBuffer(channel, sound.data(), static_cast<uint32_t>(sound.size())); });
}

void CChecks::StopPlay(int32_t channel) {
  Timed("StopPlay", channel, bounds.CallMs(), [&] {
    ZELK_StopPlay(channel);
    return true;
  });
}

void CChecks::ReadInfo(int32_t channel) {
  Timed("GetChannelInfoString", channel, bounds.CallMs(), [&] {
    for (const uint32_t key : {ZELK_INFO_CLI, ZELK_INFO_DLI, ZELK_INFO_CHANNELSTATE, ZELK_INFO_CALLTYPE}) {
      Require(ZELK_GetChannelInfoString(channel, key) != nullptr, "a channel without a text");
    }
    return ZELK_PlayTimeLeft(channel);
  });
}

bool CChecks::Open(int32_t channel) {
  return Timed("OpenChannel", channel, bounds.CallMs(), [&] { return ZELK_OpenChannel(channel); });
}

uint32_t CChecks::State(int32_t channel) {
  return Timed("GetChannelInfo", channel, bounds.CallMs(),
               [&] { return ZELK_GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE); });
}

}  // namespace world

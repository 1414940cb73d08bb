// SPDX-License-Identifier: GPL-2.0-only
#include "world/call_watch.h"

#include <algorithm>

#include "world/world_reactor.h"
#include "zelk/ZelkApi.h"

namespace world {
namespace {

using cardsim::Bytes;
using cardsim::ESimCallState;
using zelk::sim::kUsPerMs;

constexpr int64_t kToApplicationMs = 300;  // sound that may still be under way when a call ends
constexpr int64_t kToFarEndMs = 800;       // the transmit ring's blocks too
constexpr int64_t kInRingMs = 200;         // sound stands in the transmit ring for at least so long
constexpr size_t kMarkBytes = 160;
constexpr int64_t kDigitMs = 160;
constexpr int64_t kOnTheWayUs = 1000;  // a SETUP is, for less

std::string Name(int32_t channel) {
  return "channel " + std::to_string(channel) + ": ";
}

}  // namespace

CCallWatch::CCallWatch(zelk::sim::CWorld& ownWorld, const SWorldPlan& worldPlan, CChecks& ownChecks,
                       CApplication& application, CFarEnds& ends, const CFaultDriver& faultDriver)
    : world(ownWorld),
      plan(worldPlan),
      checks(ownChecks),
      app(application),
      farEnds(ends),
      faults(faultDriver),
      calls(static_cast<size_t>(worldPlan.Trunks()) * ZELK_CHANNELS_PER_TRUNK),
      clearedUs(calls.size(), -1),
      answeredUs(calls.size(), -1) {}

void CCallWatch::ForgetCalls() {
  for (size_t channel = 0; channel < calls.size(); ++channel) {
    calls[channel] = {};
    app.StopRecording(static_cast<int32_t>(channel));
  }
}

void CCallWatch::OnBegin(int32_t channel) {
  SCall& call = calls.at(static_cast<size_t>(channel));
  call = {};
  call.beganUs = world.NowUs();
  app.Record(channel);
}

void CCallWatch::OnAnswered(int32_t channel) {
  answeredUs.at(static_cast<size_t>(channel)) = world.NowUs();
}

void CCallWatch::OnClearing(int32_t channel) {
  SCall& call = calls.at(static_cast<size_t>(channel));
  call.clearingUs = call.clearingUs < 0 ? world.NowUs() : call.clearingUs;
  clearedUs.at(static_cast<size_t>(channel)) = world.NowUs();
}

int64_t CCallWatch::StepUs(const SFarCall& far, ESimCallState state) {
  const std::vector<cardsim::SCallStep> steps = far.call->Steps();
  const auto found =
      std::find_if(steps.begin(), steps.end(), [&](const cardsim::SCallStep& step) { return step.state == state; });
  return found == steps.end() ? -1 : ToWorldUs(found->time);
}

bool CCallWatch::IsTouched(int32_t channel, const SFarCall& far, bool alsoSound) const {
  if (plan.HasSlowCallbacks() || (alsoSound && plan.MayTearSound())) {
    return true;  // layer 2 does not wait for them, nor does the line
  }
  const SPlace place = PlaceOf(plan, channel);
  return alsoSound ? faults.TouchesSound(place.card, place.trunk, far.beganUs, world.NowUs())
                   : faults.TouchesSignalling(place.card, place.trunk, far.beganUs, world.NowUs());
}

bool CCallWatch::OnConnected(int32_t channel) {
  SCall& call = calls.at(static_cast<size_t>(channel));
  if (call.connectedUs >= 0) {
    return false;
  }
  call.connectedUs = world.NowUs();
  CheckParties(channel);
  return true;
}

// It is the call of its far end, and of no other.
void CCallWatch::CheckParties(int32_t channel) {
  const SPlace place = PlaceOf(plan, channel);
  const SFarCall* far = farEnds.CallOf(channel);
  if (plan.isNetworkSide || plan.HasSlowCallbacks() ||
      faults.TouchesSignalling(place.card, place.trunk, far == nullptr ? world.NowUs() : far->beganUs, world.NowUs())) {
    return;
  }
  if (far == nullptr) {
    checks.Fail(Name(channel) + "connected with nobody");
    return;
  }
  const bool isOffer = far->call->direction == cardsim::ECallDirection::kToLibrary;
  const char* text = ZELK_GetChannelInfoString(channel, isOffer ? ZELK_INFO_CLI : ZELK_INFO_DLI);
  const std::string wanted = isOffer ? far->call->Calling() : far->call->Called();
  checks.Require(text != nullptr && wanted == text,
                 Name(channel) + "connected with " + (text == nullptr ? "?" : text) + " instead of " + wanted);
}

void CCallWatch::OnPlay(int32_t channel, const Bytes& sound) {
  SCall& call = calls.at(static_cast<size_t>(channel));
  // What waits behind another play begins at a time that nobody tells.
  call.isBehind = call.isBehind || (call.playedUs >= 0 && !call.isPlayed && !call.isStopped);
  call.playedUs = world.NowUs();
  call.sound = sound;
  call.isStopped = call.isPlayed = false;
}

void CCallWatch::OnStopPlay(int32_t channel) {
  SCall& call = calls.at(static_cast<size_t>(channel));
  call.isStopped = true;
  call.isBehind = false;
}

void CCallWatch::OnPlayDone(int32_t channel) {
  calls.at(static_cast<size_t>(channel)).isPlayed = true;
}

void CCallWatch::OnDigit(int32_t channel, int32_t digit) {
  calls.at(static_cast<size_t>(channel)).digits += static_cast<char>(digit);
}

void CCallWatch::OnDisconnected(const SEvent& event) {
  const int32_t channel = event.channel;
  if (calls.at(static_cast<size_t>(channel)).beganUs > event.timeUs) {
    return;  // while the callback took its time, another thread has dialled
  }
  const SFarCall* far = farEnds.CallOf(channel);
  if (far != nullptr) {
    CheckClearing(channel, *far, event.param);
    CheckSound(channel, *far);
  }
  app.StopRecording(channel);
}

// A call that its far end still has, and that the application has not cleared, has not ended.
void CCallWatch::CheckClearing(int32_t channel, const SFarCall& far, int32_t cause) {
  const SCall& call = calls.at(static_cast<size_t>(channel));
  if (IsTouched(channel, far, false)) {
    return;
  }
  checks.Require(call.clearingUs >= 0 || far.call->Reached(ESimCallState::kDisconnecting) ||
                     far.call->Reached(ESimCallState::kEnded),
                 Name(channel) + "disconnected while its far end has the call");
  if (call.connectedUs >= 0 && call.clearingUs < 0 && far.call->ClearedBy() == cardsim::EClearedBy::kNetwork) {
    checks.Require(cause == far.call->Cause(), Name(channel) + "disconnected with cause " + std::to_string(cause) +
                                                   " instead of " + std::to_string(far.call->Cause()));
  }
}

void CCallWatch::OnFarEnded(int32_t channel, const SFarCall& far) {
  constexpr int kChannelUnavailable = 44;
  // Who answers a call that he has dialled waits for a CONNECT ACKNOWLEDGE, and clears it when T313 has passed.
  const bool isAnswered = far.call->direction == cardsim::ECallDirection::kFromLibrary &&
                          answeredUs.at(static_cast<size_t>(channel)) >= far.beganUs - kOnTheWayUs;
  if (far.call->ClearedBy() == cardsim::EClearedBy::kLibrary && far.call->Cause() != kChannelUnavailable &&
      !isAnswered && !IsTouched(channel, far, false)) {
    checks.Require(clearedUs.at(static_cast<size_t>(channel)) >= far.beganUs,
                   Name(channel) + "cleared by nobody, with cause " + std::to_string(far.call->Cause()));
  }
}

void CCallWatch::CheckSound(int32_t channel, const SFarCall& far) {
  const SCall& call = calls.at(static_cast<size_t>(channel));
  const int64_t farConnectedUs = StepUs(far, ESimCallState::kConnected);
  if (call.connectedUs < 0 || farConnectedUs < 0 || IsTouched(channel, far, true)) {
    return;
  }
  int64_t endUs = call.clearingUs < 0 ? world.NowUs() : std::min(call.clearingUs, world.NowUs());
  for (const ESimCallState state : {ESimCallState::kDisconnecting, ESimCallState::kEnded}) {
    const int64_t stepUs = StepUs(far, state);
    endUs = stepUs < 0 ? endUs : std::min(endUs, stepUs);
  }
  ++compared;
  const int64_t heardMs = (endUs - std::max(call.connectedUs, farConnectedUs)) / kUsPerMs - kToApplicationMs;
  Compare(Name(channel) + "the application does not hear", app.Recorded(channel), far.sound, heardMs);
  CheckDigits(channel, far, heardMs);
  // A call rings for longer than a ring holds: what was played into it then is past when the far end begins to listen.
  const bool isPast = call.playedUs < farConnectedUs - kInRingMs * kUsPerMs;
  if (call.playedUs >= 0 && !isPast && !call.isStopped && !call.isBehind) {
    const int64_t playedMs = (endUs - std::max(call.playedUs, farConnectedUs)) / kUsPerMs - kToFarEndMs;
    Compare(Name(channel) + "the far end does not hear", far.call->Recorded(), call.sound, playedMs);
    checks.Require(call.isPlayed || playedMs * ZELK_BYTES_PER_MS < static_cast<int64_t>(call.sound.size()),
                   Name(channel) + "no play-done");
  }
}

void CCallWatch::CheckDigits(int32_t channel, const SFarCall& far, int64_t heardMs) {
  if (far.digits.empty()) {
    return;
  }
  const std::string& heard = calls.at(static_cast<size_t>(channel)).digits;
  const size_t least = heardMs <= 0 ? 0 : std::min(far.digits.size(), static_cast<size_t>(heardMs / kDigitMs));
  checks.Require(far.digits.substr(0, heard.size()) == heard && heard.size() >= least,
                 Name(channel) + "digits " + far.digits + " heard as " + heard);
}

void CCallWatch::Compare(const std::string& what, const Bytes& heard, const Bytes& sound, int64_t ms) {
  const size_t most = ms <= 0 ? 0 : static_cast<size_t>(ms) * ZELK_BYTES_PER_MS;
  const size_t wanted = std::min(most, sound.size());
  if (wanted < kMarkBytes) {
    return;
  }
  comparedBytes += wanted;
  const auto found = std::search(heard.begin(), heard.end(), sound.begin(), sound.begin() + kMarkBytes);
  const auto after = static_cast<size_t>(heard.end() - found);
  if (after < wanted) {
    checks.Fail(what + ": " + std::to_string(after) + " of " + std::to_string(wanted) + " bytes, of " +
                std::to_string(heard.size()) + " heard");
    return;
  }
  const auto differ = std::mismatch(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(wanted), found).first;
  if (differ != sound.begin() + static_cast<std::ptrdiff_t>(wanted)) {
    checks.Fail(what + ": byte " + std::to_string(differ - sound.begin()) + " of " + std::to_string(wanted));
  }
}

}  // namespace world

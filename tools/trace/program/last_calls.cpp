// SPDX-License-Identifier: GPL-2.0-only
#include "trace/program/last_calls.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "common/g711.h"
#include "common/wire.h"
#include "trace/core/q931_text.h"

namespace trace {
void CLastCalls::OnCallMessage(const SCall& call, const SSignal& signal) {
  SLastCall& kept = calls[call.number];
  kept.call = call;
  kept.messages.push_back({signal.frame.time, signal.frame.direction == EDirection::kToLibrary, signal.message.name,
                           ElementsText(signal.message)});
  if (kept.messages.size() > kMostMessages) {
    kept.messages.pop_front();
  }
}

void CLastCalls::OnCallEnds(const SCall& call) {
  const auto found = calls.find(call.number);
  if (found == calls.end()) {
    return;
  }
  const Place place{call.card, call.trunk, call.timeslot};
  SLastCall& kept = last[place];
  kept = std::move(found->second);
  kept.call = call;
  kept.isOver = true;
  calls.erase(found);
  if (call.cause >= 0) {
    std::deque<int>& heard = causes[place];
    heard.push_front(call.cause);
    heard.resize(std::min(heard.size(), kMostCauses));
  }
}

const SLastCall* CLastCalls::Find(std::uint64_t number, std::uint32_t card, int trunk, int timeslot) const {
  if (const auto open = calls.find(number); number != 0 && open != calls.end()) {
    return &open->second;
  }
  const auto found = last.find({card, trunk, timeslot});
  return found == last.end() ? nullptr : &found->second;
}

std::vector<int> CLastCalls::Causes(std::uint32_t card, int trunk, int timeslot) const {
  const auto found = causes.find({card, trunk, timeslot});
  return found == causes.end() ? std::vector<int>() : std::vector<int>(found->second.begin(), found->second.end());
}

void CLevelMeter::Watch(std::uint32_t card, int trunk, int timeslot, int trunks) {
  constexpr auto kTimeslots = static_cast<std::size_t>(tool::kTimeslots);
  const std::size_t place = static_cast<std::size_t>(trunk) * kTimeslots + static_cast<std::size_t>(timeslot);
  const std::size_t frame = static_cast<std::size_t>(trunks) * kTimeslots;
  if (watched == card && at == place && step == frame) {
    return;
  }
  watched = card;
  at = place;
  step = frame;
  sides[0] = sides[1] = {};
}

void CLevelMeter::OnAudio(const SAudio& audio) {
  if (step == 0 || audio.card != watched) {
    return;
  }
  SSide& side = sides[audio.direction == EDirection::kToLibrary ? 0 : 1];
  for (std::size_t i = at; i < audio.samples.size(); i += step) {
    side.codes.push_back(audio.samples[i]);
  }
  if (side.codes.size() >= tool::kSampleRate) {
    // A tenth at most, and no zero with a sign.
    const double level = std::round(10 * tool::Dbm0OfALaw(side.codes.data(), side.codes.size())) / 10 + 0.0;
    side.text = fmt::format("{:.1f} dBm0", level);
    side.codes.clear();
  }
}

}  // namespace trace

// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/sound_watch.h"

#include <array>
#include <cstdlib>

#include "common/g711.h"
#include "common/wire.h"

namespace doctor {
namespace {

constexpr int kQuietest = 100;               // of 32767
constexpr std::uint64_t kEnoughSound = 800;  // samples
constexpr std::uint64_t kEnoughLine = 5ULL * tool::kSampleRate;

bool IsLoud(std::uint8_t code) {
  static const auto kLoud = [] {
    std::array<bool, 256> loud{};
    for (std::size_t each = 0; each < loud.size(); ++each) {
      loud[each] = std::abs(tool::DecodeALaw(static_cast<std::uint8_t>(each))) > kQuietest;
    }
    return loud;
  }();
  return kLoud[code];
}

}  // namespace

void CSoundWatch::OnCall(const trace::SCall& call) {
  const std::pair<int, int> line{call.trunk, call.timeslot};
  if (call.connected != 0 && call.clearing == 0 && call.timeslot >= 0 && call.timeslot < tool::kTimeslots &&
      lines[line].call != call.number) {
    lines[line] = {.call = call.number};
  }
}

void CSoundWatch::OnAudio(const trace::SAudio& audio, std::size_t trunks) {
  const std::size_t step = trunks * tool::kTimeslots;
  const bool isFromLine = audio.direction == trace::EDirection::kToLibrary;
  for (auto& [line, sound] : lines) {
    const std::size_t first =
        static_cast<std::size_t>(line.first) * tool::kTimeslots + static_cast<std::size_t>(line.second);
    for (std::size_t at = first; step > 0 && at < audio.samples.size(); at += step) {
      const std::uint8_t code = audio.samples[at];
      if (isFromLine) {
        sound.code = sound.code < 0 ? code : sound.code;
        sound.isVaried = sound.isVaried || code != sound.code;
        ++sound.fromLine;
      } else {
        sound.loudToLine += IsLoud(code) ? 1 : 0;
      }
    }
  }
}

std::optional<SCallFacts> CSoundWatch::OnCallEnds(const trace::SCall& call, Time now) {
  const auto line = lines.find({call.trunk, call.timeslot});
  if (line == lines.end() || line->second.call != call.number) {
    return std::nullopt;
  }
  const SSound sound = line->second;
  lines.erase(line);
  if (sound.isVaried || sound.fromLine < kEnoughLine || sound.loudToLine < kEnoughSound) {
    return std::nullopt;
  }
  const Time end = call.clearing != 0 ? call.clearing : now;
  return SCallFacts{call.number, call.timeslot, end - call.connected};
}

}  // namespace doctor

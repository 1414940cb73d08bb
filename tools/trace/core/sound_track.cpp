// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/sound_track.h"

#include <utility>

#include "common/wire.h"

namespace trace {

std::int64_t CSoundTrack::Add(std::uint32_t sequence, tool::Bytes&& codes) {
  std::int64_t step = lastSequence ? static_cast<std::int32_t>(sequence - *lastSequence) : 0;
  if (step > kFarthestLoss || step < -kFarthestLoss) {
    step = 1;
    lastPlace = packets.empty() ? lastPlace : Last();
  }
  lastSequence = sequence;
  lastPlace += step;
  const auto [place, isNew] = packets.try_emplace(lastPlace, std::move(codes));
  repeated += isNew ? 0 : 1;
  return place->first;
}

void CSoundTrack::Narrow(std::size_t frameBytes, std::size_t timeslot) {
  for (auto& [place, codes] : packets) {
    tool::Bytes narrow;
    for (std::size_t at = timeslot; at < codes.size(); at += frameBytes) {
      narrow.push_back(codes[at]);
    }
    codes = std::move(narrow);
  }
}

std::uint64_t CSoundTrack::Missing() const {
  return IsEmpty() ? 0 : static_cast<std::uint64_t>(Last() - First() + 1) - packets.size();
}

tool::Bytes CSoundTrack::Samples(std::int64_t from, std::int64_t to, std::size_t packetBytes) const {
  tool::Bytes samples;
  for (std::int64_t place = from; place <= to; ++place) {
    const auto found = packets.find(place);
    if (found == packets.end()) {
      samples.resize(samples.size() + packetBytes, tool::kSilence);
    } else {
      samples.insert(samples.end(), found->second.begin(), found->second.end());
    }
  }
  return samples;
}

}  // namespace trace

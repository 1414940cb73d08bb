// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "doctor/core/wire_facts.h"
#include "trace/core/calls.h"

namespace doctor {

// Job: whether the connected calls of a card have sound, each direction by itself. Thread: one. Nothing fails.
class CSoundWatch {
 public:
  void OnCall(const trace::SCall& call);
  void OnAudio(const trace::SAudio& audio, std::size_t trunks);
  // The call if it was deaf: the line gave one code and no other all the time, though the library sent sound.
  std::optional<SCallFacts> OnCallEnds(const trace::SCall& call, Time now);

 private:
  struct SSound {
    std::uint64_t call = 0;
    std::uint64_t fromLine = 0;  // samples
    int code = -1;               // of the first
    bool isVaried = false;
    std::uint64_t loudToLine = 0;  // samples that are more than an idle line's
  };

  std::map<std::pair<int, int>, SSound> lines;  // by trunk and timeslot
};

}  // namespace doctor

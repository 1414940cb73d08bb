// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "doctor/core/wire_facts.h"

namespace doctor {

// Job: the rate of a card's sample clock against the clock of who captured, by a straight line through the packets that
// were least late. Thread: one. Nothing fails.
class CClockFit {
 public:
  static constexpr double kSampleSeconds = 1.0 / 8000;

  // The numbering begins anew: the longest stretch is what counts.
  void Restart();
  // A packet of so many samples of each line.
  void Add(std::uint32_t sequence, std::size_t samples, Time time);
  // None before ten seconds.
  std::optional<SClockFacts> Result() const;

 private:
  // The packet of a window that came earliest for its number, in seconds from the begin.
  struct SPoint {
    double time;
    double late;
  };

  std::optional<SClockFacts> Fit(const std::vector<SPoint>& points) const;
  void Halve();

  std::vector<SPoint> stretch;
  std::vector<SPoint> longest;
  double window = 1;
  std::optional<std::uint32_t> lastSequence;
  std::uint64_t place = 0;  // packets since the begin
  std::size_t size = 0;
  Time begin = 0;
};

}  // namespace doctor

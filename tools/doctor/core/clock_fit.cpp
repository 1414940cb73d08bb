// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/clock_fit.h"

#include <algorithm>
#include <cmath>

namespace doctor {
namespace {

constexpr std::size_t kMostPoints = 2000;
constexpr double kShortest = 10;              // seconds
constexpr std::uint32_t kLargestLoss = 1000;  // packets; a jump beyond is another numbering
constexpr double kMillion = 1e6;

}  // namespace

void CClockFit::Restart() {
  if (longest.empty() || (!stretch.empty() && stretch.back().time > longest.back().time)) {
    longest = stretch;
  }
  stretch.clear();
  window = 1;
  lastSequence.reset();
}

void CClockFit::Add(std::uint32_t sequence, std::size_t samples, Time time) {
  const std::uint32_t step = lastSequence ? sequence - *lastSequence : 0;
  if (lastSequence && (step == 0 || step > UINT32_MAX / 2)) {
    return;  // one that came again, or too late
  }
  if (!lastSequence || step > kLargestLoss || samples != size) {
    Restart();
    begin = time;
    place = 0;
    size = samples;
  } else {
    place += step;
  }
  lastSequence = sequence;
  const double seconds = static_cast<double>(time - begin) / static_cast<double>(trace::kSecond);
  const double late = seconds - static_cast<double>(place) * static_cast<double>(size) * kSampleSeconds;
  if (stretch.empty() || std::floor(seconds / window) > std::floor(stretch.back().time / window)) {
    stretch.push_back({seconds, late});
    if (stretch.size() > kMostPoints) {
      Halve();
    }
  } else if (late < stretch.back().late) {
    stretch.back() = {seconds, late};
  }
}

void CClockFit::Halve() {
  std::vector<SPoint> half;
  for (std::size_t i = 0; i + 1 < stretch.size(); i += 2) {
    half.push_back(stretch[i].late < stretch[i + 1].late ? stretch[i] : stretch[i + 1]);
  }
  stretch = std::move(half);
  window *= 2;
}

std::optional<SClockFacts> CClockFit::Result() const {
  const bool isLonger = longest.empty() || (!stretch.empty() && stretch.back().time > longest.back().time);
  return Fit(isLonger ? stretch : longest);
}

std::optional<SClockFacts> CClockFit::Fit(const std::vector<SPoint>& points) const {
  if (points.size() < 8 || points.back().time - points.front().time < kShortest) {
    return std::nullopt;
  }
  const double count = static_cast<double>(points.size());
  double meanTime = 0;
  double meanLate = 0;
  for (const SPoint& point : points) {
    meanTime += point.time / count;
    meanLate += point.late / count;
  }
  double times = 0;
  double both = 0;
  for (const SPoint& point : points) {
    times += (point.time - meanTime) * (point.time - meanTime);
    both += (point.time - meanTime) * (point.late - meanLate);
  }
  const double slope = both / times;
  double squares = 0;
  double neighbours = 0;
  double before = 0;
  for (const SPoint& point : points) {
    const double rest = point.late - meanLate - slope * (point.time - meanTime);
    squares += rest * rest;
    neighbours += rest * before;
    before = rest;
  }
  // What is late makes the next late too: so many fewer of the points are independent.
  const double likeness = squares > 0 ? std::clamp(neighbours / squares, 0.0, 0.95) : 0;
  const double variance = squares / (count - 2) * (1 + likeness) / (1 - likeness) / times;
  return SClockFacts{-slope * kMillion, 2 * std::sqrt(variance) * kMillion, points.back().time - points.front().time};
}

}  // namespace doctor

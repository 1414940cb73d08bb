// SPDX-License-Identifier: GPL-2.0-only
#include "world/shrink.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace world {
namespace {

template <class Part>
bool ShrinkPart(SWorldPlan& plan, std::vector<Part> SWorldPlan::*part,
                const std::function<bool(const SWorldPlan&)>& fails) {
  bool isSmaller = false;
  for (size_t piece = std::max<size_t>((plan.*part).size() / 2, 1);; piece /= 2) {
    for (size_t at = 0; at < (plan.*part).size();) {
      SWorldPlan tried = plan;
      std::vector<Part>& parts = tried.*part;
      const auto begin = parts.begin() + static_cast<std::ptrdiff_t>(at);
      parts.erase(begin, begin + static_cast<std::ptrdiff_t>(std::min(piece, parts.size() - at)));
      if (fails(tried)) {
        plan = std::move(tried);
        isSmaller = true;
      } else {
        at += piece;
      }
    }
    if (piece <= 1) {
      return isSmaller;
    }
  }
}

}  // namespace

SWorldPlan Shrink(SWorldPlan plan, const std::function<bool(const SWorldPlan&)>& fails) {
  bool isSmaller = true;
  while (isSmaller) {
    isSmaller = ShrinkPart(plan, &SWorldPlan::faults, fails);
    isSmaller = ShrinkPart(plan, &SWorldPlan::offers, fails) || isSmaller;
    isSmaller = ShrinkPart(plan, &SWorldPlan::steps, fails) || isSmaller;
    isSmaller = ShrinkPart(plan, &SWorldPlan::lives, fails) || isSmaller;
  }
  return plan;
}

}  // namespace world

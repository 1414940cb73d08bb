// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <span>
#include <string>

#include "platform/simulated/network.h"
#include "platform/simulated/world.h"

namespace zelk::sim {

// Where the outside listens.
inline constexpr SIpv4Endpoint kCard{Address(10, 1, 0, 9), 8150};

// Runs body in a world of these options, which has to end as it should.
inline SOutcome RunToEnd(CWorld& world, std::function<void()> body) {
  SOutcome outcome = world.Run(std::move(body));
  EXPECT_EQ(outcome.verdict, EVerdict::kEnded) << outcome.report;
  return outcome;
}

inline std::span<const uint8_t> BytesOf(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

inline std::string TextOf(std::span<const uint8_t> data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

}  // namespace zelk::sim

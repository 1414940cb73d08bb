// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <optional>
#include <string>

// What the system says of the calling thread: nothing, of a task in a simulated world.
inline std::optional<std::string> OwnThreadName() {
  return std::nullopt;
}
inline bool OwnThreadIsRaised() {
  return false;
}
inline bool ThreadsMayBeRaised() {
  return false;
}

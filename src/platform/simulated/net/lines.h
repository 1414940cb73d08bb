// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>

#include "platform/simulated/network.h"
#include "platform/simulated/world.h"

namespace zelk::sim {

// One way between the library's machine and another one.
struct SLine {
  SLink link;
  int64_t busyUntilUs = 0;  // what has been sent is on the line until then
  int64_t lastDueUs = 0;    // of the messages that keep their order

  // How long it takes until what was queued so far is on the line.
  int64_t BacklogUs(int64_t nowUs) const { return busyUntilUs > nowUs ? busyUntilUs - nowUs : 0; }
  size_t BacklogBytes(int64_t nowUs) const;
};

// All of them, and when what is sent on them arrives.
class CLines {
 public:
  explicit CLines(CWorld& owner) : world(owner) {}

  SLine& ToMachine(SIpv4Address machine) { return Pair(machine).toMachine; }
  SLine& ToLibrary(SIpv4Address machine) { return Pair(machine).toLibrary; }
  void Set(SIpv4Address machine, const SLink& toMachine, const SLink& toLibrary);
  void SetDefault(const SLink& link) { defaultLink = link; }

  // A datagram arrives once, not at all, or twice.
  struct SArrivals {
    size_t count = 0;
    std::array<int64_t, 2> atUs{};
  };
  SArrivals Send(SLine& line, size_t bytes);
  // When so many bytes arrive that must not overtake those before.
  int64_t InOrder(SLine& line, size_t bytes);

 private:
  struct SPair {
    SLine toMachine;
    SLine toLibrary;
  };
  SPair& Pair(SIpv4Address machine);
  int64_t SentUs(SLine& line, size_t bytes) const;

  CWorld& world;
  SLink defaultLink;
  std::map<uint32_t, SPair> pairs;
};

}  // namespace zelk::sim

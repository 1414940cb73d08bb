// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "common/q931_decode.h"
#include "trace/core/control_decoder.h"

namespace trace {

// What a frame is for the layer above.
enum class EVerdict {
  kNew,            // carries a message in its turn
  kRepeated,       // one that was there before
  kOutOfSequence,  // its receiver rejects it, and it comes again
  kNoMessage,      // of layer 2 alone
  kBroken          // bad FCS, or no frame at all
};

struct SLinkCounts {
  std::uint64_t frames = 0;
  std::uint64_t repeated = 0;
  std::uint64_t outOfSequence = 0;
  std::uint64_t broken = 0;
  std::uint64_t missing = 0;  // acknowledged, and not in the capture
  std::uint64_t establishments = 0;
};

// Job: follows the data link of a trunk (ITU-T Q.921) from outside: which information frames are in sequence, which
// side is the network, whether the link is established. Thread: one. Nothing fails.
class CDataLink {
 public:
  EVerdict OnFrame(const SControl& message, const tool::SQ921Frame& frame);
  // Not known before the first command or response of one kind alone.
  std::optional<bool> IsLibraryNetwork() const { return libraryIsNetwork; }
  // Not known before the first frame that tells.
  std::optional<bool> IsUp() const { return up; }
  const SLinkCounts& Counts() const { return counts; }

 private:
  void LearnRoles(EDirection direction, const tool::SQ921Frame& frame);
  EVerdict OnInformation(const SControl& message, int number);

  std::array<std::optional<int>, 2> expected;      // N(S) of each direction
  std::array<std::optional<int>, 2> acknowledged;  // by the receiver of each direction
  std::array<bool, 2> hadGap{};
  std::optional<bool> libraryIsNetwork;
  std::optional<bool> up;
  SLinkCounts counts;
};

// "SABME", "RR", "I" and so on.
const char* FrameName(tool::EFrameKind kind);

}  // namespace trace

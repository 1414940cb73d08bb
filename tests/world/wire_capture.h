// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "platform/simulated/network.h"
#include "platform/simulated/world.h"
#include "world/run.h"

namespace world {

// Job: writes what passes the library's adapter as one would capture it there: pcapng of Ethernet, in the world's time
// from its beginning on, which leaps of the wall clock do not move. Streams become TCP segments with numbers that fit;
// what a link loses on the way of a stream is not seen. Thread: tasks and acts of the world, which outlives it.
class CWireCapture {
 public:
  CWireCapture(zelk::sim::CWorld& ownWorld, const SWireFile& wire);
  ~CWireCapture();
  CWireCapture(const CWireCapture&) = delete;
  CWireCapture& operator=(const CWireCapture&) = delete;

 private:
  using Bytes = std::vector<uint8_t>;
  using Place = std::pair<uint32_t, uint16_t>;

  void Take(const zelk::sim::SWireMessage& message);
  void TakeDatagram(const zelk::sim::SWireMessage& message);
  void TakeSegments(const zelk::sim::SWireMessage& message);
  void AddSegment(const zelk::sim::SWireMessage& message, uint8_t flags, std::span<const uint8_t> data);
  void AddPacket(const zelk::sim::SWireMessage& message, uint8_t protocol, const Bytes& payload);
  void WriteBlock(uint32_t type, const Bytes& body);

  zelk::sim::CWorld& world;
  const bool hasSound;
  std::ofstream file;
  std::map<std::pair<Place, Place>, uint32_t> sequences;  // the next one of each way of a stream
};

}  // namespace world

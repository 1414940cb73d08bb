// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/net/lines.h"

#include <algorithm>

namespace zelk::sim {

size_t SLine::BacklogBytes(int64_t nowUs) const {
  return static_cast<size_t>(static_cast<uint64_t>(BacklogUs(nowUs)) * link.bytesPerSecond / kUsPerSecond);
}

CLines::SPair& CLines::Pair(SIpv4Address machine) {
  const auto [place, isNew] = pairs.try_emplace(machine.networkOrder);
  if (isNew) {
    place->second.toMachine.link = defaultLink;
    place->second.toLibrary.link = defaultLink;
  }
  return place->second;
}

void CLines::Set(SIpv4Address machine, const SLink& toMachine, const SLink& toLibrary) {
  SPair& pair = Pair(machine);
  pair.toMachine.link = toMachine;
  pair.toLibrary.link = toLibrary;
}

int64_t CLines::SentUs(SLine& line, size_t bytes) const {
  const int64_t nowUs = world.NowUs();
  if (line.link.bytesPerSecond == 0) {
    return nowUs;
  }
  const auto takesUs = static_cast<int64_t>(bytes * kUsPerSecond / line.link.bytesPerSecond);
  line.busyUntilUs = std::max(line.busyUntilUs, nowUs) + takesUs;
  return line.busyUntilUs;
}

int64_t CLines::InOrder(SLine& line, size_t bytes) {
  const int64_t jitterUs = line.link.jitterUs == 0 ? 0 : world.Random().Between(0, line.link.jitterUs);
  line.lastDueUs = std::max(line.lastDueUs, SentUs(line, bytes) + line.link.delayUs + jitterUs);
  return line.lastDueUs;
}

void CLines::Datagram(SLine& line, size_t bytes, const std::function<void()>& arrive) {
  const SLink& link = line.link;
  CRandom& random = world.Random();
  const bool isFull = link.bytesPerSecond != 0 && line.BacklogBytes(world.NowUs()) + bytes > link.queueBytes;
  if (link.isCut || isFull || random.Chance(link.lossPerMillion)) {
    return;
  }
  const bool isTwice = random.Chance(link.duplicatePerMillion);
  for (int i = 0; i < (isTwice ? 2 : 1); ++i) {
    if (random.Chance(link.reorderPerMillion)) {
      world.At(SentUs(line, bytes) + link.delayUs + random.Between(0, link.reorderUs), arrive);
    } else {
      world.At(InOrder(line, bytes), arrive);
    }
  }
}

}  // namespace zelk::sim

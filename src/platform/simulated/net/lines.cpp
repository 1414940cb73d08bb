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

CLines::SArrivals CLines::Send(SLine& line, size_t bytes) {
  const SLink& link = line.link;
  CRandom& random = world.Random();
  SArrivals arrivals;
  const bool isFull = link.bytesPerSecond != 0 && line.BacklogBytes(world.NowUs()) + bytes > link.queueBytes;
  if (link.isCut || isFull || random.Chance(link.lossPerMillion)) {
    return arrivals;
  }
  arrivals.count = random.Chance(link.duplicatePerMillion) ? 2 : 1;
  for (size_t i = 0; i < arrivals.count; ++i) {
    arrivals.atUs[i] = random.Chance(link.reorderPerMillion)
                           ? SentUs(line, bytes) + link.delayUs + random.Between(0, link.reorderUs)
                           : InOrder(line, bytes);
  }
  return arrivals;
}

}  // namespace zelk::sim

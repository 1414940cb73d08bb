// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/reply_model.h"

#include <utility>

namespace cardsim {
namespace {

constexpr std::uint8_t kHintAnsweredByNone = 4;
constexpr int kOldToStartAnew = 10;

}  // namespace

void CReplyModel::Restart() {
  next = 1;
  first = true;
  oldInARow = 0;
  early.reset();
}

void CReplyModel::OnArrival(const SArrival& packet, std::vector<SArrival>& answered) {
  const std::optional<SArrival> kept = std::exchange(early, std::nullopt);
  const bool isTheMissing = packet.sequence == next;
  Judge(packet, answered);
  if (kept && isTheMissing) {
    Judge(*kept, answered);
  }
}

void CReplyModel::Judge(const SArrival& packet, std::vector<SArrival>& answered) {
  if (packet.sequence == next) {
    if (first) {
      StartAnew(packet, answered);
      return;
    }
    answered.push_back(packet);
    Accept(packet);
  } else if (packet.sequence == next + 1) {
    early = packet;
  } else if (packet.sequence > next + 1) {
    ++losses;
    StartAnew(packet, answered);
  } else {
    ++olds;
    if (++oldInARow >= kOldToStartAnew) {
      ++oldResets;
      StartAnew(packet, answered);
    }
  }
}

void CReplyModel::StartAnew(const SArrival& packet, std::vector<SArrival>& answered) {
  for (int reply = kHintAnsweredByNone; reply < packet.hint; ++reply) {
    answered.push_back(packet);
  }
  first = false;
  Accept(packet);
}

void CReplyModel::Accept(const SArrival& packet) {
  next = packet.sequence + 1;
  oldInARow = 0;
}

}  // namespace cardsim

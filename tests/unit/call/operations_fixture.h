// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>

#include "call_fixture.h"

namespace zelk::test {

inline constexpr int kNetwork = 1;
inline constexpr int kUser = 2;

// Two cards of which the first one's first trunk (channels 0-29) gets a peer when the test wants one.
class COperationsFixture : public CCallFixture {
 protected:
  explicit COperationsFixture(int32_t direction = 0) : CCallFixture(direction) {}

  // nodeType: of our side.
  void JoinTrunk(int nodeType) {
    trunk = std::make_unique<CMemoryTrunk>(firstCard, firstHandlers, 0, nodeType);
    trunk->Run();
    application.Take();
  }
  PriCall Offer(int timeslot) {
    PriCall call = trunk->peer->NewCall();
    EXPECT_GE(trunk->peer->Setup(call, timeslot, "4711", "030123456", 33), 0);
    trunk->Run();
    application.Take();
    return call;
  }

  std::unique_ptr<CMemoryTrunk> trunk;
};

// Every channel begins as incoming, which nothing in the library makes of one.
class CIncomingFixture : public COperationsFixture {
 protected:
  CIncomingFixture() : COperationsFixture(1) {}
};

}  // namespace zelk::test

// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <new>
#include <random>
#include <vector>

#include "card/pri_adapter.h"
#include "support/pri_pair.h"

namespace zelk {
namespace {

// libpri would print what it thinks of the frames below.
const bool kIsHookInstalled = (InstallPriMessageHook(), true);

// A writer without memory: nothing of that passes through libpri.
class CPoorSide : public CPriSide {
 public:
  using CPriSide::CPriSide;
  int OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) override {
    return isPoor ? throw std::bad_alloc() : CPriSide::OnPriFrame(trunk, frame, length);
  }
  bool isPoor = false;
};

TEST(PriFrames, AFrameThatMemoryCannotHoldIsLostAndSentAgain) {
  CPoorSide side(kUserSide);
  SPriEvent event;
  const uint8_t sabme[] = {0x02, 0x01, 0x7F, 0, 0};
  side.written.clear();
  side.isPoor = true;
  side.controller->Receive(sabme, sizeof sabme, event);
  EXPECT_TRUE(side.written.empty());
  side.isPoor = false;
  side.controller->Receive(sabme, sizeof sabme, event);
  EXPECT_FALSE(side.written.empty());
}

TEST(PriFrames, ShortAndOverlongFramesAreDropped) {
  CPriSide side(kUserSide);
  side.written.clear();
  SPriEvent event;
  const std::vector<uint8_t> frame(2000, 0x00);
  for (const size_t length : {size_t{0}, size_t{1}, size_t{4}, size_t{1025}, size_t{2000}}) {
    EXPECT_FALSE(side.controller->Receive(frame.data(), length, event)) << length;
  }
  EXPECT_TRUE(side.written.empty());
}

// Frames of a real call, to be damaged.
std::vector<PriFrame> CallFrames() {
  CPriPair pair;
  std::vector<PriFrame> frames;
  pair.Run();
  const PriCall call = pair.network.controller->NewCall();
  pair.network.controller->Setup(call, 5, "100", "200", kNationalIsdnNumber);
  for (int i = 0; i < 40; ++i) {
    if (!pair.network.written.empty()) {
      frames.push_back(pair.network.written.front());
    }
    if (!pair.Step()) {
      pair.user.controller->Answer(pair.user.Ring(), 5);
    }
  }
  return frames;
}

TEST(PriFrames, TruncatedFramesDoNoHarm) {
  const std::vector<PriFrame> frames = CallFrames();
  ASSERT_GE(frames.size(), 2U);
  for (const PriFrame& frame : frames) {
    for (size_t length = 0; length <= frame.size(); ++length) {
      CPriPair pair;
      pair.Run();
      SPriEvent event;
      // A copy of its own, so that a read past the end is seen.
      const PriFrame cut(frame.begin(), frame.begin() + static_cast<ptrdiff_t>(length));
      pair.user.controller->Receive(cut.data(), cut.size(), event);
    }
  }
}

// The same layer 3 message in a frame that is taken whatever the sequence numbers say.
PriFrame AsUnnumbered(const PriFrame& information) {
  PriFrame frame{information[0], information[1], 0x03};
  frame.insert(frame.end(), information.begin() + 4, information.end());
  return frame;
}

PriFrame RandomFrame(std::mt19937& random) {
  PriFrame frame(5 + random() % 295);
  for (uint8_t& byte : frame) {
    byte = static_cast<uint8_t>(random());
  }
  frame[0] = 0x02;
  frame[1] = 0x01;
  return frame;
}

TEST(PriFrames, DamagedAndRandomFramesDoNoHarm) {
  std::mt19937 random(921);
  const std::vector<PriFrame> frames = CallFrames();
  CPriPair pair;
  pair.Run();
  int rings = 0;
  for (int i = 0; i < 20000; ++i) {
    if (i % 500 == 0) {
      pair.user.controller.reset();
      pair.user.controller = CPriController::Create(pair.user, 0, kUserSide, kEuroIsdnE1);
    }
    PriFrame frame = random() % 4 == 0 ? RandomFrame(random) : frames[random() % frames.size()];
    if (frame.size() > 6 && random() % 4 != 0) {
      frame = AsUnnumbered(frame);
    }
    for (auto damage = random() % 6; damage > 0; --damage) {
      frame[2 + random() % (frame.size() - 2)] = static_cast<uint8_t>(random());
    }
    SPriEvent event;
    rings += pair.user.controller->Receive(frame.data(), frame.size(), event) && event.code == kPriRing;
    pair.user.written.clear();
  }
  EXPECT_GT(rings, 100) << "too few frames got as far as call control";
  SPriEvent event;
  const uint8_t sabme[] = {0x02, 0x01, 0x7F, 0, 0};
  pair.user.controller->Receive(sabme, sizeof sabme, event);
  EXPECT_FALSE(pair.user.written.empty()) << "the controller no longer answers";
}

}  // namespace
}  // namespace zelk

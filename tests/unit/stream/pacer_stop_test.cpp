// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "audio_pacer_fixture.h"

// A stop of the pass, and a stop of one position, while the pacer is inside the hook.
namespace zelk {
namespace {

// Stops the pass from inside its first call of one kind, and counts what comes after it.
class CStoppingHook : public CIdleHook {
 public:
  CStoppingHook(CStopFlag& flag, EMediaCall stoppingCall) : stop(flag), stopping(stoppingCall) {}
  void OnCall(EMediaCall call) override {
    callsAfter += stop.IsSet() ? 1 : 0;
    if (call == stopping)
      stop.Set();
  }
  int callsAfter = 0;

 private:
  CStopFlag& stop;
  const EMediaCall stopping;
};

class AudioPacerStop : public AudioPacer {
 protected:
  // A digit's sound and what follows it, so that each kind of call is due, more than once, in this pass.
  void StopIn(EMediaCall call) {
    CStoppingHook stopping(stop, call);
    controls.hook = &stopping;
    for (size_t position = 0; position < 2; ++position) {
      for (int block = 0; block < 2; ++block)
        Receive(position, TwoTones(block).data());
    }
    pacer.Pass(stop);
    EXPECT_TRUE(stop.IsSet());
    EXPECT_EQ(stopping.callsAfter, 0);
  }
};

TEST_F(AudioPacerStop, InsideAFillAsksForNoMarkAndDropsTheBlock) {
  StopIn(EMediaCall::kFillBlock);
  EXPECT_EQ(rings.Transmit().ReadyCount(0), 0U);
}

TEST_F(AudioPacerStop, InsideTheMarkQueryFillsNoFurtherBlock) {
  StopIn(EMediaCall::kEndsPlay);
  EXPECT_EQ(rings.Transmit().ReadyCount(0), 0U);
}

TEST_F(AudioPacerStop, InsideADigitDeliversNotEvenItsBlock) {
  StopIn(EMediaCall::kDigit);
}

TEST_F(AudioPacerStop, InsideARecordCallDeliversNoFurtherBlock) {
  StopIn(EMediaCall::kBlockReceived);
}

// A position that is stopped while its block is filled. The hook has 0x11 in its queue, as the call layer does.
class AudioPacerFlush : public AudioPacer, protected CIdleHook {
 protected:
  static constexpr size_t kPosition = 3;

  AudioPacerFlush() { controls.hook = this; }

  bool EndsPlay(uint32_t, uint32_t timeslot) override {
    if (timeslot == kPosition)
      inQuery();
    return false;
  }
  void FillBlock(uint32_t, uint32_t timeslot, SBlockFill& fill) override {
    if (timeslot != kPosition || std::exchange(filled, true))
      return;
    beforeTaking();
    fill.flushCount = controls.flushCounts[kPosition];
    std::memset(fill.data, 0x11, kBlockBytes);
    for (size_t i = 0; isCounting && i < kBlockBytes; ++i)
      fill.data[i] = static_cast<uint8_t>(0x60 + i % 64);
    if (isUniform)
      fill.FillWith(0x11);
    if (isSeen)
      fill.KeepQueued();
    inCallback(fill.data);
  }
  void Stop() { controls.Flush(kPosition); }
  void StopFromAnotherThread() {
    std::thread([this] { Stop(); }).join();
  }

  // What the first block holds when it waits in the ring, and whether it would be sent so.
  std::vector<uint8_t> Filled() {
    pacer.Pass(stop);
    const SPoolBlock block = rings.Transmit().NextReady(kPosition);
    isSent = block.note->flushCount == controls.flushCounts[kPosition];
    return {block.data, block.data + kBlockBytes};
  }
  // Idle bytes but for a run of 0x22.
  static std::vector<uint8_t> Written(size_t from, size_t to) {
    std::vector<uint8_t> block(kBlockBytes, 0x54);
    std::fill(block.begin() + static_cast<ptrdiff_t>(from), block.begin() + static_cast<ptrdiff_t>(to), uint8_t{0x22});
    return block;
  }
  static void Write(uint8_t* data, size_t from, size_t to) { std::memset(data + from, 0x22, to - from); }

  std::function<void()> beforeTaking = [] {};
  std::function<void(uint8_t*)> inCallback = [](uint8_t*) {};
  std::function<void()> inQuery = [] {};
  bool isSeen = true;
  bool isCounting = false;
  bool isUniform = false;
  bool filled = false;
  bool isSent = false;
};

// The end of what was written is told byte by byte, against what the queue had just there.
TEST_F(AudioPacerFlush, KeepsWhatWasWrittenIntoSoundThatIsNowhereTheSame) {
  isCounting = true;
  inCallback = [this](uint8_t* data) {
    StopFromAnotherThread();
    Write(data, 50, 60);
  };
  EXPECT_EQ(Filled(), Written(50, 60));
}

TEST_F(AudioPacerFlush, OfABlockThatWasAllOneByteIsNotTakenForThat) {
  isSeen = false;
  isUniform = true;
  inCallback = [this](uint8_t*) { StopFromAnotherThread(); };
  EXPECT_EQ(Filled(), Written(0, 0));
  EXPECT_EQ(rings.Transmit().NextReady(kPosition).note->uniform, kNotUniform);
}

TEST_F(AudioPacerFlush, BeforeTheQueueIsReadLeavesTheBlockWhole) {
  beforeTaking = [this] { StopFromAnotherThread(); };
  EXPECT_EQ(Filled(), std::vector<uint8_t>(kBlockBytes, 0x11));
  EXPECT_TRUE(isSent);
}

TEST_F(AudioPacerFlush, InTheCallbackKeepsWhatIsWrittenAfterIt) {
  inCallback = [this](uint8_t* data) {
    Write(data, 0, 100);
    Stop();
    Write(data, 40, 80);
  };
  EXPECT_EQ(Filled(), Written(40, 80));
  EXPECT_TRUE(isSent);
}

TEST_F(AudioPacerFlush, InTheCallbackBeforeAllIsWrittenLosesNothingOfIt) {
  inCallback = [this](uint8_t* data) {
    Stop();
    Stop();
    std::memset(data, 0x11, kBlockBytes);  // what the queue had given, byte for byte
  };
  EXPECT_EQ(Filled(), std::vector<uint8_t>(kBlockBytes, 0x11));
  EXPECT_TRUE(isSent);
}

TEST_F(AudioPacerFlush, FromAnotherThreadSilencesWhatTheCallbackDidNotWrite) {
  inCallback = [this](uint8_t* data) {
    StopFromAnotherThread();
    Write(data, 20, 60);
  };
  EXPECT_EQ(Filled(), Written(20, 60));
  EXPECT_TRUE(isSent);
}

TEST_F(AudioPacerFlush, FromAnotherThreadWhileTheCallbackLooksSilencesAll) {
  inCallback = [this](uint8_t*) { StopFromAnotherThread(); };
  EXPECT_EQ(Filled(), Written(0, 0));
}

TEST_F(AudioPacerFlush, FromBothThreadsKeepsWhatIsWrittenAfterItsOwn) {
  inCallback = [this](uint8_t* data) {
    StopFromAnotherThread();
    Stop();
    Write(data, 0, 10);
  };
  EXPECT_EQ(Filled(), Written(0, 10));
  EXPECT_TRUE(isSent);
}

// The block of a channel whose audio no application sees: it is not known which bytes were written, so all go.
TEST_F(AudioPacerFlush, OfABlockThatNoCallbackSawSilencesAllOfIt) {
  inCallback = [this](uint8_t* data) {
    StopFromAnotherThread();
    Write(data, 20, 60);
  };
  isSeen = false;
  EXPECT_EQ(Filled(), Written(0, 0));
  EXPECT_TRUE(isSent);
}

TEST_F(AudioPacerFlush, AfterTheCallbackIsLeftToTheSender) {
  inCallback = [](uint8_t* data) { Write(data, 0, kBlockBytes); };
  inQuery = [this] { Stop(); };
  EXPECT_EQ(Filled(), std::vector<uint8_t>(kBlockBytes, 0x22));
  EXPECT_FALSE(isSent);
}

// A stop of another position, from the callback of this one, is no stop of this one.
TEST_F(AudioPacerFlush, OfAnotherPositionLeavesTheBlockAlone) {
  inCallback = [this](uint8_t*) { controls.Flush(kPosition + 1); };
  EXPECT_EQ(Filled(), std::vector<uint8_t>(kBlockBytes, 0x11));
  EXPECT_TRUE(isSent);
}

}  // namespace
}  // namespace zelk

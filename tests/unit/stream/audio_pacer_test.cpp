#include "stream/audio_pacer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <numbers>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "audio_fakes.h"
#include "formats/g711.h"
#include "platform/event.h"

namespace zelk {
namespace {

class AudioPacer : public testing::Test {
 protected:
  AudioPacer() {
    EXPECT_TRUE(rings.Create(1, 2));
    rings.ResetDetectors(SDtmfSettings());
    controls.hook = &hook;
  }

  // Puts a received block where the pacer finds it.
  void Receive(size_t position, const uint8_t* alaw) {
    CBlockPool& pool = rings.At(position).receive;
    uint8_t* block = pool.PopFree();
    ASSERT_NE(block, nullptr);
    std::memcpy(block, alaw, kBlockBytes);
    pool.PushReady(block, false, 0);
  }

  // The next 20 ms of the digit 5 (770 and 1336 Hz).
  static std::vector<uint8_t> TwoTones(int block) {
    std::vector<uint8_t> alaw(kBlockBytes);
    for (int i = 0; i < 160; ++i) {
      const double t = (block * 160 + i) / 8000.0 * 2.0 * std::numbers::pi;
      alaw[static_cast<size_t>(i)] =
          LinearToALaw(static_cast<int16_t>(5000 * std::sin(770 * t) + 5000 * std::sin(1336 * t)));
    }
    return alaw;
  }

  SAudioControls controls;
  CFakeHook hook;
  CCardRings rings;
  CAudioPacer pacer{controls, rings};
  CStopFlag stop;
};

TEST_F(AudioPacer, APassFillsEveryFreeBlockThenDeliversPositionByPosition) {
  const std::vector<uint8_t> silence(160, 0xD5);
  Receive(0, silence.data());
  Receive(31, silence.data());
  pacer.Pass(stop);
  std::vector<std::string> expected;
  for (int timeslot = 0; timeslot < 32; ++timeslot) {
    const std::string place = "0." + std::to_string(timeslot);
    for (int block = 0; block < 2; ++block) {
      expected.push_back("play " + place);
      expected.push_back("query " + place);
    }
    if (timeslot == 0 || timeslot == 31)
      expected.push_back("record " + place + " 213");
  }
  EXPECT_EQ(hook.calls, expected);
  EXPECT_EQ(rings.At(0).receive.FreeCount(), 2U);
  hook.calls.clear();
  pacer.Pass(stop);
  EXPECT_TRUE(hook.calls.empty());
}

TEST_F(AudioPacer, FilledBlocksCarryTheirMarkAndTheFlushCount) {
  controls.Flush(3);
  controls.Flush(3);
  hook.mark = true;
  pacer.Pass(stop);
  const SReadyBlock block = rings.At(3).transmit.PopReady();
  ASSERT_NE(block.data, nullptr);
  EXPECT_TRUE(block.mark);
  EXPECT_EQ(block.tag, 2U);
  EXPECT_EQ(rings.At(4).transmit.PopReady().tag, 0U);
}

TEST_F(AudioPacer, WithoutAHookNothingMoves) {
  const std::vector<uint8_t> silence(160, 0xD5);
  Receive(1, silence.data());
  controls.hook = nullptr;
  pacer.Pass(stop);
  EXPECT_EQ(rings.At(1).transmit.FreeCount(), 2U);
  EXPECT_EQ(rings.At(1).receive.ReadyCount(), 1U);
}

TEST_F(AudioPacer, AStoppedPassCallsNothing) {
  stop.Set();
  pacer.Pass(stop);
  EXPECT_TRUE(hook.calls.empty());
}

// The digit 5 (770 and 1336 Hz) for 100 ms, then silence: found on its timeslot only, before that block's audio.
TEST_F(AudioPacer, ADigitIsReportedBeforeTheAudioOfItsBlock) {
  hook.calls.clear();
  for (int block = 0; block < 10; ++block) {
    Receive(7, block < 5 ? TwoTones(block).data() : std::vector<uint8_t>(160, 0xD5).data());
    pacer.Pass(stop);
  }
  std::vector<std::string> delivered;
  for (const std::string& call : hook.calls)
    if (call.rfind("record", 0) == 0 || call.rfind("digit", 0) == 0)
      delivered.push_back(call.substr(0, 9) + (call[0] == 'd' ? call.substr(9) : ""));
  const auto digit = std::find(delivered.begin(), delivered.end(), "digit 0.7 5");
  ASSERT_NE(digit, delivered.end());
  EXPECT_EQ(std::count_if(delivered.begin(), delivered.end(), [](const auto& call) { return call[0] == 'd'; }), 1);
  EXPECT_EQ(digit - delivered.begin(), 1);  // found in the second block (its 204th sample), whose record call follows
  EXPECT_EQ(delivered.size(), 11U);
}

TEST_F(AudioPacer, DigitsAreNotLookedForWhereDetectionIsOff) {
  rings.At(7).detectDigits = false;
  for (int block = 0; block < 5; ++block) {
    Receive(7, TwoTones(block).data());
    pacer.Pass(stop);
  }
  for (const std::string& call : hook.calls)
    EXPECT_NE(call[0], 'd');
}

// The line goes on while the pacer stands still: a block each way on every position every 20 ms of a driven clock.
class AudioPacerStall : public testing::Test {
 protected:
  static constexpr uint32_t kBlocks = 8;
  static constexpr uint32_t kStart = 0xFFFFFF00;  // the counter wraps on the way

  AudioPacerStall() {
    EXPECT_TRUE(rings.Create(2, kBlocks));
    rings.ResetDetectors(SDtmfSettings());
    controls.hook = &hook;
  }

  // The next 20 ms of the line; the blocks carry their number.
  void LineGoesOn() {
    now += CPacerSchedule::kPeriodMs;
    for (size_t position = 0; position < rings.PositionCount(); ++position) {
      SChannelRings& channel = rings.At(position);
      if (const SReadyBlock sent = channel.transmit.PopReady(); sent.data != nullptr)
        channel.transmit.PushFree(sent.data);
      uint8_t* const block = channel.receive.PopFree();
      ASSERT_NE(block, nullptr);
      std::memset(block, lineBlocks, kBlockBytes);
      channel.receive.PushReady(block, false, 0);
    }
    ++lineBlocks;
  }

  // What one turn at this moment does to a position, its calls by their first word and the block's number.
  std::vector<std::string> Turn(const std::string& place) {
    hook.calls.clear();
    waitMs = pacer.Turn(schedule, now, stop);
    std::vector<std::string> own;
    for (const std::string& call : hook.calls) {
      if (call == "play " + place)
        own.push_back("play");
      else if (call.rfind("record " + place + " ", 0) == 0)
        own.push_back("record" + call.substr(call.rfind(' ')));
    }
    return own;
  }

  SAudioControls controls;
  CFakeHook hook;
  CCardRings rings;
  CAudioPacer pacer{controls, rings};
  CPacerSchedule schedule{kStart};
  CStopFlag stop;
  uint32_t now = kStart;
  uint32_t waitMs = 0;
  uint8_t lineBlocks = 0;
};

TEST_F(AudioPacerStall, AfterAStallOf100MsTheNextPassDeliversFiveBlocksOfEachChannelBackToBack) {
  LineGoesOn();
  Turn("0.1");  // fills the transmit ring and delivers block 0: in step from here
  LineGoesOn();
  EXPECT_EQ(Turn("1.31"), (std::vector<std::string>{"play", "record 1"}));
  for (int i = 0; i < 5; ++i)
    LineGoesOn();  // 100 ms without a turn
  const std::vector<std::string> five{"play",     "play",     "play",     "play",     "play",
                                      "record 2", "record 3", "record 4", "record 5", "record 6"};
  EXPECT_EQ(Turn("0.1"), five);
  EXPECT_EQ(waitMs, 0U);
  for (const char* place : {"0.0", "0.16", "1.0", "1.17", "1.31"}) {
    const std::string record = std::string("record ") + place + " ";
    EXPECT_EQ(std::count_if(hook.calls.begin(), hook.calls.end(),
                            [&record](const std::string& call) { return call.rfind(record, 0) == 0; }),
              5)
        << place;
  }
}

TEST_F(AudioPacerStall, TheOtherFourPassesFollowAtOnceAndThenThePacerIsInStepAgain) {
  LineGoesOn();
  Turn("0.1");
  for (int i = 0; i < 5; ++i)
    LineGoesOn();
  now += 7;
  EXPECT_EQ(Turn("0.1").size(), 10U);
  for (int pass = 0; pass < 4; ++pass) {
    EXPECT_TRUE(Turn("0.1").empty()) << pass;
    EXPECT_EQ(waitMs, 0U) << pass;
  }
  EXPECT_TRUE(Turn("0.1").empty());
  EXPECT_EQ(waitMs, 13U);  // the grid is the old one
  now -= 7;
  LineGoesOn();
  EXPECT_EQ(Turn("0.1"), (std::vector<std::string>{"play", "record 6"}));
  EXPECT_EQ(waitMs, 0U);
}

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

TEST_F(AudioPacerStop, InsideAFillNeitherAsksForTheMarkNorPutsTheBlockIntoTheRing) {
  StopIn(EMediaCall::kFillBlock);
  EXPECT_EQ(rings.At(0).transmit.ReadyCount(), 0U);
}

TEST_F(AudioPacerStop, InsideTheMarkQueryFillsNoFurtherBlock) {
  StopIn(EMediaCall::kEndsPlay);
  EXPECT_EQ(rings.At(0).transmit.ReadyCount(), 0U);
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
    fill.queued.fill(0x11);
    inCallback(fill.data);
  }
  void Stop() { controls.Flush(kPosition); }
  void StopFromAnotherThread() {
    std::thread([this] { Stop(); }).join();
  }

  // What the first block holds when it waits in the ring, and whether it would be sent so.
  std::vector<uint8_t> Filled() {
    pacer.Pass(stop);
    const SReadyBlock block = rings.At(kPosition).transmit.PopReady();
    isSent = block.tag == controls.flushCounts[kPosition];
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
  bool filled = false;
  bool isSent = false;
};

TEST_F(AudioPacerFlush, BetweenTheFillsStartAndItsTakingLeavesWhatIsTakenThenWhole) {
  beforeTaking = [this] { StopFromAnotherThread(); };
  EXPECT_EQ(Filled(), std::vector<uint8_t>(kBlockBytes, 0x11));
  EXPECT_TRUE(isSent);
}

TEST_F(AudioPacerFlush, InsideTheCallbackSilencesWhatWasTakenAndKeepsWhatIsWrittenAfterIt) {
  inCallback = [this](uint8_t* data) {
    Write(data, 0, 100);
    Stop();
    Write(data, 40, 80);
  };
  EXPECT_EQ(Filled(), Written(40, 80));
  EXPECT_TRUE(isSent);
}

TEST_F(AudioPacerFlush, InsideTheCallbackBeforeTheWholeBlockIsWrittenLosesNothingOfIt) {
  inCallback = [this](uint8_t* data) {
    Stop();
    Stop();
    std::memset(data, 0x11, kBlockBytes);  // what the queue had given, byte for byte
  };
  EXPECT_EQ(Filled(), std::vector<uint8_t>(kBlockBytes, 0x11));
  EXPECT_TRUE(isSent);
}

TEST_F(AudioPacerFlush, FromAnotherThreadWhileTheCallbackHasTheBlockSilencesWhatItDidNotWrite) {
  inCallback = [this](uint8_t* data) {
    StopFromAnotherThread();
    Write(data, 20, 60);
  };
  EXPECT_EQ(Filled(), Written(20, 60));
  EXPECT_TRUE(isSent);
}

TEST_F(AudioPacerFlush, FromAnotherThreadWhileTheCallbackOnlyLooksSilencesTheBlock) {
  inCallback = [this](uint8_t*) { StopFromAnotherThread(); };
  EXPECT_EQ(Filled(), Written(0, 0));
}

TEST_F(AudioPacerFlush, FromBothThreadsInTheCallbackKeepsWhatIsWrittenAfterItsOwn) {
  inCallback = [this](uint8_t* data) {
    StopFromAnotherThread();
    Stop();
    Write(data, 0, 10);
  };
  EXPECT_EQ(Filled(), Written(0, 10));
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

// It is in the hook when it is stopped, or asleep: either way it comes to its end without another call.
TEST_F(AudioPacer, TheThreadEndsWithoutAnotherCallOnceItIsStopped) {
  class CHolding : public CIdleHook {
   public:
    void OnCall(EMediaCall) override {
      ++calls;
      entered.Set();
      leave.Wait();
    }
    int calls = 0;
    CEvent entered;
    CEvent leave;
  } holding;
  controls.hook = &holding;
  std::thread thread([this] { pacer.Run(stop); });
  EXPECT_TRUE(holding.entered.WaitFor(5000));
  stop.Set();
  holding.leave.Set();
  thread.join();
  EXPECT_EQ(holding.calls, 1);
}

}  // namespace
}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "dsp/dtmf_filters.h"
#include "platform/mutex.h"
#include "runtime/config.h"

namespace zelk {

// One channel position's DTMF decoder: eight Goertzel filters over blocks of 102 samples, threshold tests, and a
// debounce of two equal blocks. Delivered blocks and analysed blocks are independent of each other.
// Thread: ProcessBlock, Process and TakeDigit pacer; the rest the opener. What the opener orders is left under the lock
// and done by the pacer before it touches the next sample or digit: a reset is safe at any time, falls between two
// calls of the pacer, and costs it a look at a flag. A decision never depends on anything but the samples since the
// reset and the thresholds.
class alignas(64) CDtmfDecode {
 public:
  // 12.75 ms. A digit is in two blocks in a row for sure if it lasts 38.25 ms and never if it lasts less than 25.5 ms:
  // ITU-T Q.24 asks for 40 ms to be heard and, depending on the administration, 20 to 25 ms not to be.
  static constexpr uint32_t kBlockSamples = kDtmfBlock;
  static constexpr uint32_t kDigitRoom = 128;

  CDtmfDecode() = default;
  virtual ~CDtmfDecode() = default;
  CDtmfDecode(const CDtmfDecode&) = delete;
  CDtmfDecode& operator=(const CDtmfDecode&) = delete;

  void SetThresholds(const SDtmfSettings& settings);
  void Reset();
  // A received block of A-law bytes, taken sample by sample. Never allocates. dsp/dtmf_batch.h takes a card's at once.
  void ProcessBlock(const uint8_t* alaw, uint32_t length);
  // One 16-bit linear sample; returns 0.
  int32_t Process(int16_t sample);
  // The oldest digit that is still there, or 0.
  char TakeDigit() { return digitCount != 0 ? TakeOldest() : '\0'; }

  // Kept, never read by the library: the notches at 350 and 440 Hz, which keep a dial tone from the filters and are off
  // after every reset, and the number of digits that found no room.
  void SetDialToneFilter(bool on);
  int32_t LostDigits() const;

 private:
  friend class CDtmfBatch;
  // What is kept of the bytes: the current block, which is shorter than one, and what makes the copy a whole number of
  // registers.
  static constexpr size_t kTail = 112;
  static_assert(kTail >= kBlockSamples);

  // What the opener wants and the pacer has not done yet.
  struct SOrders {
    bool reset = false;
    bool setThresholds = false;
    bool setFilter = false;
    bool filterDialTone = false;
    SDtmfSettings thresholds = kUnsetDtmf;
  };
  // Two delay elements of a second-order section, w1 the newer.
  struct SDelays {
    float w1 = 0;
    float w2 = 0;
  };
  // The eight filters in the middle of a block, rows first.
  struct SRunning {
    std::array<float, 8> newer = {};
    std::array<float, 8> older = {};
    float total = 0;
  };

  bool IsIdle() const { return (blocksInWork | inDigit | lastHit) == 0; }
  bool HasOrders() const { return hasOrders.load(std::memory_order_acquire); }
  void Obey();
  void Append(const uint8_t* alaw, uint32_t count);
  void RunOneByOne();
  void Step(float sample);
  float Notched(float sample);
  void EndRunning();
  void Debounce(char hit);
  void StoreDigit(char digit);
  char TakeOldest();

  // This order makes a delivered block on a quiet line touch two cache lines: all down to the tail.
  std::atomic<bool> hasOrders{false};
  bool oneByOne = false;     // this block's samples go through the filters as they come, none is collected
  uint8_t sampleCount = 0;   // of the current block
  uint8_t loudest = 0;       // of the bytes in the tail, at least: the largest magnitude's A-law code
  uint8_t blocksInWork = 0;  // ended, in a batch that has not decided them yet
  char inDigit = 0;          // the digit held as reported, 0 none
  char lastHit = 0;          // what the previous block showed
  uint8_t digitCount = 0;
  bool isTailSteady = false;             // all its bytes are the first one
  std::array<uint8_t, kTail> tail = {};  // its last sampleCount bytes are the current block so far

  SDtmfSettings thresholds = kUnsetDtmf;
  std::array<char, kDigitRoom + 1> digits = {};
  bool filterDialTone = false;
  std::atomic<int32_t> lostDigits{0};
  SRunning running;
  SDelays notch350;
  SDelays notch440;
  mutable CMutex lock;
  SOrders orders ZELK_GUARDED_BY(lock);
};

}  // namespace zelk

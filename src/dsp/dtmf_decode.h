// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>

#include "platform/mutex.h"
#include "runtime/config.h"

namespace zelk {

// One channel position's DTMF decoder: eight Goertzel filters over blocks of 102 samples, threshold tests, and a
// debounce of two equal blocks. Delivered blocks and analysed blocks are independent of each other.
// Thread: ProcessBlock, Process and TakeDigit pacer; the rest the opener. One lock, held for one delivered block, makes
// a reset safe at any time; a decision never depends on anything but the samples since the reset and the thresholds.
class CDtmfDecode {
 public:
  // 12.75 ms. A digit is in two blocks in a row for sure if it lasts 38.25 ms and never if it lasts less than 25.5 ms:
  // ITU-T Q.24 asks for 40 ms to be heard and, depending on the administration, 20 to 25 ms not to be.
  static constexpr uint32_t kBlockSamples = 102;
  static constexpr uint32_t kDigitRoom = 128;

  CDtmfDecode();
  virtual ~CDtmfDecode() = default;
  CDtmfDecode(const CDtmfDecode&) = delete;
  CDtmfDecode& operator=(const CDtmfDecode&) = delete;

  void SetThresholds(const SDtmfSettings& settings);
  void Reset();
  // A received block of A-law bytes, expanded and taken sample by sample. Never allocates.
  void ProcessBlock(const uint8_t* alaw, uint32_t length);
  // One 16-bit linear sample; returns 0.
  int32_t Process(int16_t sample);
  // The oldest digit that is still there, or 0.
  char TakeDigit();

  // Kept, never read by the library: the notches at 350 and 440 Hz, which keep a dial tone from the filters and are off
  // after every reset, and the number of digits that found no room.
  void SetDialToneFilter(bool on);
  int32_t LostDigits() const;

 private:
  // Two delay elements of a second-order section, w1 the newer.
  struct SDelays {
    float w1 = 0;
    float w2 = 0;
  };

  void Took(uint32_t count) ZELK_REQUIRES(lock);
  float Notched(float sample) ZELK_REQUIRES(lock);
  void EndBlock() ZELK_REQUIRES(lock);
  char BlockHit() const ZELK_REQUIRES(lock);
  void Debounce(char hit) ZELK_REQUIRES(lock);
  void StoreDigit(char digit) ZELK_REQUIRES(lock);

  mutable CMutex lock;
  bool filterDialTone ZELK_GUARDED_BY(lock) = false;
  SDtmfSettings thresholds ZELK_GUARDED_BY(lock) = kUnsetDtmf;
  SDelays notch350 ZELK_GUARDED_BY(lock);
  SDelays notch440 ZELK_GUARDED_BY(lock);
  char inDigit ZELK_GUARDED_BY(lock) = 0;  // the digit held as reported, 0 none
  char lastHit ZELK_GUARDED_BY(lock) = 0;  // what the previous block showed
  uint32_t sampleCount ZELK_GUARDED_BY(lock) = 0;
  alignas(32) std::array<float, kBlockSamples> samples ZELK_GUARDED_BY(lock) = {};  // of the current block
  std::array<char, kDigitRoom + 1> digits ZELK_GUARDED_BY(lock) = {};
  uint32_t digitCount ZELK_GUARDED_BY(lock) = 0;
  int32_t lostDigits ZELK_GUARDED_BY(lock) = 0;
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <span>

#include "runtime/e1.h"
#include "stream/block_pool.h"

namespace zelk {

using AudioBlock = std::span<uint8_t, kBlockBytes>;

// A block on its way to the transmit ring, and what is known of stops of its position while it is filled.
struct SBlockFill {
  uint8_t* data = nullptr;                  // kBlockBytes, to be filled
  uint32_t flushCount = 0;                  // of the position, when the bytes left its play queue
  int16_t wasUniform = kNotUniform;         // what all bytes of the block are known to be, from the time before
  int16_t uniform = kNotUniform;            // the same from now on
  bool isKept = false;                      // the application has had the block, and `queued` is what it found
  std::array<uint8_t, kBlockBytes> queued;  // read only when kept

  // Makes it the fill of another block. What the bytes above are is left open: most fills never need them.
  void Begin(uint8_t* block, uint32_t count, int16_t known) {
    data = block;
    flushCount = count;
    wasUniform = known;
    uniform = kNotUniform;
    isKept = false;
  }
  // All bytes the same: written only when they are not known to be there.
  void FillWith(uint8_t byte) {
    uniform = byte;
    if (wasUniform != byte)
      std::memset(data, byte, kBlockBytes);
  }
  // The bytes that are in the block now are those of the queue; the application may write into it from here on.
  void KeepQueued() {
    std::copy_n(data, kBlockBytes, queued.begin());
    isKept = true;
    uniform = kNotUniform;
  }
};

// How a card's audio reaches the channels. One object a card, which outlives the card's open audio. Every position of
// the card is asked and told, timeslots without a channel too. Thread: pacer; OnMarkSent receive. Must not block.
class IMediaHook {
 public:
  virtual ~IMediaHook() = default;
  // A pass comes to this position soon: what its fill will read may be brought into the cache. Changes nothing.
  virtual void Foresee(uint32_t /*trunk*/, uint32_t /*timeslot*/) {}
  // MEDIA_PLAY (0x202): puts the next audio to send into the block, with the flush count under which it came from the
  // queue, and keeps the queue's bytes before the application gets the block.
  virtual void FillBlock(uint32_t trunk, uint32_t timeslot, SBlockFill& fill) = 0;
  // MEDIA_PLAY_MARK (0x204): whether the block just filled ends a play. Asked once after each fill.
  virtual bool EndsPlay(uint32_t trunk, uint32_t timeslot) = 0;
  // MEDIA_PLAY_MARK (0x204): a block that ended a play went out.
  virtual void OnMarkSent(uint32_t trunk, uint32_t timeslot) = 0;
  // MEDIA_RECORD (0x201): a received block, after its digits. What is written into it goes nowhere; false when nothing
  // can have been.
  virtual bool OnBlockReceived(uint32_t trunk, uint32_t timeslot, AudioBlock block) = 0;
  // MEDIA_DTMF (0x203): one of 0-9, A-D, * and #.
  virtual void OnDigit(uint32_t trunk, uint32_t timeslot, char digit) = 0;
};

// Where the audio sequence rules report what they saw (a card's log lines of code 1).
// Thread: receive.
class IAudioNotice {
 public:
  virtual ~IAudioNotice() = default;
  virtual void OnAudioNotice(const char* text) = 0;
};

}  // namespace zelk

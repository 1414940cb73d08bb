#pragma once

#include <array>
#include <cstdint>
#include <cstring>

namespace zelk {

constexpr uint32_t kMaxTrunks = 8;           // E1 ports of one card
constexpr uint32_t kTimeslotsPerTrunk = 32;  // 0 is framing, 16 signalling: no channel stands there
constexpr uint32_t kBlockBytes = 160;        // 20 ms of 8 kHz A-law, the unit between card and application

enum EMediaCode : uint32_t {
  MEDIA_RECORD = 0x201,  // data: a received block, length its bytes
  MEDIA_PLAY = 0x202,    // data: a block to fill with the next audio to send, length its bytes
  MEDIA_DTMF = 0x203,    // data: null, length: the digit character
  MEDIA_PLAY_MARK =
      0x204,  // data: uint32_t to set to 1 if the block just filled ends a play; null: that block went out
};

// A block on its way to the transmit ring, and what is known of stops of its position while it is filled.
struct SBlockFill {
  uint8_t* data = nullptr;                   // kBlockBytes, to be filled
  uint32_t flushCount = 0;                   // of the position, at the moment when the bytes were taken from its queue
  std::array<uint8_t, kBlockBytes> taken{};  // those bytes, as the application found them
};

// How a card's audio reaches the channels. One object a card, which outlives the card's open audio.
// Thread: pacer; the mark of a block that went out comes on the receive thread. Must not block.
class IMediaHook {
 public:
  virtual ~IMediaHook() = default;
  virtual void OnMedia(uint16_t trunk, uint16_t timeslot, EMediaCode code, void* data, uint32_t length) = 0;
  // MEDIA_PLAY for a hook whose positions can be stopped meanwhile: it says what it took, and under which flush count.
  // For any other hook all that is in the block afterwards counts as taken before.
  virtual void OnFill(uint16_t trunk, uint16_t timeslot, SBlockFill& fill) {
    OnMedia(trunk, timeslot, MEDIA_PLAY, fill.data, kBlockBytes);
    std::memcpy(fill.taken.data(), fill.data, kBlockBytes);
  }
};

// Where the audio sequence rules report what they saw (a card's log lines of code 1).
// Thread: receive.
class IAudioNotice {
 public:
  virtual ~IAudioNotice() = default;
  virtual void OnAudioNotice(const char* text) = 0;
};

}  // namespace zelk

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "media/buffer.h"
#include "media/dword_queue.h"
#include "media/wave_block.h"
#include "platform/mutex.h"

namespace zelk {

// The layout of the format record of a WAV file, as the play queue keeps it.
struct SWaveFormat {
  uint16_t formatTag = 6;  // 1 linear, 6 A-law, 7 mu-law
  uint16_t channels = 1;
  uint32_t samplesPerSecond = 8000;
  uint32_t averageBytesPerSecond = 8000;
  uint16_t blockAlign = 1;
  uint16_t bitsPerSample = 8;
  uint16_t extraSize = 0;
};

// What a play queue needs of the channel that owns it.
class IWaveOwner {
 public:
  virtual ~IWaveOwner() = default;
  // Silences what waits in the channel's transmit ring on its card. Thread: any.
  virtual void SilenceTransmit() = 0;
  // The number that the channel's log lines carry.
  virtual int32_t LogChannel() const = 0;
};

// One channel's play queue and format record. (Draft of the public shape; fields are the implementer's.)
// Thread: application (Open, Close, Enqueue, Flush, TimeLeftMs), pacer (FillBlock, QueryPlayMark, RecordTap),
// receive (PlayMarkSent).
class CWave {
 public:
  explicit CWave(IWaveOwner& owner);
  virtual ~CWave();
  CWave(const CWave&) = delete;
  CWave& operator=(const CWave&) = delete;

  // First opening since construction or Close: resets the queue, arms the tap state 0 and marks the queue open. Nothing
  // when it is open already.
  void Open();
  // Tap state -1, queue flushed, open flag cleared. Nothing when it is not open.
  void Close();
  bool IsOpen() const;

  // A block for `size` bytes, or null (logged) when there is no memory.
  std::unique_ptr<CWaveBlock> NewBlock(uint32_t size);
  void Enqueue(std::unique_ptr<CWaveBlock> block);
  void Flush();
  uint32_t TimeLeftMs() const;

  void FillBlock(uint8_t* data, uint32_t length);
  // Asked after each fill: true exactly when this block ends a play (and the mark is then on its way).
  bool QueryPlayMark();
  // The marked block went out: true when the play-complete event is due.
  bool PlayMarkSent();
  void RecordTap(uint8_t* data, uint32_t length);

  // "PCM8", "PCM16", "ALAW", "MULAW", or the empty text for any other format record. Constant texts.
  const char* FormatName() const;
  // For tests and file playback into other formats; the library itself leaves the default.
  void SetFormat(const SWaveFormat& format);
};

}  // namespace zelk

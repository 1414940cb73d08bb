// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <new>

#include "formats/wave_format.h"
#include "platform/mutex.h"
#include "playback/buffer.h"
#include "playback/dword_queue.h"
#include "playback/wave_block.h"
#include "runtime/e1.h"
#include "runtime/prefetch.h"

namespace zelk {

// What a play queue needs of the channel that owns it.
class IWaveOwner {
 public:
  virtual ~IWaveOwner() = default;
  // Silences what waits in the channel's transmit ring on its card. Thread: any.
  // Called under the queue's lock, so that it is in step with what a fill takes.
  virtual void SilenceTransmit() = 0;
  // The number that the channel's log lines carry.
  virtual int32_t LogChannel() const = 0;
};

// Sees every block of a channel in both directions. direction: 1 play, 0 record.
using WaveDataCallback = void (*)(uint32_t direction, uint64_t cookie, uint8_t* data, uint32_t length);

// One channel's play queue, format record and record tap.
// Thread: application (Open, Close, Enqueue, Flush, TimeLeftMs, formats), pacer (FillBlock, QueryPlayMark, RecordTap),
// receive (PlayMarkSent). TimeLeftMs and the mark exchange take no lock; the others hold it for a few instructions (a
// fill for the copy of one block), and nothing waits under it. Owns the queued blocks. Failures: null, false.
// Queues that are made with new stand side by side, in the order in which they are made: a pass over a card's channels
// walks memory forward.
class alignas(kCacheLineBytes) CWave {
 public:
  static void* operator new(size_t bytes, std::align_val_t alignment);
  static void operator delete(void* place, std::align_val_t alignment);

  static constexpr uint32_t kNoRecordLimit = 0xFFFFFFFF;
  // The two settings that Open stores beside the format record. Kept, never read by the library.
  static constexpr std::array<uint32_t, 2> kOpenSettings = {800, 3};

  // silencings: counts what the owner has silenced, for as long as the queue lives; null without a ring.
  explicit CWave(IWaveOwner& owner, const std::atomic<uint32_t>* silencings = nullptr);
  virtual ~CWave();
  CWave(const CWave&) = delete;
  CWave& operator=(const CWave&) = delete;

  // First open since construction or Close: resets the queue, arms the tap state 0 and marks the queue open. Nothing
  // when it is open already.
  void Open();
  // Tap state -1, queue flushed, open flag cleared. Nothing when it is not open.
  void Close();
  bool IsOpen() const;

  // A block for `size` bytes, or null (logged) when there is no memory.
  std::unique_ptr<CWaveBlock> NewBlock(uint32_t size);
  // False, and the block is released, when more than 2^31 - 1 bytes would be queued.
  bool Enqueue(std::unique_ptr<CWaveBlock> block);
  // Drops what is queued and silences what waits for transmission; no play-complete event. Nothing when not open.
  void Flush();
  bool IsStopping() const { return stopFlag != 0; }  // a flush is under way
  uint32_t TimeLeftMs() const;
  uint32_t QueuedBytes() const {
    return static_cast<uint32_t>(std::max(queuedBytes.load(std::memory_order_relaxed), 0));
  }

  // Whether the next fill would give silence and change nothing. Takes no lock, reads nothing but this queue's state:
  // what a channel without a play costs every 20 ms.
  bool IsIdle() const {
    const bool isStopped = !open.load(std::memory_order_relaxed) || stopFlag.load(std::memory_order_relaxed) != 0;
    const bool isEmpty =
        !hasBlocks.load(std::memory_order_acquire) && playState.load(std::memory_order_acquire) != EPlayState::kPlaying;
    return (isStopped || isEmpty) && dataCallback.load(std::memory_order_relaxed) == nullptr;
  }
  // Has the queue say there whether it is busy, from now on: whether a fill, the query after it or a received block
  // finds anything to do but A-law silence. A pacer that reads it in a table of many need not come to the idle ones.
  // Before audio flows.
  void ShowBusyIn(std::atomic<bool>& place);
  // Asks for the memory of what a fill looks at, and of what it will copy.
  void ForeseeState() const { Prefetch(this, 2 * kCacheLineBytes); }
  void ForeseeAudio() const { Prefetch(nextAudio.load(std::memory_order_relaxed), kBlockBytes); }
  // The byte of the format's silence.
  uint8_t Silence() const { return silence.load(std::memory_order_relaxed); }
  // The flush count at the moment when the bytes were taken: a later stop is meant for them, an earlier one is not.
  uint32_t FillBlock(uint8_t* data, uint32_t length);
  // Asked after each fill: true exactly when this block ends a play (and the mark is then on its way).
  bool QueryPlayMark();
  // The marked block went out: true when the play-complete event is due.
  bool PlayMarkSent();
  void RecordTap(uint8_t* data, uint32_t length);

  // "PCM8", "PCM16", "ALAW", "MULAW", or the empty text for any other format record. Constant texts.
  const char* FormatName() const;
  // For tests and file playback into other formats; the library itself leaves the default.
  void SetFormat(const SWaveFormat& format);

  // Kept, never read by the library: the record tap with its buffer, the data callback, the two settings of Open and
  // a queue of numbers. The callback is set before audio flows; null removes it.
  void SetDataCallback(WaveDataCallback callback, uint64_t cookie);
  // Starts recording into the buffer, up to limit bytes in all. Nothing when the queue is not open.
  void StartRecord(uint32_t limit);
  int32_t RecordState() const;                                  // -1 never armed, 0 off, 1 recording
  const CBuffer& RecordBuffer() const { return recordBuffer; }  // Thread: pacer, or any when no audio flows.
  std::array<uint32_t, 2> OpenSettings() const;
  CDwordQueue& Queue() { return queue; }

 private:
  // The life of one play; a new enqueue leads to kPlaying from everywhere, a flush to kIdle. One value instead of a
  // "has data" and an "ended" flag, so that readers without the lock never see half a change.
  //   kIdle -> kPlaying -> kDrained (a fill found nothing left) -> kMarked (end mark given to the ring) -> kIdle
  //   (event)
  enum class EPlayState : uint8_t { kIdle, kPlaying, kDrained, kMarked };

  void Reset();
  void SetHead(std::unique_ptr<CWaveBlock> block) ZELK_REQUIRES(lock);
  void NoteBusy() ZELK_REQUIRES(lock);
  void DropAll(std::unique_ptr<CWaveBlock> list);
  uint32_t FlushCount() const { return flushes != nullptr ? flushes->load(std::memory_order_acquire) : 0; }
  // The bytes that were copied.
  uint32_t CopyQueued(uint8_t* data, uint32_t length) ZELK_REQUIRES(lock);
  void StoreFormat(const SWaveFormat& value) ZELK_REQUIRES(lock);
  void CallDataCallback(uint32_t direction, uint8_t* data, uint32_t length);

  // What a fill looks at stands together, from the object's first cache line on.
  std::atomic<bool> open{false};
  std::atomic<EPlayState> playState{EPlayState::kIdle};
  std::atomic<bool> hasBlocks{false};  // whether there is a head; written under the lock
  std::atomic<uint8_t> silence;        // of the format; the fill must not wait for the lock to know it
  std::atomic<int32_t> stopFlag{0};    // -1 while a stop is in progress
  std::atomic<int32_t> recordState{-1};
  std::atomic<int32_t> queuedBytes{0};  // written under the lock; below 0 once audio from before an Open was played
  std::atomic<WaveDataCallback> dataCallback{nullptr};
  // Where the next fill reads, in the first block. Without the lock it is never read through: the bytes may be gone.
  std::atomic<const uint8_t*> nextAudio{nullptr};
  uint32_t unread ZELK_GUARDED_BY(lock) = 0;  // bytes from there to the block's end
  std::unique_ptr<CWaveBlock> head ZELK_GUARDED_BY(lock);
  CWaveBlock* tail ZELK_GUARDED_BY(lock) = nullptr;
  mutable CMutex lock;
  std::atomic<bool>* busy ZELK_GUARDED_BY(lock) = nullptr;
  const std::atomic<uint32_t>* const flushes;
  IWaveOwner& owner;
  SWaveFormat format ZELK_GUARDED_BY(lock);

  // Kept, never read by the library.
  std::array<uint32_t, 2> openSettings ZELK_GUARDED_BY(lock) = {};
  std::atomic<uint32_t> recordLimit{kNoRecordLimit};
  CBuffer recordBuffer;  // pacer only
  std::atomic<uint64_t> dataCookie{0};
  CDwordQueue queue;
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "playback/wave.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "formats/g711.h"
#include "platform/memory/large_memory.h"
#include "runtime/log.h"
#include "runtime/shelf.h"

namespace zelk {
namespace {

constexpr uint32_t kQueueCapacity = 40;
constexpr int32_t kStopping = -1;
constexpr int32_t kTapOff = 0;
constexpr int32_t kTapRecording = 1;
constexpr int32_t kTapUnarmed = -1;
constexpr int64_t kMaxQueuedBytes = std::numeric_limits<int32_t>::max();

// As many as there are channels at most. Queues beyond that come from the heap.
constexpr size_t kSideBySide = 1024;
constinit CShelf<sizeof(CWave), kSideBySide> shelf;

uint8_t SilenceByte(const SWaveFormat& record) {
  const SSampleFormat* const format = SampleFormatOf(record);
  return format ? format->silence : 0;
}

}  // namespace

CWave::CWave(IWaveOwner& waveOwner, const std::atomic<uint32_t>* silencings)
    : silence(SilenceByte(SWaveFormat{})), flushes(silencings), owner(waveOwner) {
  queue.Create(kQueueCapacity);
}

void* CWave::operator new(size_t bytes, std::align_val_t alignment) {
  void* const place = !kMemoryIsWatched && bytes == sizeof(CWave) ? shelf.Take() : nullptr;
  return place != nullptr ? place : ::operator new(bytes, alignment);
}

void CWave::operator delete(void* place, std::align_val_t alignment) {
  if (kMemoryIsWatched || !shelf.Return(place))
    ::operator delete(place, alignment);
}

CWave::~CWave() {
  Close();
  DropAll(std::move(head));  // what was queued on a channel that was never opened
}

void CWave::Open() {
  if (open) {
    return;
  }
  {
    CScopedLock<CMutex> hold(lock);
    openSettings = kOpenSettings;
  }
  Reset();
  recordState = kTapOff;
  open = true;
  CScopedLock<CMutex> hold(lock);
  NoteBusy();
}

void CWave::Close() {
  if (!open) {
    return;
  }
  recordState = kTapUnarmed;
  Flush();
  open = false;
}

bool CWave::IsOpen() const {
  return open;
}

// The counters start over, the list does not: audio queued before the opening is played after it, without time left and
// without a play-complete event, and takes the count of queued bytes below zero. Applications know it so.
void CWave::Reset() {
  {
    CScopedLock<CMutex> hold(lock);
    queuedBytes = 0;
    stopFlag = 0;
    playState = EPlayState::kIdle;
    StoreFormat(SWaveFormat{});
  }
  Flush();
}

std::unique_ptr<CWaveBlock> CWave::NewBlock(uint32_t size) {
  std::unique_ptr<CWaveBlock> block;
  if (size <= kMaxQueuedBytes) {
    block = CWaveBlock::Create(size, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this)));
  }
  if (!block) {
    // The log's writer takes a line up at once, so there is nothing more to flush here.
    LogFormat(ELogClass::kStatus, owner.LogChannel(), "NewBlock() -> malloc() returned error when allocating %d bytes",
              static_cast<int>(size));
  }
  return block;
}

bool CWave::Enqueue(std::unique_ptr<CWaveBlock> block) {
  if (!block) {
    return false;
  }
  if (playState != EPlayState::kPlaying) {
    // At the start of a play a fill that waits for the lock goes first.
    lock.Lock();
    lock.Unlock();
  }
  CScopedLock<CMutex> hold(lock);
  if (int64_t{queuedBytes} + block->size > kMaxQueuedBytes) {
    return false;
  }
  CWaveBlock* const added = block.get();
  if (head) {
    tail->next = std::move(block);
  } else {
    SetHead(std::move(block));
  }
  tail = added;
  queuedBytes += static_cast<int32_t>(added->size);
  playState = EPlayState::kPlaying;
  NoteBusy();
  return true;
}

void CWave::Flush() {
  if (!open) {
    return;
  }
  stopFlag = kStopping;  // before the lock: a fill skips the list instead of waiting
  std::unique_ptr<CWaveBlock> dropped;
  {
    CScopedLock<CMutex> hold(lock);
    dropped = std::move(head);
    SetHead(nullptr);
    playState = EPlayState::kIdle;
    queuedBytes = 0;
    owner.SilenceTransmit();  // before anything can be queued or taken again
    stopFlag = 0;
    NoteBusy();
  }
  DropAll(std::move(dropped));
}

// Link by link: a long list would overflow the stack if each block released the next.
void CWave::DropAll(std::unique_ptr<CWaveBlock> list) {
  while (list) {
    list = std::move(list->next);
  }
}

uint32_t CWave::TimeLeftMs() const {
  const int32_t queued = queuedBytes;
  if (queued < 0) {
    return 0;
  }
  const uint32_t milliseconds = static_cast<uint32_t>(queued) / 8;
  return milliseconds == 0 && playState != EPlayState::kIdle ? 1 : milliseconds;
}

uint32_t CWave::FillBlock(uint8_t* data, uint32_t length) {
  if (open && stopFlag != kStopping) {
    CScopedLock<CMutex> hold(lock);
    if (playState == EPlayState::kPlaying && !head) {
      playState = EPlayState::kDrained;
    }
    const uint32_t count = FlushCount();
    const uint32_t copied = CopyQueued(data, length);
    std::memset(data + copied, silence, length - copied);
    CallDataCallback(1, data, length);
    NoteBusy();
    return count;
  }
  std::memset(data, silence, length);
  const uint32_t count = FlushCount();
  CallDataCallback(1, data, length);
  return count;
}

uint32_t CWave::CopyQueued(uint8_t* data, uint32_t length) {
  uint32_t copied = 0;
  while (copied < length && head) {
    const uint32_t wanted = length - copied;
    const bool staysQueued = unread >= wanted;
    const uint32_t count = std::min(wanted, unread);
    const uint8_t* const from = nextAudio.load(std::memory_order_relaxed);
    std::memcpy(data + copied, from, count);
    nextAudio.store(from + count, std::memory_order_relaxed);
    unread -= count;
    copied += count;
    queuedBytes.store(queuedBytes.load(std::memory_order_relaxed) - static_cast<int32_t>(count),
                      std::memory_order_relaxed);
    if (staysQueued) {
      break;  // a block read to its last byte goes with the next fill, so a play ends one silent block later
    }
    SetHead(std::move(head->next));
  }
  return copied;
}

// What is read of the first block is kept here: a fill need not touch the block's record.
void CWave::SetHead(std::unique_ptr<CWaveBlock> block) {
  head = std::move(block);
  tail = head ? tail : nullptr;
  unread = head ? head->size : 0;
  nextAudio.store(head ? head->Data() : nullptr, std::memory_order_relaxed);
  hasBlocks.store(head != nullptr, std::memory_order_release);
}

void CWave::ShowBusyIn(std::atomic<bool>& place) {
  CScopedLock<CMutex> hold(lock);
  busy = &place;
  NoteBusy();
}

// After every change toward busy, so that whoever reads "idle" is at most as far behind as one who came before it.
void CWave::NoteBusy() {
  if (busy == nullptr) {
    return;
  }
  const bool hasToSay = playState == EPlayState::kDrained || silence != kALawSilence || recordState == kTapRecording;
  busy->store(hasToSay || !IsIdle(), std::memory_order_release);
}

bool CWave::QueryPlayMark() {
  EPlayState expected = EPlayState::kDrained;
  if (playState != expected || !playState.compare_exchange_strong(expected, EPlayState::kMarked)) {
    return false;
  }
  CScopedLock<CMutex> hold(lock);
  NoteBusy();
  return true;
}

bool CWave::PlayMarkSent() {
  EPlayState expected = EPlayState::kMarked;
  return playState.compare_exchange_strong(expected, EPlayState::kIdle);
}

void CWave::RecordTap(uint8_t* data, uint32_t length) {
  int32_t state = recordState;
  if (open && state == kTapRecording) {
    const uint32_t limit = recordLimit;
    const uint64_t recorded = recordBuffer.Length();
    if (limit != kNoRecordLimit && recorded + length > limit) {
      recordBuffer.Append(data, limit > recorded ? static_cast<uint32_t>(limit - recorded) : 0);
      recordState.compare_exchange_strong(state, kTapOff);  // a Close meanwhile keeps its -1
    } else {
      recordBuffer.Append(data, length);  // without memory this block is lost, recording goes on
    }
  }
  CallDataCallback(0, data, length);
}

void CWave::CallDataCallback(uint32_t direction, uint8_t* data, uint32_t length) {
  if (const WaveDataCallback callback = dataCallback) {
    callback(direction, dataCookie, data, length);
  }
}

const char* CWave::FormatName() const {
  CScopedLock<CMutex> hold(lock);
  const SSampleFormat* const known = SampleFormatOf(format);
  return known ? known->name : "";
}

void CWave::SetFormat(const SWaveFormat& value) {
  CScopedLock<CMutex> hold(lock);
  StoreFormat(value);
  NoteBusy();
}

void CWave::StoreFormat(const SWaveFormat& value) {
  format = value;
  silence = SilenceByte(value);
}

void CWave::SetDataCallback(WaveDataCallback callback, uint64_t cookie) {
  dataCookie = cookie;
  dataCallback = callback;
  CScopedLock<CMutex> hold(lock);
  NoteBusy();
}

void CWave::StartRecord(uint32_t limit) {
  recordLimit = limit;
  int32_t expected = kTapOff;
  recordState.compare_exchange_strong(expected, kTapRecording);
  CScopedLock<CMutex> hold(lock);
  NoteBusy();
}

int32_t CWave::RecordState() const {
  return recordState;
}

std::array<uint32_t, 2> CWave::OpenSettings() const {
  CScopedLock<CMutex> hold(lock);
  return openSettings;
}

}  // namespace zelk

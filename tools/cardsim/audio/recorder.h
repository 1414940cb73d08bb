// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "cardsim/base/bytes.h"

namespace cardsim {

// Job: keeps every byte that the library sent in one timeslot, in order. Thread: audio appends, any reads and waits.
// Only the waits block. Owned by shared pointers of the timeslot and of whoever listens. Waits return false on
// time-out.
class CRecorder {
 public:
  // Runs on the audio thread; must not block. The bytes and the number of the frame that they begin with.
  using Sink = std::function<void(ByteView data, std::uint64_t frame)>;

  CRecorder() = default;
  // Hands the bytes on instead of keeping them, for runs of hours.
  explicit CRecorder(Sink passOn) : sink(std::move(passOn)) {}

  // `frame` is the number, since the audio started, of the frame that `data` begins with.
  void Append(ByteView data, std::uint64_t frame);

  std::size_t Size() const;
  Bytes Samples() const;
  // Number of the frame of the first byte; 0 while empty.
  std::uint64_t FirstFrame() const;
  void Clear();

  bool WaitSize(std::size_t bytes, std::chrono::milliseconds timeout) const;
  // True once the pattern was heard at or behind `from`; `position` receives where it begins.
  bool WaitContains(ByteView pattern, std::chrono::milliseconds timeout, std::size_t* position = nullptr,
                    std::size_t from = 0) const;

 private:
  const Sink sink;
  mutable std::mutex lock;
  mutable std::condition_variable changed;
  Bytes samples;                 // guarded by lock
  std::uint64_t firstFrame = 0;  // guarded by lock
};

using Recorder = std::shared_ptr<CRecorder>;

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/recorder.h"

#include <algorithm>

namespace cardsim {

void CRecorder::Append(ByteView data, std::uint64_t frame) {
  if (sink) {
    sink(data, frame);
    return;
  }
  {
    const std::lock_guard guard(lock);
    if (samples.empty()) {
      firstFrame = frame;
    }
    samples.insert(samples.end(), data.begin(), data.end());
  }
  changed.notify_all();
}

std::size_t CRecorder::Size() const {
  const std::lock_guard guard(lock);
  return samples.size();
}

Bytes CRecorder::Samples() const {
  const std::lock_guard guard(lock);
  return samples;
}

std::uint64_t CRecorder::FirstFrame() const {
  const std::lock_guard guard(lock);
  return firstFrame;
}

void CRecorder::Clear() {
  const std::lock_guard guard(lock);
  samples.clear();
  firstFrame = 0;
}

bool CRecorder::WaitSize(std::size_t bytes, std::chrono::milliseconds timeout) const {
  std::unique_lock guard(lock);
  return changed.wait_for(guard, timeout, [&] { return samples.size() >= bytes; });
}

bool CRecorder::WaitContains(ByteView pattern, std::chrono::milliseconds timeout, std::size_t* position,
                             std::size_t from) const {
  std::size_t searched = from;
  std::ptrdiff_t found = -1;
  std::unique_lock guard(lock);
  const auto heard = [&] {
    const std::size_t begin = std::min(searched, samples.size());
    found = FindBytes(ByteView(samples).subspan(begin), pattern);
    if (found >= 0) {
      found += static_cast<std::ptrdiff_t>(begin);
      return true;
    }
    // What was searched in vain need not be searched again, but for a beginning of the pattern at its end.
    searched = std::max(from, samples.size() >= pattern.size() ? samples.size() - pattern.size() + 1 : 0);
    return false;
  };
  const bool result = changed.wait_for(guard, timeout, heard);
  if (result && position != nullptr) {
    *position = static_cast<std::size_t>(found);
  }
  return result;
}

}  // namespace cardsim

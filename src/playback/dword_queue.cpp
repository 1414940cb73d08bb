// SPDX-License-Identifier: GPL-2.0-only
#include "playback/dword_queue.h"

#include <algorithm>
#include <new>

namespace zelk {

bool CDwordQueue::Create(uint32_t capacity) {
  std::unique_ptr<uint32_t[]> fresh(new (std::nothrow) uint32_t[capacity]());
  CScopedLock<CMutex> hold(lock);
  head = tail = count = 0;
  room = fresh ? capacity : 0;
  storage = std::move(fresh);
  return storage != nullptr;
}

void CDwordQueue::Clear() {
  CScopedLock<CMutex> hold(lock);
  head = tail = count = 0;
  std::fill_n(storage.get(), room, 0U);
}

bool CDwordQueue::Push(uint32_t value) {
  CScopedLock<CMutex> hold(lock);
  if (count == room) {
    return false;
  }
  storage[tail] = value;
  tail = (tail + 1) % room;
  ++count;
  return true;
}

bool CDwordQueue::Pop(uint32_t& value) {
  CScopedLock<CMutex> hold(lock);
  if (count == 0) {
    return false;
  }
  value = storage[head];
  head = (head + 1) % room;
  --count;
  return true;
}

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "native/mutex.h"

// Names for clang's thread-safety analysis; other compilers see nothing. The analysis runs in `scripts/dev lint`.
#if defined(__clang__)
#define ZELK_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ZELK_THREAD_ATTRIBUTE(x)
#endif

#define ZELK_CAPABILITY(x) ZELK_THREAD_ATTRIBUTE(capability(x))
#define ZELK_SCOPED_CAPABILITY ZELK_THREAD_ATTRIBUTE(scoped_lockable)
#define ZELK_GUARDED_BY(x) ZELK_THREAD_ATTRIBUTE(guarded_by(x))
#define ZELK_PT_GUARDED_BY(x) ZELK_THREAD_ATTRIBUTE(pt_guarded_by(x))
#define ZELK_REQUIRES(...) ZELK_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ZELK_EXCLUDES(...) ZELK_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ZELK_ACQUIRE(...) ZELK_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ZELK_TRY_ACQUIRE(...) ZELK_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define ZELK_RELEASE(...) ZELK_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ZELK_NO_THREAD_SAFETY_ANALYSIS ZELK_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace zelk {

// The locks of the library, annotated for clang's analysis. Order everywhere: trunk lock, channel call lock, channel
// information lock, queue locks; play-queue, DTMF and log locks are leaves.
// Thread: any. Lock() blocks until the lock is free.
class ZELK_CAPABILITY("mutex") CMutex {
 public:
  void Lock() ZELK_ACQUIRE() { mutex.lock(); }
  void Unlock() ZELK_RELEASE() { mutex.unlock(); }

 private:
  CNativeMutex mutex;
};

// The trunk lock: the thread that holds it may take it again. The analysis knows no re-entrancy, so it is annotated
// only where it is taken from outside.
class ZELK_CAPABILITY("mutex") CRecursiveMutex {
 public:
  void Lock() ZELK_ACQUIRE() { mutex.lock(); }
  // False at once when another thread holds it.
  bool TryLock() ZELK_TRY_ACQUIRE(true) { return mutex.try_lock(); }
  void Unlock() ZELK_RELEASE() { mutex.unlock(); }

 private:
  CNativeRecursiveMutex mutex;
};

// Holds a lock for the length of a block.
template <class Mutex>
class ZELK_SCOPED_CAPABILITY CScopedLock {
 public:
  explicit CScopedLock(Mutex& mutex) ZELK_ACQUIRE(mutex) : held(mutex) { held.Lock(); }
  ~CScopedLock() ZELK_RELEASE() { held.Unlock(); }
  CScopedLock(const CScopedLock&) = delete;
  CScopedLock& operator=(const CScopedLock&) = delete;

 private:
  Mutex& held;
};

}  // namespace zelk

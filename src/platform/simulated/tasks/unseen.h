// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#if defined(__SANITIZE_THREAD__)
#define ZELK_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZELK_THREAD_SANITIZER 1
#endif
#endif

#ifdef ZELK_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>

extern "C" {
void AnnotateIgnoreReadsBegin(const char* file, int line);
void AnnotateIgnoreReadsEnd(const char* file, int line);
void AnnotateIgnoreWritesBegin(const char* file, int line);
void AnnotateIgnoreWritesEnd(const char* file, int line);
}
#endif

namespace zelk::sim {

// What the thread sanitizer is told about tasks on threads of their own. The world's own data are safe by the baton,
// which it does not see (carrier.h), so it must not see them either; the order that the tasks' locks and events make is
// said to it. Nothing of this is there in other builds.
#ifdef ZELK_THREAD_SANITIZER
class CUnseen {
 public:
  CUnseen() {
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
  }
  ~CUnseen() {
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
  }
  CUnseen(const CUnseen&) = delete;
  CUnseen& operator=(const CUnseen&) = delete;
};
inline void Publish(void* object) {
  __tsan_release(object);
}
inline void Receive(void* object) {
  __tsan_acquire(object);
}
#else
class CUnseen {
 public:
  CUnseen() {}
  ~CUnseen() {}
  CUnseen(const CUnseen&) = delete;
  CUnseen& operator=(const CUnseen&) = delete;
};
inline void Publish(void*) {}
inline void Receive(void*) {}
#endif

}  // namespace zelk::sim

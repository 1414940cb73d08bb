// SPDX-License-Identifier: GPL-2.0-only
#include "support/libpri_surroundings.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#if defined(__linux__)
#include <sys/time.h>

#include <ctime>
#endif

#if defined(__has_feature)
#define ZELK_TEST_FEATURE(x) __has_feature(x)
#else
#define ZELK_TEST_FEATURE(x) 0
#endif
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && \
    !ZELK_TEST_FEATURE(address_sanitizer) && !ZELK_TEST_FEATURE(thread_sanitizer)
#define ZELK_TEST_REPLACES_CALLOC 1
#else
#define ZELK_TEST_REPLACES_CALLOC 0
#endif

namespace support {
namespace {

std::atomic<int64_t> clockOffsetMs{0};
thread_local int callocUntilFailure = 0;

// Blocks of the size of libpri's call records, newest free one last.
constexpr size_t kLeastBytes = 1024;
constexpr size_t kMostBytes = 8192;
struct SBlock {
  void* memory;
  size_t bytes;
};
template <size_t Size>
struct SBlocks {
  std::array<SBlock, Size> blocks{};
  size_t count = 0;
  bool Add(SBlock block) {
    const bool fits = count < Size;
    if (fits) {
      blocks[count++] = block;
    }
    return fits;
  }
  template <class Match>
  SBlock TakeLast(Match match) {
    for (size_t i = count; i > 0; --i) {
      const SBlock found = blocks[i - 1];
      if (match(found)) {
        std::copy(blocks.begin() + static_cast<ptrdiff_t>(i), blocks.begin() + static_cast<ptrdiff_t>(count),
                  blocks.begin() + static_cast<ptrdiff_t>(i) - 1);
        --count;
        return found;
      }
    }
    return {nullptr, 0};
  }
};
thread_local bool isReusing = false;
thread_local uint32_t reused = 0;
thread_local SBlocks<512> used;
thread_local SBlocks<512> unused;

}  // namespace

bool CanMoveLibpriClock() {
#if defined(__linux__)
  return true;
#else
  return false;
#endif
}

void MoveLibpriClock(int64_t milliseconds) {
  clockOffsetMs += milliseconds;
}

bool CanReplaceCalloc() {
  return ZELK_TEST_REPLACES_CALLOC != 0;
}

void FailCalloc(int n) {
  callocUntilFailure = n;
}

bool IsCallocFailureDue() {
  return callocUntilFailure > 0;
}

CReusingAllocator::CReusingAllocator() {
  isReusing = true;
  reused = 0;
}

CReusingAllocator::~CReusingAllocator() {
  isReusing = false;
  const auto any = [](const SBlock&) { return true; };
  while (void* memory = unused.TakeLast(any).memory) {
    std::free(memory);
  }
  used.count = 0;  // the rest is given back to the system when it is freed
}

uint32_t CReusingAllocator::Reused() const {
  return reused;
}

}  // namespace support

#if ZELK_TEST_REPLACES_CALLOC
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void __libc_free(void* memory);

extern "C" void* calloc(size_t count, size_t size) {
  using namespace support;
  if (callocUntilFailure > 0 && --callocUntilFailure == 0) {
    return nullptr;
  }
  const size_t bytes = count * size;
  if (!isReusing || bytes < kLeastBytes || bytes > kMostBytes) {
    return __libc_calloc(count, size);
  }
  SBlock block = unused.TakeLast([bytes](const SBlock& free) { return free.bytes == bytes; });
  if (block.memory == nullptr) {
    block = {__libc_calloc(count, size), bytes};
  } else {
    std::memset(block.memory, 0, bytes);
    ++reused;
  }
  used.Add(block);
  return block.memory;
}

extern "C" void free(void* memory) {
  using namespace support;
  if (isReusing && memory != nullptr && used.count > 0) {
    const SBlock block = used.TakeLast([memory](const SBlock& own) { return own.memory == memory; });
    if (block.memory != nullptr && unused.Add(block)) {
      return;
    }
  }
  __libc_free(memory);
}
#endif

#if defined(__linux__)
extern "C" int gettimeofday(timeval* now, void*) noexcept {
  timespec real{};
  clock_gettime(CLOCK_REALTIME, &real);
  const int64_t ms = support::clockOffsetMs + int64_t{real.tv_sec} * 1000 + real.tv_nsec / 1'000'000;
  now->tv_sec = ms / 1000;
  now->tv_usec = ms % 1000 * 1000;
  return 0;
}
#endif

// SPDX-License-Identifier: GPL-2.0-only
#include "platform/mutex.h"

#include <windows.h>

namespace zelk {

namespace {

CRITICAL_SECTION* Section(unsigned char* bytes) {
  return reinterpret_cast<CRITICAL_SECTION*>(bytes);
}

}  // namespace

void CNativeMutex::Make() {
  static_assert(sizeof(CRITICAL_SECTION) == kBytes && alignof(CRITICAL_SECTION) == alignof(void*));
  EStage expected = EStage::kRaw;
  if (stage.compare_exchange_strong(expected, EStage::kBeingMade)) {
    // Kept out of the system's list of sections, which would outlive a library that is unloaded.
    InitializeCriticalSectionEx(Section(section), 0, CRITICAL_SECTION_NO_DEBUG_INFO);
    stage = EStage::kReady;
  }
  while (stage != EStage::kReady) {
    SwitchToThread();
  }
}

CNativeMutex::~CNativeMutex() {
  if (stage == EStage::kReady) {
    DeleteCriticalSection(Section(section));
  }
}

void CNativeMutex::lock() {
  if (stage.load(std::memory_order_acquire) != EStage::kReady) {
    Make();
  }
  EnterCriticalSection(Section(section));
}

bool CNativeMutex::try_lock() {
  if (stage.load(std::memory_order_acquire) != EStage::kReady) {
    Make();
  }
  return TryEnterCriticalSection(Section(section)) != FALSE;
}

void CNativeMutex::unlock() {
  LeaveCriticalSection(Section(section));
}

}  // namespace zelk

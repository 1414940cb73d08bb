// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <winsock2.h>
//
#include <windows.h>

// The thread that makes it, to be waited for by another one that did not start it.
class CThreadEnd {
 public:
  CThreadEnd() : thread(OpenThread(SYNCHRONIZE, FALSE, GetCurrentThreadId())) {}
  ~CThreadEnd() { CloseHandle(thread); }
  CThreadEnd(const CThreadEnd&) = delete;
  CThreadEnd& operator=(const CThreadEnd&) = delete;

  bool WaitFor(int timeoutMs) const {
    return WaitForSingleObject(thread, static_cast<DWORD>(timeoutMs)) == WAIT_OBJECT_0;
  }

 private:
  HANDLE thread;
};

inline bool OwnPriorityIsRaised() {
  return GetThreadPriority(GetCurrentThread()) == THREAD_PRIORITY_TIME_CRITICAL;
}

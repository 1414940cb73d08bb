// SPDX-License-Identifier: GPL-2.0-only

// The end of a thread, and the join that lets the library be unloaded after it:
//
//   thread                                     joiner
//   body returns, body is destroyed
//   SetEvent                                   sees ended (or the thread's handle: the process ends)
//   life: kRunning -> kEnded                   waits for it
//   _endthreadex, which never comes back       waits for the handle; FreeLibrary calls us with the loader lock held,
//     waits for the loader lock ...            which the thread needs to end, so then it is enough that the thread
//                                              is outside our code
//
#include "platform/thread.h"

#include <windows.h>
//
#include <avrt.h>
#include <process.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <string_view>
#include <utility>

#include "native/event.h"

extern "C" NTSYSAPI BOOLEAN NTAPI RtlDllShutdownInProgress(void);

namespace zelk {

namespace {

constexpr size_t kMaxNameChars = 15;
constexpr DWORD kBeginLimitMs = 5000;
// As the multimedia class scheduler's AvSetMmThreadPriority numbers it: the highest of the class.
constexpr auto kMultimediaPriority = static_cast<AVRT_PRIORITY>(2);

// A member of the class "Pro Audio" where the system has it; time-critical in any case. Never reverted.
void RaiseOwnPriority() {
  DWORD task = 0;
  HANDLE registration = AvSetMmThreadCharacteristicsA("Pro Audio", &task);
  if (registration != nullptr) {
    AvSetMmThreadPriority(registration, kMultimediaPriority);
  }
  SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
}

// For debuggers; systems before Windows 10 do not have the function.
void NameOwnThread(const wchar_t* name) {
  using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
  HMODULE kernel = GetModuleHandleA("kernel32.dll");
  const auto function = reinterpret_cast<SetDescription>(
      reinterpret_cast<void (*)()>(kernel == nullptr ? nullptr : GetProcAddress(kernel, "SetThreadDescription")));
  if (function != nullptr) {
    function(GetCurrentThread(), name);
  }
}

// The addresses of the file that holds this code.
struct SModuleRange {
  uintptr_t first = 0;
  uintptr_t end = 0;
};

SModuleRange OwnModule() {
  constexpr DWORD kByAddress = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  HMODULE module = nullptr;
  if (GetModuleHandleExA(kByAddress, reinterpret_cast<LPCSTR>(&RaiseOwnPriority), &module) == FALSE) {
    return {};
  }
  const auto base = reinterpret_cast<uintptr_t>(module);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + static_cast<uintptr_t>(dos->e_lfanew));
  return {base, base + headers->OptionalHeader.SizeOfImage};
}

// Whether a thread executes outside our code at this moment. It is only looked at while it is suspended: nothing that
// takes a lock may be called then.
bool IsOutsideOwnModule(HANDLE thread, const SModuleRange& own) {
  if (SuspendThread(thread) == static_cast<DWORD>(-1)) {
    return true;  // it has ended
  }
  CONTEXT context{};
  context.ContextFlags = CONTEXT_CONTROL;
  const bool known = GetThreadContext(thread, &context) != FALSE;
  ResumeThread(thread);
  return !known || context.Rip < own.first || context.Rip >= own.end;
}

enum class ELife { kRunning, kEnded, kAbandoned };

}  // namespace

// Owned by the thread and its CThread together: the second of the two to let go destroys it.
struct CThread::SState {
  std::function<void()> body;
  EThreadPriority priority = EThreadPriority::kNormal;
  std::array<wchar_t, kMaxNameChars + 1> name{};
  HANDLE handle = nullptr;
  SNativeEvent began;
  SNativeEvent ended;
  std::atomic<ELife> life{ELife::kRunning};

  ~SState() {
    if (handle != nullptr) {
      CloseHandle(handle);
    }
  }

  static unsigned __stdcall Run(void* argument);
  static void LetGo(SState* state) {
    if (state->life.exchange(ELife::kAbandoned) == ELife::kEnded) {
      delete state;
    }
  }
  bool WaitEnded(DWORD timeoutMs) const;
  void WaitLeft() const;
};

unsigned __stdcall CThread::SState::Run(void* argument) {
  auto* const state = static_cast<SState*>(argument);
  SetEvent(state->began.handle);
  NameOwnThread(state->name.data());
  if (state->priority == EThreadPriority::kProAudio) {
    RaiseOwnPriority();
  }
  state->body();
  state->body = nullptr;
  SetEvent(state->ended.handle);
  if (state->life.exchange(ELife::kEnded) == ELife::kAbandoned) {
    delete state;
  }
  _endthreadex(0);
  return 0;
}

// False when the time ran out. A thread that the end of the process has ended counts as ended.
bool CThread::SState::WaitEnded(DWORD timeoutMs) const {
  const std::array<HANDLE, 2> either{ended.handle, handle};
  return WaitForMultipleObjects(static_cast<DWORD>(either.size()), either.data(), FALSE, timeoutMs) != WAIT_TIMEOUT;
}

void CThread::SState::WaitLeft() const {
  const SModuleRange own = OwnModule();
  while (WaitForSingleObject(handle, 1) == WAIT_TIMEOUT) {
    if (life == ELife::kEnded && IsOutsideOwnModule(handle, own)) {
      return;
    }
  }
}

CThread::CThread() = default;

CThread::~CThread() {
  if (state != nullptr && GetThreadId(state->handle) != GetCurrentThreadId() && state->WaitEnded(INFINITE)) {
    state->WaitLeft();
  }
}

bool CThread::Start(const char* name, std::function<void()> body, EThreadPriority priority) {
  if (state != nullptr || !body) {
    return false;
  }
  std::unique_ptr<SState> started;
  try {
    started = std::make_unique<SState>();
  } catch (const std::bad_alloc&) {
    return false;
  }
  started->body = std::move(body);
  started->priority = priority;
  const std::string_view kept = std::string_view(name).substr(0, kMaxNameChars);
  std::copy(kept.begin(), kept.end(), started->name.begin());
  // Suspended, so that the handle is known before the thread can end; the deleter is made before it can run, so that
  // memory that runs out finds no thread.
  const auto handle =
      reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &SState::Run, started.get(), CREATE_SUSPENDED, nullptr));
  if (handle == nullptr) {
    return false;
  }
  started->handle = handle;
  SState* const raw = started.release();
  try {
    state = std::shared_ptr<SState>(raw, &SState::LetGo);
  } catch (const std::bad_alloc&) {
    // The pointer was let go of, which leaves it to the thread: with nothing to do it ends and destroys it.
    raw->body = [] {};
    ResumeThread(handle);
    return false;
  }
  ResumeThread(handle);
  // A thread that has not begun when the library is unloaded would begin in code that is gone.
  const std::array<HANDLE, 2> either{state->began.handle, handle};
  WaitForMultipleObjects(static_cast<DWORD>(either.size()), either.data(), FALSE, kBeginLimitMs);
  return true;
}

bool CThread::IsStarted() const {
  return state != nullptr;
}

bool CThread::JoinFor(uint32_t timeoutMs) {
  if (state == nullptr) {
    return true;
  }
  const std::shared_ptr<SState> joined = std::move(state);
  state = nullptr;
  if (GetThreadId(joined->handle) == GetCurrentThreadId() || !joined->WaitEnded(timeoutMs)) {
    return false;
  }
  joined->WaitLeft();
  return true;
}

uint64_t OwnThreadNumber() {
  return GetCurrentThreadId();
}

bool OtherThreadsAreGone() {
  return RtlDllShutdownInProgress() != FALSE;
}

}  // namespace zelk

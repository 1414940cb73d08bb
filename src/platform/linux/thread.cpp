// SPDX-License-Identifier: GPL-2.0-only
#include "platform/thread.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): the POSIX part of it
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <new>
#include <string_view>
#include <utility>

#include "platform/event.h"

namespace zelk {

namespace {

constexpr size_t kMaxNameChars = 15;
constexpr int kProAudioFifoPriority = 1;
constexpr int kProAudioNice = -11;
constexpr uint64_t kProAudioSliceNs = 100'000;  // the shortest that there is

// The kernel's sched_attr in its first form; the C library has no name for it everywhere.
struct SSchedulingAttributes {
  uint32_t size = sizeof(SSchedulingAttributes);
  uint32_t policy = SCHED_OTHER;
  uint64_t flags = 0;
  int32_t nice = 0;
  uint32_t priority = 0;
  uint64_t runtimeNs = 0;
  uint64_t deadlineNs = 0;
  uint64_t periodNs = 0;
};

// A thread with a short slice goes before one with the usual slice as soon as it wakes, and takes no larger share.
// Every process may ask for it; kernels before 6.12 do not know it and change nothing.
void AskForShortSlices(id_t thread) {
  SSchedulingAttributes attributes;
  attributes.nice = getpriority(PRIO_PROCESS, thread);
  attributes.runtimeNs = kProAudioSliceNs;
  (void)syscall(SYS_sched_setattr, thread, &attributes, 0);
}

// Real-time scheduling where the process may have it, else a better nice value where it may have that, and short
// slices.
void RaiseOwnPriority() {
  sched_param parameters{};
  parameters.sched_priority = kProAudioFifoPriority;
  if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters) != 0) {
    // On Linux a thread has a nice value of its own, addressed by its id.
    const auto own = static_cast<id_t>(syscall(SYS_gettid));
    (void)setpriority(PRIO_PROCESS, own, kProAudioNice);
    AskForShortSlices(own);
  }
}

// The application's signals belong to the application's threads: while this is held, a thread that is created inherits
// a mask that leaves only its own faults through.
class CSignalsBlocked {
 public:
  CSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) {
      sigdelset(&all, fault);
    }
    pthread_sigmask(SIG_SETMASK, &all, &before);
  }
  ~CSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
  CSignalsBlocked(const CSignalsBlocked&) = delete;
  CSignalsBlocked& operator=(const CSignalsBlocked&) = delete;

 private:
  sigset_t before{};
};

}  // namespace

// Shared by the owner and the thread, so that each may outlive the other.
struct CThread::SState {
  std::function<void()> body;
  EThreadPriority priority = EThreadPriority::kNormal;
  std::array<char, kMaxNameChars + 1> name{};
  pthread_t handle{};
  CEvent ended;

  static void* Run(void* argument) {
    const std::unique_ptr<std::shared_ptr<SState>> holder(static_cast<std::shared_ptr<SState>*>(argument));
    SState& state = **holder;
    pthread_setname_np(pthread_self(), state.name.data());
    if (state.priority == EThreadPriority::kProAudio) {
      RaiseOwnPriority();
    }
    state.body();
    state.body = nullptr;
    state.ended.Set();
    return nullptr;
  }
};

CThread::CThread() = default;

CThread::~CThread() {
  if (state == nullptr) {
    return;
  }
  if (pthread_equal(state->handle, pthread_self()) != 0) {
    pthread_detach(state->handle);
  } else {
    pthread_join(state->handle, nullptr);
  }
}

bool CThread::Start(const char* name, std::function<void()> body, EThreadPriority priority) {
  if (state != nullptr || !body) {
    return false;
  }
  std::shared_ptr<SState> started;
  std::unique_ptr<std::shared_ptr<SState>> argument;
  try {
    started = std::make_shared<SState>();
    argument = std::make_unique<std::shared_ptr<SState>>(started);
  } catch (const std::bad_alloc&) {
    return false;
  }
  started->body = std::move(body);
  started->priority = priority;
  std::string_view(name).copy(started->name.data(), kMaxNameChars);
  const CSignalsBlocked blocked;
  if (pthread_create(&started->handle, nullptr, &SState::Run, argument.get()) != 0) {
    return false;
  }
  (void)argument.release();  // the thread's now
  state = std::move(started);
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
  if (pthread_equal(joined->handle, pthread_self()) != 0 || !joined->ended.WaitFor(timeoutMs)) {
    pthread_detach(joined->handle);
    return false;
  }
  // A few instructions are left to it: waiting for them too lets the caller unload the code.
  pthread_join(joined->handle, nullptr);
  return true;
}

uint64_t OwnThreadNumber() {
  return static_cast<uint64_t>(pthread_self());
}

// Threads run on while static objects are destroyed.
bool OtherThreadsAreGone() {
  return false;
}

}  // namespace zelk

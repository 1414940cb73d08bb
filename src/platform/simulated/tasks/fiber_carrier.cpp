// SPDX-License-Identifier: GPL-2.0-only
#include <cxxabi.h>
#include <setjmp.h>  // NOLINT(modernize-deprecated-headers): the form that leaves the signal mask alone
#include <sys/mman.h>
#include <ucontext.h>

#include <array>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/simulated/tasks/carrier.h"

namespace zelk::sim {

namespace {

constexpr size_t kStackBytes = 256U << 10;
constexpr size_t kGuardBytes = 4096;

// The exceptions that a thread has in flight, which the run-time library keeps per thread and which are a task's own.
// As the C++ ABI lays it down.
struct SExceptions {
  void* caught = nullptr;
  unsigned int uncaught = 0;
};

void Exchange(SExceptions& leaving, const SExceptions& coming) {
  void* const current = abi::__cxa_get_globals();
  std::memcpy(&leaving, current, sizeof leaving);
  std::memcpy(current, &coming, sizeof coming);
}

// Stacks are used again, in later worlds too: fresh memory from the system costs more than a task.
class CStacks {
 public:
  ~CStacks() {
    for (void* const stack : free) {
      munmap(stack, kStackBytes);
    }
  }

  void* Take() {
    if (!free.empty()) {
      void* const stack = free.back();
      free.pop_back();
      return stack;
    }
    void* const made = mmap(nullptr, kStackBytes, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (made == MAP_FAILED) {
      return nullptr;
    }
    mprotect(made, kGuardBytes, PROT_NONE);
    return made;
  }
  void Give(void* stack) { free.push_back(stack); }

 private:
  std::vector<void*> free;
};

CStacks& Stacks() {
  static CStacks stacks;
  return stacks;
}

class CFiber : public CStrand {
 public:
  CFiber() = default;
  CFiber(void* memory, std::function<void()> toRun) : stack(memory), body(std::move(toRun)) {}
  ~CFiber() override {
    if (stack != nullptr) {
      Stacks().Give(stack);
    }
  }
  CFiber(const CFiber&) = delete;
  CFiber& operator=(const CFiber&) = delete;

  void* const stack = nullptr;
  std::function<void()> body;
  bool hasBegun = false;
  jmp_buf place{};
  SExceptions exceptions;
};

// makecontext passes ints only.
CFiber* beginning = nullptr;

void RunFiber() {
  beginning->body();
}

[[noreturn]] void Begin(CFiber& fiber) {
  fiber.hasBegun = true;
  beginning = &fiber;
  ucontext_t context{};
  getcontext(&context);
  context.uc_stack.ss_sp = static_cast<char*>(fiber.stack) + kGuardBytes;
  context.uc_stack.ss_size = kStackBytes - kGuardBytes;
  context.uc_link = nullptr;
  makecontext(&context, &RunFiber, 0);
  setcontext(&context);
  __builtin_unreachable();
}

[[noreturn]] void GoOn(CFiber& fiber) {
  if (!fiber.hasBegun) {
    Begin(fiber);
  }
  _longjmp(fiber.place, 1);
}

class CFiberCarrier : public CCarrier {
 public:
  CFiberCarrier() { home.hasBegun = true; }

  std::unique_ptr<CStrand> Make(std::function<void()> body) override {
    void* const stack = Stacks().Take();
    return stack == nullptr ? nullptr : std::make_unique<CFiber>(stack, std::move(body));
  }
  CStrand& Home() override { return home; }

  void Switch(CStrand& from, CStrand& to) override {
    auto& leaving = static_cast<CFiber&>(from);
    auto& coming = static_cast<CFiber&>(to);
    Exchange(leaving.exceptions, coming.exceptions);
    if (_setjmp(leaving.place) == 0) {
      GoOn(coming);
    }
  }

  void SwitchForGood(CStrand& from, CStrand& to) override { Switch(from, to); }

  void Abandon(std::unique_ptr<CStrand> strand) override { strand.reset(); }

 private:
  CFiber home;
};

}  // namespace

std::unique_ptr<CCarrier> MakeFiberCarrier() {
  return std::make_unique<CFiberCarrier>();
}

}  // namespace zelk::sim

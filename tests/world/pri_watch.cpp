// SPDX-License-Identifier: GPL-2.0-only

// Stands between the library and libpri (the linker's --wrap, see CMakeLists.txt): a controller of libpri knows no
// threads, so a task that comes to one must hold a lock that was held each time before. What the exchange does with
// its own controllers happens in acts, which nothing interrupts.
#include "platform/simulated/world.h"

extern "C" {
struct pri;

#define ZELK_WRAPPED(result, name, parameters)                \
  result __real_##name parameters; /* NOLINT: the linker's */ \
  result __wrap_##name parameters; /* NOLINT: the linker's */

ZELK_WRAPPED(pri*, pri_new_cb, (int trunk, int node, int type, void* read, void* write, void* data))
ZELK_WRAPPED(void*, q921_receive, (pri * controller, void* frame, int length))
ZELK_WRAPPED(void*, pri_schedule_next, (pri * controller))
ZELK_WRAPPED(void*, pri_schedule_run, (pri * controller))
ZELK_WRAPPED(void*, pri_new_call, (pri * controller))
ZELK_WRAPPED(void, pri_destroycall, (pri * controller, void* call))
ZELK_WRAPPED(int, pri_setup, (pri * controller, void* call, void* request))
ZELK_WRAPPED(int, pri_need_more_info, (pri * controller, void* call, int channel, int flag))
ZELK_WRAPPED(int, pri_proceeding, (pri * controller, void* call, int channel, int flag))
ZELK_WRAPPED(int, pri_acknowledge, (pri * controller, void* call, int channel, int flag))
ZELK_WRAPPED(int, pri_answer, (pri * controller, void* call, int channel, int flag))
ZELK_WRAPPED(int, pri_connect_ack, (pri * controller, void* call, int channel))
ZELK_WRAPPED(int, pri_hangup, (pri * controller, void* call, int cause))
#undef ZELK_WRAPPED
}

namespace {

void Check(const pri* controller) {
  zelk::sim::CScheduler* const scheduler = zelk::sim::CScheduler::Current();
  zelk::sim::CLockWatch* const watch =
      scheduler == nullptr || !scheduler->IsInTask() ? nullptr : scheduler->LockWatch();
  if (watch != nullptr && !watch->IsGuarded(scheduler->Number(), controller)) {
    scheduler->Fail("a controller of libpri is used without its lock");
  }
}

}  // namespace

// NOLINTBEGIN: the names are the linker's
pri* __wrap_pri_new_cb(int trunk, int node, int type, void* read, void* write, void* data) {
  pri* const made = __real_pri_new_cb(trunk, node, type, read, write, data);
  zelk::sim::CScheduler* const scheduler = zelk::sim::CScheduler::Current();
  if (zelk::sim::CLockWatch* const watch = scheduler == nullptr ? nullptr : scheduler->LockWatch()) {
    watch->Forget(made);
  }
  return made;
}

#define ZELK_CHECKED(result, name, parameters, arguments) \
  result __wrap_##name parameters {                       \
    Check(controller);                                    \
    return __real_##name arguments;                       \
  }

ZELK_CHECKED(void*, q921_receive, (pri * controller, void* frame, int length), (controller, frame, length))
ZELK_CHECKED(void*, pri_schedule_next, (pri * controller), (controller))
ZELK_CHECKED(void*, pri_schedule_run, (pri * controller), (controller))
ZELK_CHECKED(void*, pri_new_call, (pri * controller), (controller))
ZELK_CHECKED(void, pri_destroycall, (pri * controller, void* call), (controller, call))
ZELK_CHECKED(int, pri_setup, (pri * controller, void* call, void* request), (controller, call, request))
ZELK_CHECKED(int, pri_need_more_info, (pri * controller, void* call, int channel, int flag),
             (controller, call, channel, flag))
ZELK_CHECKED(int, pri_proceeding, (pri * controller, void* call, int channel, int flag),
             (controller, call, channel, flag))
ZELK_CHECKED(int, pri_acknowledge, (pri * controller, void* call, int channel, int flag),
             (controller, call, channel, flag))
ZELK_CHECKED(int, pri_answer, (pri * controller, void* call, int channel, int flag), (controller, call, channel, flag))
ZELK_CHECKED(int, pri_connect_ack, (pri * controller, void* call, int channel), (controller, call, channel))
ZELK_CHECKED(int, pri_hangup, (pri * controller, void* call, int cause), (controller, call, cause))
#undef ZELK_CHECKED
// NOLINTEND

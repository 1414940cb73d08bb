// SPDX-License-Identifier: GPL-2.0-only
#include "card/pri_internals.h"

#include <cstdlib>

extern "C" {
#include <libpri.h>
#include <pri_internal.h>
//
#include <pri_facility.h>
}

namespace zelk {

namespace {

void ReleaseQueue(q921_link& link) {
  while (q921_frame* frame = link.tx_queue) {
    link.tx_queue = frame->next;
    std::free(frame);
  }
}

// Calls end without a message: their supplementary-service requests are given up while the timer table still stands.
void ReleaseCalls(pri* controller) {
  for (q931_call* call = controller->localpool; call != nullptr; call = call->next) {
    for (q931_call* subcall : call->subcalls) {
      pri_call_apdu_queue_cleanup(subcall);
    }
    pri_call_apdu_queue_cleanup(call);
  }
  while (q931_call* call = controller->localpool) {
    controller->localpool = call->next;
    for (q931_call* subcall : call->subcalls) {
      std::free(subcall);
    }
    std::free(call);
  }
}

void ReleaseCompletionRecords(pri* controller) {
  while (pri_cc_record* record = controller->cc.pool) {
    controller->cc.pool = record->next;
    std::free(record);
  }
}

}  // namespace

void ReleaseController(pri* controller) {
  ReleaseCalls(controller);
  ReleaseCompletionRecords(controller);
  bool isDummyBorrowed = false;
  while (q921_link* link = controller->link.next) {
    controller->link.next = link->next;
    isDummyBorrowed = isDummyBorrowed || link->dummy_call == controller->link.dummy_call;
    ReleaseQueue(*link);
    pri_link_destroy(link);
  }
  ReleaseQueue(controller->link);
  if (!isDummyBorrowed) {
    pri_call_apdu_queue_cleanup(controller->link.dummy_call);
  }
  std::free(controller->msg_line);
  std::free(controller->sched.timer);
  std::free(controller);
}

void ReleaseAbandonedCalls(pri* controller) {
  for (q931_call* call = *controller->callpool; call != nullptr;) {
    q931_call* const next = call->next;
    // What lies beside the link comes first: for a living call no other part of its record is read.
    if (call->alive == 0 && call->ourcallstate == Q931_CALL_STATE_RELEASE_REQUEST && call->retranstimer == 0) {
      pri_destroycall(controller, call);
    }
    call = next;
  }
}

bool IsLinkEstablished(const pri* controller) {
  return controller->link.state == Q921_MULTI_FRAME_ESTABLISHED && controller->link.next == nullptr;
}

bool IsBacklogged(const pri* controller) {
  if (!IsLinkEstablished(controller)) {
    return false;
  }
  const int most = 2 * controller->timers[PRI_TIMER_K];
  int waiting = 0;
  for (const q921_frame* frame = controller->link.tx_queue; frame != nullptr && waiting <= most; frame = frame->next) {
    ++waiting;
  }
  return waiting > most;
}

}  // namespace zelk

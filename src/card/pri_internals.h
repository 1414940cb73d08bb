// SPDX-License-Identifier: GPL-2.0-only
#pragma once

struct pri;

namespace zelk {

// What libpri keeps to itself: there is no call of its own to give it back or to ask for it.
// Thread: as CPriController, under the trunk lock; none sends anything.

// The whole controller: its calls in any state, its links with the frames they wait to have acknowledged, its call
// completion records, the timer table and the buffer of its message line. The dummy call stands in one allocation with
// the controller or, on further links, with the link.
void ReleaseController(pri* controller);

// Calls that the other side cleared before anything was sent for them: libpri ends such a call with RELEASE COMPLETE,
// without an event, and then waits for one from the other side, without a timer. The record would stay for good, and
// swallow the next call with its reference.
void ReleaseAbandonedCalls(pri* controller);

// Layer 2 is up, on the only link.
bool IsLinkEstablished(const pri* controller);
// I-frames pile up: more than two windows of Q.921 (k) wait to be sent or acknowledged on a link that is up.
bool IsBacklogged(const pri* controller);

}  // namespace zelk

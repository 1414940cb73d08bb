// SPDX-License-Identifier: GPL-2.0-only
#pragma once

struct pri;

namespace zelk {

// What libpri keeps and has no call of its own to give back.
// Thread: as CPriController, under the trunk lock; neither sends anything.

// The whole controller: its calls in any state, its links with the frames they wait to have acknowledged, its call
// completion records, the timer table and the buffer of its message line. The dummy call stands in one allocation with
// the controller or, on further links, with the link.
void ReleaseController(pri* controller);

// Calls that the other side cleared before anything was sent for them: libpri ends such a call with RELEASE COMPLETE,
// without an event, and then waits for one from the other side, without a timer. The record would stay for good, and
// swallow the next call with its reference.
void ReleaseAbandonedCalls(pri* controller);

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "trace/core/capture_file.h"

namespace replay {

using trace::Time;

// The one clock of a replay: libpri asks for the time here (the linker leads its calls of the system to clock.cpp), and
// nothing moves it but the replay. Whole microseconds. Thread: one.
Time Now();
// Where a replay begins: the one call that may set the clock back.
void StartAt(Time time);
// To a time that is not before the present one; else nothing.
void AdvanceTo(Time time);

}  // namespace replay

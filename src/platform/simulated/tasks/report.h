// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/simulated/tasks/task.h"

namespace zelk::sim {

// The caller's stack, innermost frame first; the number of frames.
int TakeStack(void** frames, int most);

// What each of the tasks waits for and where it stands, a line each. Functions that the linker kept no name of are
// given as file+offset, which addr2line reads.
std::string DescribeTasks(const std::string& why, const std::vector<const STask*>& tasks, int64_t nowUs);

}  // namespace zelk::sim

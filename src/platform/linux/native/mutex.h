// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <mutex>

namespace zelk {

using CNativeMutex = std::mutex;
using CNativeRecursiveMutex = std::recursive_mutex;

}  // namespace zelk

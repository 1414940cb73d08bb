// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <string>

namespace world {

struct SApart {
  bool isDone = false;  // the work returned
  std::string result;   // what it returned, or how its process ended
};

// Does work in a process of its own, a copy of this one, and waits for it. The library keeps a little from one start-up
// to the next as long as it is loaded; here every world finds it as it is after loading, and one that ends badly takes
// nothing with it. Thread: the only one of the process.
SApart DoApart(const std::function<std::string()>& work);

}  // namespace world

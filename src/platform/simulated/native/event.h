// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace zelk {

// What an event is made of here. Destroying one that a task waits for ends the run.
struct SNativeEvent {
  ~SNativeEvent();

  bool set = false;
};

}  // namespace zelk

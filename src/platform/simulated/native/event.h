// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace zelk {

// What an event is made of here. Destroying one that a task waits for ends the run.
struct SNativeEvent {
  ~SNativeEvent();

  bool IsSet() const { return __atomic_load_n(&set, __ATOMIC_RELAXED); }
  void SetTo(bool on) { __atomic_store_n(&set, on, __ATOMIC_RELAXED); }

 private:
  bool set = false;
};

}  // namespace zelk

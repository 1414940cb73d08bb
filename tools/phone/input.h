// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <memory>

#include "phone/line_splitter.h"

namespace phone {

// The lines of standard input, read on a thread of its own. That thread cannot be told to end while it waits for bytes:
// it keeps what it shares with this object alive, and ends with the program.
// Thread: main.
class CInput {
 public:
  // wake is called for new lines and at the end, on the reading thread, and no more after the destructor.
  explicit CInput(std::function<void()> wake);
  ~CInput();
  CInput(const CInput&) = delete;
  CInput& operator=(const CInput&) = delete;

  // The oldest line that has not been taken; false when there is none now.
  bool Take(SInputLine& line);
  // All has been taken and no more will come.
  bool IsOver() const;

 private:
  struct SShared;
  static void Read(const std::shared_ptr<SShared>& shared);

  const std::shared_ptr<SShared> shared;
};

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

namespace zelk {

enum class EHdlcReport { kNone, kError, kLinkReset };

// Turns one trunk's HDLC errors into reports: nine single ones, then a link reset, then a link reset again at most
// every five seconds, until a good frame starts the count anew. Errors of a line that is not in service count for
// nothing. Thread: control.
class CHdlcErrorRule {
 public:
  // nowMs: a wrapping millisecond clock.
  EHdlcReport OnError(uint8_t lineStatus, uint32_t nowMs);
  void OnGoodFrame() { errorCount = 0; }

 private:
  uint32_t errorCount = 0;
  uint32_t lastResetMs = 0;
};

}  // namespace zelk

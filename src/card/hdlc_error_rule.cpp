// SPDX-License-Identifier: GPL-2.0-only
#include "card/hdlc_error_rule.h"

#include "card/trunk.h"

namespace zelk {

namespace {

constexpr uint32_t kErrorsForReset = 10;
constexpr uint32_t kResetPauseMs = 5000;

}  // namespace

EHdlcReport CHdlcErrorRule::OnError(uint8_t lineStatus, uint32_t nowMs) {
  if (lineStatus != kLineInService) {
    errorCount = 0;
    return EHdlcReport::kNone;
  }
  // Held above the threshold, so that a line that errs for days does not wrap back to single reports.
  if (errorCount <= kErrorsForReset) {
    ++errorCount;
  }
  if (errorCount < kErrorsForReset) {
    return EHdlcReport::kError;
  }
  if (errorCount > kErrorsForReset && nowMs - lastResetMs < kResetPauseMs) {
    return EHdlcReport::kNone;
  }
  lastResetMs = nowMs;
  return EHdlcReport::kLinkReset;
}

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/event.h"
#include "platform/mutex.h"
#include "runtime/stop_flag.h"

namespace zelk {

constexpr size_t kCardInformationBytes = 22;

// What a card says of itself.
struct SCardInformation {
  uint8_t firmwareVersion = 0;
  uint8_t trunkCount = 0;  // 1..8
  uint32_t featureFlags = 0;
  uint32_t serialNumber = 0;
  std::string firmwareDate;  // four pairs of digits
  std::string burnDate;      // three pairs of digits and 00
};

// Reads the body of a card information message:
//
//   0       5   6        7        11       15              19          22
//   "ZELK " ver trunks   flags LE serial LE firmware date  burn date
//
// False when the body is not a card's or its trunk count is impossible; information is then untouched.
// Thread: any.
bool ParseCardInformation(const uint8_t (&body)[kCardInformationBytes], SCardInformation& information);

// What a card has said of itself, and whether it has said anything since it was last opened.
// Thread: control for Take; opener for BeginOpen, Forget and the wait; any for the rest. Only WaitForAnswer blocks.
class CCardFacts {
 public:
  // A newly opened card starts without an answer and without a serial number; the rest stays until the card says
  // otherwise.
  void BeginOpen();
  // Counts the message as good or bad, and keeps the fields of a good one.
  void Take(const uint8_t (&body)[kCardInformationBytes]);
  void Forget();  // both counters to 0
  // True when a message, good or bad, has come within the time; ends early when cancel (may be null) is set.
  bool WaitForAnswer(uint32_t timeoutMs, const CStopFlag* cancel);

  std::string FirmwareDate() const;
  std::string BurnDate() const;

  std::atomic<uint32_t> trunkCount{0};
  std::atomic<uint32_t> serialNumber{0};
  std::atomic<uint32_t> featureFlags{0};
  std::atomic<uint8_t> firmwareVersion{0};

 private:
  std::atomic<uint32_t> goodCount{0};
  std::atomic<uint32_t> badCount{0};
  CEvent answered;
  mutable CMutex lock;
  std::string firmwareDate ZELK_GUARDED_BY(lock);
  std::string burnDate ZELK_GUARDED_BY(lock);
};

}  // namespace zelk

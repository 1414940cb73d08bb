// SPDX-License-Identifier: GPL-2.0-only
#include "card/card_information.h"

#include <cstring>

#include "platform/bytes.h"
#include "platform/clock.h"
#include "runtime/e1.h"
#include "runtime/format.h"

namespace zelk {

namespace {

constexpr uint32_t kCancelSliceMs = 50;

// A byte above 99 prints three digits.
std::string FormatDate(unsigned first, unsigned second, unsigned third, unsigned fourth) {
  std::string text;
  FormatString(text, "%02u%02u%02u%02u", first, second, third, fourth);
  return text;
}

}  // namespace

bool ParseCardInformation(const uint8_t (&body)[kCardInformationBytes], SCardInformation& information) {
  const uint8_t trunkCount = body[6];
  if (std::memcmp(body, "ZELK ", 5) != 0 || trunkCount == 0 || trunkCount > kMaxTrunks) {
    return false;
  }
  information.firmwareVersion = body[5];
  information.trunkCount = trunkCount;
  information.featureFlags = ReadLittle32(body + 7);
  information.serialNumber = ReadLittle32(body + 11);
  information.firmwareDate = FormatDate(body[15], body[16], body[17], body[18]);
  // The message holds three bytes of this date; the fourth pair is always zero.
  information.burnDate = FormatDate(body[19], body[20], body[21], 0);
  return true;
}

void CCardFacts::BeginOpen() {
  Forget();
  serialNumber = 0;
}

void CCardFacts::Take(const uint8_t (&body)[kCardInformationBytes]) {
  SCardInformation information;
  if (!ParseCardInformation(body, information)) {
    ++badCount;
    answered.Set();
    return;
  }
  firmwareVersion = information.firmwareVersion;
  trunkCount = information.trunkCount;
  featureFlags = information.featureFlags;
  {
    const CScopedLock<CMutex> held(lock);
    firmwareDate = std::move(information.firmwareDate);
    burnDate = std::move(information.burnDate);
  }
  serialNumber = information.serialNumber;
  ++goodCount;
  answered.Set();
}

void CCardFacts::Forget() {
  answered.Reset();
  goodCount = 0;
  badCount = 0;
}

bool CCardFacts::WaitForAnswer(uint32_t timeoutMs, const CStopFlag* cancel) {
  const uint32_t start = TickMs();
  while (goodCount == 0 && badCount == 0) {
    if (TickMs() - start >= timeoutMs || (cancel != nullptr && cancel->IsSet())) {
      return false;
    }
    answered.WaitFor(kCancelSliceMs);
  }
  return true;
}

std::string CCardFacts::FirmwareDate() const {
  const CScopedLock<CMutex> held(lock);
  return firmwareDate;
}

std::string CCardFacts::BurnDate() const {
  const CScopedLock<CMutex> held(lock);
  return burnDate;
}

}  // namespace zelk

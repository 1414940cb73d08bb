#include "card/card_facts.h"

#include "platform/clock.h"

namespace zelk {

namespace {

constexpr uint32_t kCancelSliceMs = 50;

}  // namespace

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

#include "call/device.h"

#include <algorithm>
#include <cstring>

#include "runtime/format.h"

namespace zelk {

namespace {

constexpr size_t kMaxNameChars = 512;
// libpri clears a lost call within its timers; a trunk that flaps faster than that leaves a few behind.
constexpr size_t kMaxLostCalls = 16;

std::string DisplayName(const CCard& card, const SDevicePlace& place) {
  std::string name;
  FormatString(name, "ZelkBoard (%uP %u) Trunk %u Chn %u", card.TrunkCount(), card.SerialNumber(),
               static_cast<unsigned>(place.trunkIndex) + 1U, place.timeslot);
  name.resize(std::min(name.size(), kMaxNameChars));
  return name;
}

}  // namespace

CDevice::CDevice(CCard& ownCard, const SDevicePlace& place)
    : card(ownCard),
      cardIndex(place.cardIndex),
      trunkIndex(place.trunkIndex),
      timeslot(place.timeslot),
      channelNumber(place.channelNumber),
      name(DisplayName(ownCard, place)),
      serialText(std::to_string(ownCard.SerialNumber())),
      featureFlags(ownCard.FeatureFlags()),
      firmwareDate(ownCard.FirmwareDate()),
      burnDate(ownCard.BurnDate()),
      firmwareVersion(ownCard.FirmwareVersion()),
      wave(*this) {
  endQueue.Create(kDwordQueueCapacity);
  startQueue.Create(kDwordQueueCapacity);
  lostCalls.reserve(kMaxLostCalls);
}

CDevice::~CDevice() = default;

void CDevice::Open() {
  if (isOpen) {
    return;
  }
  ClearMessage();
  isOpen = true;
  wave.Open();
}

void CDevice::Close() {
  if (!isOpen) {
    return;
  }
  ClearMessage();
  linkState = -1;
  wave.Close();
  isOpen = false;
}

CTrunk& CDevice::Trunk() const {
  return card.Trunk(static_cast<uint32_t>(trunkIndex));
}

void CDevice::SwitchEcho(bool on) const {
  card.Audio().SetEchoSwitch(static_cast<uint32_t>(trunkIndex), on);
}

void CDevice::ClearMessage() {
  CScopedLock held(infoLock);
  message.fill('\0');
}

void CDevice::SetMessage(const char* text) {
  CScopedLock held(infoLock);
  message.fill('\0');
  std::memcpy(message.data(), text, std::min(std::strlen(text), kMessageBytes - 1));
}

void CDevice::ClearCallInfo(int32_t cause) {
  CScopedLock held(infoLock);
  lastCause = cause;
  cli.clear();
  dli.clear();
  rli.clear();
  callType = "";
  inputType = "";
  endQueue.Clear();
}

void CDevice::ForgetCall() {
  CScopedLock held(callLock);
  callHandle = nullptr;
  connected = false;
  SwitchEcho(false);
}

void CDevice::TakeOffer(PriCall call) {
  CScopedLock held(callLock);
  callHandle = call;
  connected = false;
}

void CDevice::RememberLostCall() {
  CScopedLock held(callLock);
  PriCall call = callHandle;
  if (call == nullptr || std::find(lostCalls.begin(), lostCalls.end(), call) != lostCalls.end()) {
    return;
  }
  if (lostCalls.size() == kMaxLostCalls) {
    lostCalls.erase(lostCalls.begin());
  }
  lostCalls.push_back(call);
}

bool CDevice::IsLostCall(PriCall call) {
  CScopedLock held(callLock);
  return call != nullptr && std::find(lostCalls.begin(), lostCalls.end(), call) != lostCalls.end();
}

void CDevice::ForgetLostCall(PriCall call) {
  CScopedLock held(callLock);
  std::erase(lostCalls, call);
}

void CDevice::ForgetLostCalls() {
  CScopedLock held(callLock);
  lostCalls.clear();
}

void CDevice::SilenceTransmit() {
  card.Audio().SilenceTransmit(static_cast<uint32_t>(trunkIndex), timeslot);
}

uint32_t CDevice::FlushCount() const {
  return card.Audio().FlushCount(static_cast<uint32_t>(trunkIndex), timeslot);
}

int32_t CDevice::LogChannel() const {
  return static_cast<int32_t>(channelNumber);
}

}  // namespace zelk

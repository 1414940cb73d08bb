// SPDX-License-Identifier: GPL-2.0-only
#include "call/device.h"

#include <algorithm>
#include <cstring>

#include "runtime/format.h"
#include "runtime/status_page.h"

namespace zelk {

namespace {

constexpr size_t kMaxNameChars = 512;

std::string DisplayName(const CCard& card, const SDevicePlace& place) {
  std::string name;
  FormatString(name, "ZelkBoard (%uP %u) Trunk %u Chn %u", card.TrunkCount(), card.SerialNumber(),
               static_cast<unsigned>(place.trunkIndex) + 1U, place.timeslot);
  name.resize(std::min(name.size(), kMaxNameChars));
  return name;
}

}  // namespace

CDevice::CDevice(CCard& ownCard, const SDevicePlace& ownPlace, int32_t direction)
    : card(ownCard),
      place(ownPlace),
      serialText(std::to_string(ownCard.SerialNumber())),
      featureFlags(ownCard.FeatureFlags()),
      firmwareDate(ownCard.FirmwareDate()),
      burnDate(ownCard.BurnDate()),
      firmwareVersion(ownCard.FirmwareVersion()),
      call(*this, direction),
      shown(StatusPage().Channel(static_cast<uint32_t>(ownPlace.cardIndex), static_cast<uint32_t>(ownPlace.trunkIndex),
                                 ownPlace.timeslot)),
      name(DisplayName(ownCard, ownPlace)),
      wave(std::make_unique<CWave>(
          *this, ownCard.Audio().FlushCounter(static_cast<uint32_t>(ownPlace.trunkIndex), ownPlace.timeslot))) {
  endQueue.Create(kDwordQueueCapacity);
  startQueue.Create(kDwordQueueCapacity);
  if (shown != nullptr) {
    StatusSet(shown->number, place.channelNumber + 1);
    call.ShowIn(shown);
  }
}

CDevice::~CDevice() = default;

void CDevice::Open() {
  if (isOpen) {
    return;
  }
  ClearMessage();
  isOpen = true;
  ShowOpen(1);
  wave->Open();
}

void CDevice::Close() {
  if (!isOpen) {
    return;
  }
  ClearMessage();
  call.CloseChannel();
  wave->Close();
  isOpen = false;
  ShowOpen(0);
}

void CDevice::ShowOpen(uint32_t open) const {
  if (shown != nullptr) {
    StatusSet(shown->isOpen, open);
  }
}

CTrunk& CDevice::Trunk() const {
  return card.Trunk(static_cast<uint32_t>(place.trunkIndex));
}

void CDevice::ClearMessage() {
  SetMessage("");
}

void CDevice::SetMessage(const char* text) {
  const CScopedLock<CMutex> held(infoLock);
  message.fill('\0');
  std::memcpy(message.data(), text, std::min(std::strlen(text), kMessageBytes - 1));
}

std::string CDevice::Message() const {
  const CScopedLock<CMutex> held(infoLock);
  return message.data();
}

void CDevice::SetDialCli(const char* number) {
  const CScopedLock<CMutex> held(infoLock);
  dialCli = number;
}

std::string CDevice::NoteDialled(const char* number) {
  const CScopedLock<CMutex> held(infoLock);
  std::string callingNumber = dialCli;
  cli = dialCli;
  dli = number;
  rli.clear();
  callType = kCallTypeVoice;
  return callingNumber;
}

void CDevice::NoteOffered(const SPriEvent& ring, const char* type) {
  const CScopedLock<CMutex> held(infoLock);
  cli = ring.callingNumber;
  dli = ring.calledNumber;
  rli = ring.redirectingNumber;
  callType = type;
}

void CDevice::NoteParties(const SPriParties& parties) {
  const CScopedLock<CMutex> held(infoLock);
  if (parties.remote.valid) {
    cli = parties.remote.digits;
  }
  if (parties.called.valid) {
    dli = parties.called.digits;
  }
  if (parties.redirecting.valid) {
    callType = RedirectCallType(parties.redirectingReason);
    rli = parties.redirecting.digits;
  }
}

std::string CDevice::DialCli() const {
  const CScopedLock<CMutex> held(infoLock);
  return dialCli;
}

std::string CDevice::Cli() const {
  const CScopedLock<CMutex> held(infoLock);
  return cli;
}

std::string CDevice::Dli() const {
  const CScopedLock<CMutex> held(infoLock);
  return dli;
}

std::string CDevice::Rli() const {
  const CScopedLock<CMutex> held(infoLock);
  return rli;
}

std::string CDevice::CallType() const {
  const CScopedLock<CMutex> held(infoLock);
  return callType;
}

std::string CDevice::InputType() const {
  const CScopedLock<CMutex> held(infoLock);
  return inputType;
}

int32_t CDevice::LastCause() const {
  const CScopedLock<CMutex> held(infoLock);
  return lastCause;
}

const char* CDevice::KeepInfo(const std::string& text) {
  const CScopedLock<CMutex> held(infoLock);
  infoResult = text;
  return infoResult.c_str();
}

void CDevice::ClearCallInfo(int32_t cause) {
  const CScopedLock<CMutex> held(infoLock);
  lastCause = cause;
  if (shown != nullptr) {
    StatusSet(shown->cause, static_cast<uint32_t>(cause));
  }
  cli.clear();
  dli.clear();
  rli.clear();
  callType = kCallTypeNone;
  inputType = "";
  endQueue.Clear();
}

void CDevice::EndCall(int32_t cause) {
  ClearCallInfo(cause);
  call.End();
}

void CDevice::SwitchEcho(bool on) {
  card.Audio().SetEchoSwitch(static_cast<uint32_t>(place.trunkIndex), on);
}

void CDevice::SilenceTransmit() {
  card.Audio().SilenceTransmit(static_cast<uint32_t>(place.trunkIndex), place.timeslot);
}

int32_t CDevice::LogChannel() const {
  return static_cast<int32_t>(place.channelNumber);
}

}  // namespace zelk

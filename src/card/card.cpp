// SPDX-License-Identifier: GPL-2.0-only
#include "card/card.h"

#include <exception>
#include <utility>

#include "card/card_core.h"
#include "card/control_messages.h"
#include "card/control_thread.h"
#include "card/trunk_setup.h"
#include "platform/clock.h"
#include "runtime/config.h"
#include "runtime/q931_types.h"
#include "runtime/status_page.h"

namespace zelk {

namespace {

constexpr uint32_t kJoinMs = 3000;
constexpr uint32_t kLockMs = 3000;
// The controllers are gone: only a callback that hangs holds a lock for longer.
constexpr uint32_t kCaptureLockMs = 100;
constexpr uint32_t kAnswerMs = 1000;
constexpr int kFurtherRequests = 2;
constexpr uint32_t kStartPauseMs = 20;
constexpr uint32_t kConfigurePauseMs = 1;

template <class Message>
void SendMessage(CCardCore& core, const Message& message) {
  core.link.Send(message.data(), message.size());
}

}  // namespace

CCard::CCard(uint32_t cardNumber) : core(std::make_shared<CCardCore>(*this, cardNumber)) {}

CCard::~CCard() {
  Close();
  core->handlers = nullptr;
  core->audio.SetHook(nullptr);
}

void CCard::SetTrunkDefaults(int32_t switchType, int32_t clientType, int32_t numberType) {
  for (CTrunk& trunk : core->trunks) {
    trunk.switchType = switchType;
    trunk.nodeType = NodeTypeOf(clientType);
    trunk.numberType = numberType;
  }
}

bool CCard::Open(SIpv4Address cardAddress, uint16_t, SIpv4Address localAddress) {
  const CStopFlag never{};
  const CScopedLock<CMutex> held(lifecycle);
  const bool isOpen = OpenLocked(cardAddress, localAddress, never);
  if (!isOpen) {
    core->facts.serialNumber = 0;
  }
  return isOpen;
}

void CCard::Close() {
  const CStopFlag never{};
  const CScopedLock<CMutex> held(lifecycle);
  CloseLocked(never);
}

bool CCard::Reopen(SIpv4Address cardAddress, SIpv4Address localAddress, const CStopFlag& caller) {
  uint32_t serialNumber = 0;
  if (!BeginReopen(caller, serialNumber)) {
    return false;
  }
  TellReopening(caller);
  return !caller.IsSet() && FinishReopen(cardAddress, localAddress, caller, serialNumber);
}

void CCard::TellReopening(const CStopFlag& caller) {
  try {
    if (ICardHandlers* handlers = core->handlers) {
      handlers->OnCardReopening(caller);
    }
  } catch (const std::exception&) {
    return;  // no memory: what they had to do is lost, the card is not
  }
}

// Without controllers no new call can begin that the handlers do not know of.
bool CCard::BeginReopen(const CStopFlag& caller, uint32_t& serialNumber) {
  const CScopedLock<CMutex> held(lifecycle);
  if (caller.IsSet()) {
    return false;  // the library has been shut down meanwhile
  }
  serialNumber = core->facts.serialNumber;
  StopControllers(caller);
  return true;
}

bool CCard::FinishReopen(SIpv4Address cardAddress, SIpv4Address localAddress, const CStopFlag& caller,
                         uint32_t serialNumber) {
  const CScopedLock<CMutex> held(lifecycle);
  if (caller.IsSet()) {
    return false;
  }
  const bool isOpen = OpenLocked(cardAddress, localAddress, caller);
  if (!isOpen) {
    core->facts.serialNumber = serialNumber;
  }
  return isOpen;
}

bool CCard::OpenLocked(SIpv4Address cardAddress, SIpv4Address localAddress, const CStopFlag& caller) {
  CloseLocked(caller);
  bool isOpen = false;
  try {
    isOpen = TryOpen(cardAddress, localAddress, caller);
  } catch (const std::exception&) {
    isOpen = false;  // no memory: a card that cannot be opened, as any other
  }
  if (!isOpen) {
    CloseLocked(caller);
  }
  return isOpen;
}

bool CCard::TryOpen(SIpv4Address cardAddress, SIpv4Address localAddress, const CStopFlag& caller) {
  if (!ResetForOpen(caller)) {
    return false;
  }
  ++generation;
  isBegun = true;
  if (!core->link.Connect({cardAddress, kCardPort}, localAddress, &caller) || !StartControl() ||
      !AwaitInformation(caller) || !StartAudio(localAddress, cardAddress)) {
    return false;
  }
  SendMessage(*core, StartRequest());
  SleepMs(kStartPauseMs);
  ConfigureTrunks(*core);
  SleepMs(kConfigurePauseMs);
  hasControllers = true;
  SetUpTrunks(*core, generation);
  SendMessage(*core, AudioPort(core->audio.LocalPort()));
  StatusPage().CardOpens(core->number, core->facts.serialNumber, cardAddress, core->facts.trunkCount);
  core->ReportCardUp();
  core->controllersRunning = true;
  return true;
}

bool CCard::ResetForOpen(const CStopFlag& caller) {
  if (!core->ReleaseControllers({kLockMs, caller})) {
    return false;
  }
  for (CTrunk& trunk : core->trunks) {
    trunk.lineStatus = kLineUnknown;
    trunk.nodeType = kUserSide;
    trunk.switchType = kEuroIsdnE1;
  }
  core->audio.ResetChannels(Config().Dtmf());
  core->facts.BeginOpen();
  return true;
}

bool CCard::StartControl() {
  control = std::make_shared<CControlThread>(core, core->link.Socket(), generation);
  return controlThread.Start("zelk-control", [thread = control] { thread->Run(); });
}

// The control thread has sent the first request. A bad answer ends the wait too, and leaves no serial number.
bool CCard::AwaitInformation(const CStopFlag& caller) {
  bool isAnswered = core->facts.WaitForAnswer(kAnswerMs, &caller);
  for (int i = 0; i < kFurtherRequests && !isAnswered && !caller.IsSet(); ++i) {
    core->facts.Forget();
    SendMessage(*core, InformationRequest());
    isAnswered = core->facts.WaitForAnswer(kAnswerMs, &caller);
  }
  return core->facts.serialNumber != 0;
}

bool CCard::StartAudio(SIpv4Address localAddress, SIpv4Address cardAddress) {
  CAudioStream& audio = core->audio;
  return audio.OpenSocket(localAddress, cardAddress, core->facts.trunkCount, Config().AudioBlocks()) &&
         audio.StartPacer() && audio.StartReceiver();
}

void CCard::StopControllers(const CStopFlag& caller) {
  core->controllersRunning = false;
  if (std::exchange(hasControllers, false)) {
    core->ReleaseControllers({kLockMs, caller});
  }
}

void CCard::CloseLocked(const CStopFlag& caller) {
  StopControllers(caller);
  if (!std::exchange(isBegun, false)) {
    return;
  }
  SleepMs(0);
  StopThreads();
  StatusPage().CardCloses(core->number, kStatusCardClosed);
  core->audio.FreeBuffers();
  core->CloseCaptures({kCaptureLockMs, caller});
}

void CCard::StopThreads() {
  if (control != nullptr) {
    control->RequestStop();
  }
  core->audio.RequestStop();
  core->audio.CloseSocket();
  core->link.Close();
  bool isEnded = core->audio.JoinReceiver(kJoinMs);
  controlThread.JoinFor(kJoinMs);
  control.reset();
  isEnded = core->audio.JoinPacer(kJoinMs) && isEnded;
  if (!isEnded) {
    CCardCore::KeepForever(core);
  }
}

void CCard::SetHandlers(ICardHandlers* handlers) {
  core->handlers = handlers;
  core->audio.SetHook(handlers);
}

uint32_t CCard::Number() const {
  return core->number;
}
uint32_t CCard::TrunkCount() const {
  return core->facts.trunkCount;
}
uint32_t CCard::SerialNumber() const {
  return core->facts.serialNumber;
}
void CCard::RestoreSerialNumber(uint32_t serialNumber) {
  core->facts.serialNumber = serialNumber;
}
uint32_t CCard::FeatureFlags() const {
  return core->facts.featureFlags;
}
uint8_t CCard::FirmwareVersion() const {
  return core->facts.firmwareVersion;
}
std::string CCard::FirmwareDate() const {
  return core->facts.FirmwareDate();
}
std::string CCard::BurnDate() const {
  return core->facts.BurnDate();
}
bool CCard::ControllersRunning() const {
  return core->controllersRunning;
}
CTrunk& CCard::Trunk(uint32_t trunk) {
  return core->trunks[trunk];
}
CAudioStream& CCard::Audio() {
  return core->audio;
}

void CCard::SendTrunkConfiguration(uint32_t trunk) {
  core->SendTrunkConfiguration(trunk);
}
void CCard::SendRegisterRead(uint32_t trunk, uint16_t registerNumber) {
  core->SendRegisterRead(trunk, registerNumber);
}
bool CCard::SendDchannelFrame(uint32_t trunk, const uint8_t* frame, size_t length) {
  return core->SendDchannelFrame(trunk, frame, length);
}

}  // namespace zelk

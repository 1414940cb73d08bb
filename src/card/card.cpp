#include "card/card.h"

#include <vector>

#include "card/card_core.h"
#include "card/control_messages.h"
#include "card/control_thread.h"
#include "card/trunk_setup.h"
#include "platform/clock.h"
#include "runtime/config.h"

namespace zelk {

namespace {

constexpr uint32_t kJoinMs = 3000;
constexpr uint32_t kLockMs = 3000;
constexpr uint32_t kCaptureLockMs =
    100;  // the controllers are gone: only a callback that hangs holds a lock for longer
constexpr uint32_t kAnswerMs = 1000;
constexpr int kFurtherRequests = 2;
constexpr uint32_t kStartPauseMs = 20;
constexpr uint32_t kConfigurePauseMs = 1;
constexpr uint8_t kLineUnknown = 3;
constexpr int32_t kUserSide = 2;
constexpr int32_t kEuroIsdn = 5;

// A thread that did not end in time may still report to the core, so the core stays for good.
void KeepForever(std::shared_ptr<CCardCore> core) {
  static CMutex lock;
  static std::vector<std::shared_ptr<CCardCore>>& kept = *new std::vector<std::shared_ptr<CCardCore>>();
  const CScopedLock<CMutex> held(lock);
  kept.push_back(std::move(core));
}

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

bool CCard::Open(const char* cardAddress, uint16_t, const char* localAddress) {
  const CScopedLock<CMutex> held(lifecycle);
  return OpenLocked(cardAddress, localAddress, nullptr);
}

void CCard::Close() {
  const CScopedLock<CMutex> held(lifecycle);
  CloseLocked();
}

bool CCard::Reopen(const char* cardAddress, const char* localAddress, const std::atomic<bool>& cancel) {
  const CScopedLock<CMutex> held(lifecycle);
  if (cancel) {
    return false;  // the library has been shut down meanwhile
  }
  const uint32_t serialNumber = core->facts.serialNumber;
  if (core->controllersRunning) {
    // Without controllers no new call can begin behind the handlers' back.
    StopControllers();
    if (ICardHandlers* handlers = core->handlers) {
      handlers->OnCardReopening(*this);
    }
  }
  const bool isOpen = OpenLocked(cardAddress, localAddress, &cancel);
  if (!isOpen) {
    core->facts.serialNumber = serialNumber;
  }
  return isOpen;
}

bool CCard::OpenLocked(const char* cardAddress, const char* localAddress, const std::atomic<bool>* cancel) {
  CloseLocked();
  const bool isOpen = TryOpen(cardAddress, localAddress, cancel);
  if (!isOpen) {
    CloseLocked();
  }
  return isOpen;
}

bool CCard::TryOpen(const char* cardAddress, const char* localAddress, const std::atomic<bool>* cancel) {
  uint32_t remote = 0;
  uint32_t local = 0;
  if (!ResetForOpen() || !ResolveIpv4(cardAddress, remote) || !ParseIpv4(localAddress, local)) {
    return false;
  }
  ++opening;
  if (!core->link.Connect(remote, kCardPort, local, cancel) || !StartControl() || !AwaitInformation(cancel) ||
      !StartAudio(local, remote)) {
    return false;
  }
  SendMessage(*core, StartRequest());
  SleepMs(kStartPauseMs);
  ConfigureTrunks(*core);
  SleepMs(kConfigurePauseMs);
  SetUpTrunks(*core, opening);
  SendMessage(*core, AudioPort(core->audio.LocalPort()));
  core->ReportCardState(1);
  core->controllersRunning = true;
  return true;
}

bool CCard::ResetForOpen() {
  if (!core->ReleaseControllers(kLockMs)) {
    return false;
  }
  for (CTrunk& trunk : core->trunks) {
    trunk.lineStatus = kLineUnknown;
    trunk.nodeType = kUserSide;
    trunk.switchType = kEuroIsdn;
  }
  core->audio.ResetChannels(Config().Dtmf());
  core->facts.BeginOpen();
  return true;
}

bool CCard::StartControl() {
  control = std::make_shared<CControlThread>(core, core->link.Socket(), opening);
  return controlThread.Start("zelk-control", [thread = control] { thread->Run(); });
}

// The control thread has sent the first request. A bad answer ends the wait too, and leaves no serial number.
bool CCard::AwaitInformation(const std::atomic<bool>* cancel) {
  bool isAnswered = core->facts.WaitForAnswer(kAnswerMs, cancel);
  for (int i = 0; i < kFurtherRequests && !isAnswered && (cancel == nullptr || !*cancel); ++i) {
    core->facts.Forget();
    SendMessage(*core, InformationRequest());
    isAnswered = core->facts.WaitForAnswer(kAnswerMs, cancel);
  }
  return core->facts.serialNumber != 0;
}

bool CCard::StartAudio(uint32_t localAddress, uint32_t cardAddress) {
  CAudioStream& audio = core->audio;
  return audio.OpenSocket(localAddress, cardAddress, core->facts.trunkCount, Config().AudioBlocks()) &&
         audio.StartPacer() && audio.StartReceiver();
}

void CCard::StopControllers() {
  core->controllersRunning = false;
  core->ReleaseControllers(kLockMs);
}

void CCard::CloseLocked() {
  StopControllers();
  SleepMs(0);
  StopThreads();
  core->audio.FreeBuffers();
  core->CloseCaptures(kCaptureLockMs);
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
    KeepForever(core);
  }
}

void CCard::SetHandlers(ICardHandlers* handlers) {
  core->handlers = handlers;
  core->audio.SetHook(handlers);
  core->ReportEarlyDchannels();
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

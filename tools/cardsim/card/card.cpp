// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/card/card.h"

#include <algorithm>
#include <stdexcept>

#include "cardsim/card/control_link.h"
#include "cardsim/exchange/trunk.h"

namespace cardsim {

CCard::CCard(int cardIndex, const SCardConfig& cardConfig, std::string broadcastAddress, bool keepHistory,
             IReactor& signallingReactor, IReactor& audioReactor)
    : index(cardIndex),
      config(cardConfig),
      broadcast(std::move(broadcastAddress)),
      reactor(signallingReactor),
      history(keepHistory),
      audio(audioReactor, cardConfig, [this](const std::string& from) { Post([this, from] { OnProbe(from); }); }),
      status(static_cast<std::size_t>(cardConfig.identity.trunks), 0),
      address(cardConfig.address),
      planner([](const CCall&) { return SAnswerPlan(); }) {
  link = std::make_unique<CControlLink>(
      reactor,
      CControlLink::SHandlers{[this](const std::string& peer) { OnConnected(peer); }, [this] { OnDisconnected(); },
                              [this](SControlMessage&& message) { OnMessage(std::move(message)); }});
  const CTrunkCalls::SHandlers handlers{[this](const CCall& call) { return PlanFor(call); },
                                        [this](const Call& call) { TakeCall(call); },
                                        [this](const Call& call) { EndOfCall(call); }};
  for (int trunk = 0; trunk < TrunkCount(); ++trunk) {
    const auto role = config.roles.find(trunk);
    trunks.push_back(std::make_unique<CTrunk>(
        index, trunk, role == config.roles.end() ? SPeerRole() : role->second, reactor, audio, history,
        [this](int from, ByteView frame) { Send(BuildFrameMessage(from, frame)); }, handlers));
  }
}

CCard::~CCard() = default;

void CCard::Open() {
  reactor.Call([this] {
    audio.Open(config.address);
    link->Listen(config.address);
  });
}

void CCard::Close() {
  reactor.Call([this] {
    link->StopListening();
    link->Drop();
    LinesDown();
    audio.Close();
  });
}

void CCard::Tick() {
  for (const auto& trunk : trunks) {
    trunk->RunTimers();
  }
  if (connected && reactor.Now() >= nextStatus) {
    SendStatus();
  }
}

void CCard::OnProbe(const std::string& from) {
  if (answerProbes) {
    audio.SendTo(discoveryReply.value_or(BuildDiscoveryReply()), from, kCardPort);
  }
}

void CCard::OnConnected(const std::string& peer) {
  library = peer;
  connected = true;
  started = false;
  ++connection;
  // The first status goes after the information: before that the library cannot know how long it is.
  nextStatus = std::chrono::steady_clock::time_point::max();
  history.AddConnection();
}

void CCard::OnDisconnected() {
  connected = false;
  audio.Stop();
  LinesDown();
  history.SetReady(false);
  history.SetConnected(false);
}

void CCard::OnMessage(SControlMessage&& message) {
  // Seen before it is acted on, so that a test that sees the effect finds the cause.
  history.AddMessage(message);
  const Bytes& bytes = message.bytes;
  if (message.Is(EControlType::kInformationRequest) && answerInformation) {
    AnswerInformation();
  } else if (message.Is(EControlType::kRegisterRead)) {
    const auto found = config.registers.find(ReadLe16(&bytes[3]));
    Send(BuildRegisterValue(static_cast<std::uint8_t>(bytes[2] - 1), ReadLe16(&bytes[3]),
                            found == config.registers.end() ? std::uint8_t{0} : found->second));
  } else if (message.Is(EControlType::kStart)) {
    started = true;
    SendStatus();
  } else if (message.Is(EControlType::kAudioPort)) {
    OnAudioPort(ReadLe16(&bytes[2]));
  } else if (message.Is(EControlType::kFrame) && bytes[2] <= TrunkCount()) {
    Trunk(bytes[2] - 1).FromLibrary(ByteView(bytes).subspan(5, bytes.size() - 6));
  }
}

void CCard::OnAudioPort(std::uint16_t port) {
  if (!started || port == 0) {
    return;
  }
  audio.Start(library, port);
  LinesUpLater();
  history.SetReady(true);
}

void CCard::LinesUpLater() {
  reactor.After(config.lineDelay, [this, current = connection] {
    for (const auto& trunk : trunks) {
      if (connected && connection == current) {
        trunk->LineUp();
      }
    }
  });
}

void CCard::LinesDown() {
  for (const auto& trunk : trunks) {
    trunk->LineDown();
  }
}

void CCard::Send(Bytes bytes) {
  if (!silent) {
    link->Send(std::move(bytes));
  }
}

void CCard::SendStatus() {
  nextStatus = reactor.Now() + config.statusInterval;
  Send(BuildTrunkStatus(status));
}

void CCard::TakeCall(const Call& call) {
  std::function<void(const Call&)> observer;
  {
    const std::lock_guard guard(lock);
    observer = arrivalObserver;
    if (history.KeepsAll()) {
      waitingCalls.push_back(call);
    }
  }
  arrived.notify_all();
  if (observer) {
    observer(call);
  }
}

SAnswerPlan CCard::PlanFor(const CCall& call) {
  AnswerPlanner current;
  {
    const std::lock_guard guard(lock);
    current = planner;
  }
  return current(call);
}

void CCard::EndOfCall(const Call& call) {
  std::function<void(const Call&)> observer;
  {
    const std::lock_guard guard(lock);
    observer = endObserver;
  }
  if (observer) {
    observer(call);
  }
}

CTrunk& CCard::Trunk(int trunk) const {
  return *trunks.at(static_cast<std::size_t>(trunk));
}

std::string CCard::Address() const {
  const std::lock_guard guard(lock);
  return address;
}

bool CCard::WaitUp(std::chrono::milliseconds timeout) const {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (int trunk = 0; trunk < TrunkCount(); ++trunk) {
    const auto left = deadline - std::chrono::steady_clock::now();
    if (!history.WaitTrunk(trunk, true, std::chrono::duration_cast<std::chrono::milliseconds>(left))) {
      return false;
    }
  }
  return true;
}

Call CCard::PlaceCall(SCallRequest request) {
  CTrunk& trunk = Trunk(request.trunk);
  return trunk.Calls()->Place(std::move(request));
}

bool CCard::IsTimeslotIdle(int trunk, int timeslot) const {
  return Trunk(trunk).Calls()->IsIdle(timeslot);
}

std::size_t CCard::CallCount(int trunk) {
  CTrunk& target = Trunk(trunk);
  std::size_t count = 0;
  reactor.Call([&] { count = std::max(target.Calls()->Count(), target.Peer().HeldCalls().size()); });
  return count;
}

std::vector<SHeldCall> CCard::HeldCalls(int trunk) {
  CTrunk& target = Trunk(trunk);
  std::vector<SHeldCall> held;
  reactor.Call([&] { held = target.Peer().HeldCalls(); });
  return held;
}

void CCard::SetAnswerPlan(const SAnswerPlan& plan) {
  SetAnswerPlanner([plan](const CCall&) { return plan; });
}

void CCard::SetAnswerPlanner(AnswerPlanner next) {
  const std::lock_guard guard(lock);
  planner = std::move(next);
}

Call CCard::WaitCall(std::chrono::milliseconds timeout) {
  std::unique_lock guard(lock);
  if (!arrived.wait_for(guard, timeout, [&] { return !waitingCalls.empty(); })) {
    return nullptr;
  }
  Call call = waitingCalls.front();
  waitingCalls.pop_front();
  return call;
}

void CCard::OnCallArrived(std::function<void(const Call&)> observer) {
  const std::lock_guard guard(lock);
  arrivalObserver = std::move(observer);
}

void CCard::OnCallEnded(std::function<void(const Call&)> observer) {
  const std::lock_guard guard(lock);
  endObserver = std::move(observer);
}

Recorder CCard::RecordTimeslot(int trunk, int timeslot) {
  auto recorder = std::make_shared<CRecorder>();
  audio.AddRecorder(trunk, timeslot, recorder);
  return recorder;
}

void CCard::StopRecording(int trunk, int timeslot, const Recorder& recorder) {
  audio.RemoveRecorder(trunk, timeslot, recorder);
}

}  // namespace cardsim

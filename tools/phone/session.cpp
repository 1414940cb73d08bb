// SPDX-License-Identifier: GPL-2.0-only
#include "phone/session.h"

#include <algorithm>
#include <csignal>

namespace phone {

namespace {

// A signal handler cannot wake a condition variable, so every wait looks up from time to time.
constexpr std::chrono::milliseconds kLook{50};

volatile std::sig_atomic_t stopSignal = 0;

void OnStopSignal(int /*signal*/) {
  stopSignal = 1;
}

// Any request for information ends the life of the text that the one before returned.
std::mutex& InfoLock() {
  static std::mutex lock;
  return lock;
}

// What is told of a call stands in the channel's record until the next one comes.
SCaller CallerOn(int32_t channel) {
  return {InfoText(channel, ZELK_INFO_CLI), InfoText(channel, ZELK_INFO_DLI), InfoText(channel, ZELK_INFO_RLI),
          InfoText(channel, ZELK_INFO_CALLTYPE)};
}

int32_t CountUsable() {
  int32_t usable = 0;
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    if (InfoNumber(channel, ZELK_INFO_CHANNELSTATE) >= ZELK_CHANNEL_READY) {
      ++usable;
    }
  }
  return usable;
}

}  // namespace

std::atomic<CSession*> CSession::current{nullptr};

CSession::CSession(IBlockSink& blockSink) : sink(blockSink) {
  std::signal(SIGINT, OnStopSignal);
  std::signal(SIGTERM, OnStopSignal);
#if defined(SIGPIPE)
  std::signal(SIGPIPE, SIG_IGN);  // a reader that goes away ends the calls like everyone else
#endif
  current = this;
  ZELK_SetEventCallback(OnEvent);
  ZELK_SetRecordCallback(OnRecord);
  if (!ZELK_Init()) {
    current = nullptr;
    throw CPhoneError(EExit::kFailed, "the library could not be started");
  }
  if (ZELK_GetChannelCount() == 0) {
    ZELK_Shutdown();
    current = nullptr;
    throw CPhoneError(EExit::kNoCard, "no card found: nothing answered the broadcast on UDP port 5854");
  }
}

CSession::~CSession() {
  ZELK_Shutdown();
  ZELK_SetEventCallback(nullptr);
  ZELK_SetRecordCallback(nullptr);
  current = nullptr;
}

bool CSession::StopRequested() {
  return stopSignal != 0;
}

void CSession::RequestStop() {
  stopSignal = 1;
}

int32_t CSession::WaitForTrunks(std::chrono::milliseconds limit) {
  WaitUntil(limit, [this] { return CountUsable() == ChannelCount(); });
  return CountUsable();
}

bool CSession::WaitForChannel(int32_t channel, std::chrono::milliseconds limit) {
  return WaitUntil(limit, [&] { return InfoNumber(channel, ZELK_INFO_CHANNELSTATE) >= ZELK_CHANNEL_READY; });
}

bool CSession::WaitUntil(std::chrono::milliseconds limit, const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline || StopRequested()) {
      return false;
    }
    std::unique_lock<std::mutex> guard(lock);
    arrived.wait_until(guard, std::min(deadline, now + kLook));
  }
  return true;
}

bool CSession::NextEvent(SPhoneEvent& event, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  const auto isDue = [this] { return woken || !events.IsEmpty(); };
  std::unique_lock<std::mutex> guard(lock);
  for (auto now = std::chrono::steady_clock::now(); !isDue() && now < deadline && StopRequested() == toldStop;
       now = std::chrono::steady_clock::now()) {
    arrived.wait_until(guard, std::min(deadline, now + kLook), isDue);
  }
  toldStop = StopRequested();
  woken = false;
  return events.Take(event);
}

void CSession::Wake() {
  {
    const std::lock_guard<std::mutex> guard(lock);
    woken = true;
  }
  arrived.notify_one();
}

std::optional<SPhoneEvent> CSession::TakeEnd(int32_t channel) {
  const std::lock_guard<std::mutex> guard(lock);
  return events.TakeEnd(channel);
}

void ZELK_CALL CSession::OnEvent(int32_t channel, uint32_t event, int32_t param) {
  CSession* session = current;
  if (session == nullptr) {
    return;
  }
  SPhoneEvent came{channel, event, param, std::chrono::system_clock::now(), {}};
  if (event == ZELK_EVENT_INCOMING_CALL) {
    came.caller = CallerOn(channel);
  }
  {
    const std::lock_guard<std::mutex> guard(session->lock);
    session->events.Push(came);
  }
  session->arrived.notify_one();
}

void ZELK_CALL CSession::OnRecord(uint32_t channel, const uint8_t* data, uint32_t length) {
  CSession* session = current;
  if (session != nullptr) {
    session->sink.Append(channel, data, length);
  }
}

std::string InfoText(int32_t channel, uint32_t key) {
  const std::lock_guard<std::mutex> guard(InfoLock());
  const char* text = ZELK_GetChannelInfoString(channel, key);
  return text == nullptr ? std::string() : std::string(text);
}

uint32_t InfoNumber(int32_t channel, uint32_t key) {
  const std::lock_guard<std::mutex> guard(InfoLock());
  return ZELK_GetChannelInfo(channel, key);
}

}  // namespace phone

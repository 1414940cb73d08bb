// SPDX-License-Identifier: GPL-2.0-only
#include "phone/session.h"

#include <csignal>

namespace phone {

namespace {

// A signal handler cannot wake a condition variable, so every wait looks up from time to time.
constexpr std::chrono::milliseconds kLook{50};

volatile std::sig_atomic_t stopSignal = 0;

void OnStopSignal(int /*signal*/) {
  stopSignal = 1;
}

int32_t CountUsable() {
  int32_t usable = 0;
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    if (ZELK_GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) >= ZELK_CHANNEL_READY) {
      ++usable;
    }
  }
  return usable;
}

}  // namespace

std::atomic<CSession*> CSession::current{nullptr};

CSession::CSession(CRecorder& blockRecorder) : recorder(blockRecorder) {
  std::signal(SIGINT, OnStopSignal);
  std::signal(SIGTERM, OnStopSignal);
  current = this;
  ZELK_SetEventCallback(OnEvent);
  ZELK_SetRecordCallback(OnRecord);
  if (!ZELK_Init()) {
    current = nullptr;
    throw CPhoneError("the library could not be started");
  }
  if (ZELK_GetChannelCount() == 0) {
    ZELK_Shutdown();
    current = nullptr;
    throw CPhoneError("no card found: nothing answered the broadcast on UDP port 5854");
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

int32_t CSession::WaitForTrunks(std::chrono::milliseconds limit) {
  WaitUntil(limit, [this] { return CountUsable() == ChannelCount(); });
  return CountUsable();
}

bool CSession::WaitForChannel(int32_t channel, std::chrono::milliseconds limit) {
  return WaitUntil(limit, [&] { return ZELK_GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) >= ZELK_CHANNEL_READY; });
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
  const auto hasEvent = [this] {
    const std::lock_guard<std::mutex> guard(lock);
    return !events.IsEmpty();
  };
  if (!WaitUntil(limit, hasEvent)) {
    return false;
  }
  const std::lock_guard<std::mutex> guard(lock);
  return events.Take(event);
}

bool CSession::TakeEnd(int32_t channel) {
  const std::lock_guard<std::mutex> guard(lock);
  return events.TakeEnd(channel);
}

void ZELK_CALL CSession::OnEvent(int32_t channel, uint32_t event, int32_t param) {
  CSession* session = current;
  if (session == nullptr) {
    return;
  }
  {
    const std::lock_guard<std::mutex> guard(session->lock);
    session->events.Push({channel, event, param});
  }
  session->arrived.notify_one();
}

void ZELK_CALL CSession::OnRecord(uint32_t channel, const uint8_t* data, uint32_t length) {
  CSession* session = current;
  if (session != nullptr) {
    session->recorder.Append(channel, data, length);
  }
}

std::string InfoText(int32_t channel, uint32_t key) {
  const char* text = ZELK_GetChannelInfoString(channel, key);
  return text == nullptr ? std::string() : std::string(text);
}

std::string CauseText(int32_t cause) {
  return std::to_string(cause) + " " + ZELK_DisconnectReasonToString(cause);
}

}  // namespace phone

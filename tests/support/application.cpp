// SPDX-License-Identifier: GPL-2.0-only
#include "support/application.h"

#include <algorithm>

#include "support/eventually.h"

namespace support {

std::atomic<CApplication*> CApplication::current{nullptr};
std::atomic<int> CApplication::inside{0};

// The application for the length of a callback, null when it is gone.
class CApplication::CInside {
 public:
  CInside() {
    ++inside;
    application = current;
  }
  ~CInside() { --inside; }
  CInside(const CInside&) = delete;
  CInside& operator=(const CInside&) = delete;

  explicit operator bool() const { return application != nullptr; }
  CApplication* operator->() const { return application; }

 private:
  CApplication* application = nullptr;
};

CApplication::CApplication(const std::string& ini) : zelk(ini) {
  current = this;
  zelk.SetEventCallback(OnEvent);
  zelk.PassRecord(remote::kPassNone);
  zelk.SetRecordCallback(OnRecord);
}

CApplication::~CApplication() {
  if (zelk.IsLoaded()) {
    zelk.Shutdown();
    zelk.SetEventCallback(nullptr);
    zelk.SetRecordCallback(nullptr);
    zelk.SetPlayCallback(nullptr);
  }
  current = nullptr;
  // A callback that a test held over the shut-down is on its last steps.
  while (inside > 0) {
    std::this_thread::yield();
  }
}

void ZELK_CALL CApplication::OnEvent(int32_t channel, uint32_t event, int32_t param) {
  const SAppEvent appEvent{channel, event, param, std::this_thread::get_id()};
  const CInside app;
  if (!app) {
    return;
  }
  if (app->onEvent) {
    app->onEvent(appEvent);
  }
  {
    const std::lock_guard<std::mutex> guard(app->lock);
    app->events.push_back(appEvent);
  }
  app->changed.notify_all();
}

void ZELK_CALL CApplication::OnRecord(uint32_t channel, const uint8_t* data, uint32_t length) {
  const CInside app;
  if (!app) {
    return;
  }
  if (app->onRecord) {
    app->onRecord(channel, data, length);
  }
  {
    const std::lock_guard<std::mutex> guard(app->lock);
    const auto found = app->recordings.find(static_cast<int32_t>(channel));
    if (found == app->recordings.end()) {
      return;
    }
    found->second.insert(found->second.end(), data, data + length);
  }
  app->changed.notify_all();
}

void ZELK_CALL CApplication::OnPlay(uint32_t channel, uint8_t* data, uint32_t length) {
  const CInside app;
  if (app) {
    app->onPlay(channel, data, length);
  }
}

void CApplication::SetOnPlay(std::function<void(uint32_t channel, uint8_t* data, uint32_t length)> function) {
  onPlay = std::move(function);
  zelk.SetPlayCallback(OnPlay);
}

void CApplication::SetOnRecord(std::function<void(uint32_t channel, const uint8_t* data, uint32_t length)> function) {
  onRecord = std::move(function);
  zelk.PassRecord(remote::kPassAll);
}

bool CApplication::WaitAllReady(std::chrono::milliseconds timeout) {
  return Eventually(
      [this] {
        const int32_t count = zelk.GetChannelCount();
        int32_t ready = 0;
        for (int32_t channel = 0; channel < count; ++channel) {
          ready += zelk.GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) == ZELK_CHANNEL_READY ? 1 : 0;
        }
        return ready == count;
      },
      timeout, std::chrono::milliseconds(20));
}

bool CApplication::WaitEvent(int32_t channel, uint32_t code, std::chrono::milliseconds timeout, size_t count,
                             int32_t* param) {
  std::unique_lock<std::mutex> guard(lock);
  return changed.wait_for(guard, timeout, [&] {
    size_t seen = 0;
    for (const SAppEvent& event : events) {
      if (event.channel == channel && event.code == code && ++seen == count) {
        if (param != nullptr) {
          *param = event.param;
        }
        return true;
      }
    }
    return false;
  });
}

std::vector<SAppEvent> CApplication::Events(int32_t channel) {
  const std::lock_guard<std::mutex> guard(lock);
  std::vector<SAppEvent> found;
  std::copy_if(events.begin(), events.end(), std::back_inserter(found),
               [&](const SAppEvent& event) { return event.channel == channel; });
  return found;
}

std::vector<uint32_t> CApplication::CallEvents(int32_t channel) {
  std::vector<uint32_t> codes;
  for (const SAppEvent& event : Events(channel)) {
    if (event.code != ZELK_EVENT_CHANNEL_STATE) {
      codes.push_back(event.code);
    }
  }
  return codes;
}

size_t CApplication::Count(uint32_t code) {
  const std::lock_guard<std::mutex> guard(lock);
  return static_cast<size_t>(
      std::count_if(events.begin(), events.end(), [&](const SAppEvent& event) { return event.code == code; }));
}

void CApplication::Forget() {
  const std::lock_guard<std::mutex> guard(lock);
  events.clear();
  recordings.clear();
}

void CApplication::Record(int32_t channel) {
  zelk.PassRecord(channel);
  const std::lock_guard<std::mutex> guard(lock);
  recordings[channel].clear();
}

std::vector<uint8_t> CApplication::Recorded(int32_t channel) {
  const std::lock_guard<std::mutex> guard(lock);
  return recordings[channel];
}

bool CApplication::WaitRecorded(int32_t channel, size_t bytes, std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> guard(lock);
  return changed.wait_for(guard, timeout, [&] { return recordings[channel].size() >= bytes; });
}

std::string CApplication::Text(int32_t channel, uint32_t key) {
  const char* text = zelk.GetChannelInfoString(channel, key);
  return text == nullptr ? std::string() : std::string(text);
}

long FindSound(const std::vector<uint8_t>& whole, const std::vector<uint8_t>& part) {
  const auto at = std::search(whole.begin(), whole.end(), std::boyer_moore_horspool_searcher(part.begin(), part.end()));
  return at == whole.end() ? -1 : static_cast<long>(at - whole.begin());
}

}  // namespace support

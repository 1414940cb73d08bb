// SPDX-License-Identifier: GPL-2.0-only

// An application that places calls on all channels in turn, at this rate a second; 0 places none. Each call plays from
// its connection on, is recorded, and is hung up after a tenth of a second. Usage: load_caller LIBRARY RATE CHANNELS
// "ready" once so many channels are READY. A line of JSON for each line on the input, with the counts up to then.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include "load/library.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kHold{100};
constexpr std::chrono::milliseconds kTurn{1};
constexpr std::chrono::seconds kPatience{60};
constexpr int32_t kNormalClearing = 16;

struct SConnected {
  int32_t channel;
  Clock::time_point since;
};

// What the callbacks and the caller share.
std::mutex lock;
std::deque<int32_t> idle;          // guarded by lock
std::deque<SConnected> connected;  // guarded by lock
std::atomic<uint64_t> dialled{0};
std::atomic<uint64_t> talked{0};
std::atomic<uint64_t> ended{0};
std::atomic<uint64_t> failed{0};
load::CRecordCount recorded;
std::array<uint8_t, 1600> sound;  // twice what is heard before the end
const load::SLibrary* library = nullptr;

void ZELK_CALL OnEvent(int32_t channel, uint32_t event, int32_t parameter) {
  if (event == ZELK_EVENT_CONNECTED) {
    ++talked;
    library->PlayBuffer(channel, sound.data(), static_cast<uint32_t>(sound.size()));
    const std::lock_guard<std::mutex> held(lock);
    connected.push_back({channel, Clock::now()});
  } else if (event == ZELK_EVENT_DISCONNECTED) {
    ++ended;
    failed += parameter == kNormalClearing ? 0 : 1;
    const std::lock_guard<std::mutex> held(lock);
    idle.push_back(channel);
  }
}

void ZELK_CALL OnRecord(uint32_t channel, const uint8_t* data, uint32_t length) {
  recorded.Take(channel, data, length);
}

bool TakeIdle(int32_t& channel) {
  const std::lock_guard<std::mutex> held(lock);
  if (idle.empty()) {
    return false;
  }
  channel = idle.front();
  idle.pop_front();
  return true;
}

bool TakeHeld(int32_t& channel) {
  const std::lock_guard<std::mutex> held(lock);
  if (connected.empty() || Clock::now() - connected.front().since < kHold) {
    return false;
  }
  channel = connected.front().channel;
  connected.pop_front();
  return true;
}

void HangUpHeld() {
  for (int32_t channel = 0; TakeHeld(channel);) {
    library->StopPlay(channel);
    library->Hangup(channel);
  }
}

void PlaceCalls(double rate, const std::atomic<bool>& stopping) {
  constexpr double kMostDue = 100;  // what could not be placed in time is not made up for
  double due = 0;
  for (auto last = Clock::now(); !stopping; std::this_thread::sleep_for(kTurn)) {
    const auto now = Clock::now();
    due = std::min(due + std::chrono::duration<double>(now - last).count() * rate, kMostDue);
    last = now;
    HangUpHeld();
    for (int32_t channel = 0; due >= 1 && TakeIdle(channel); due -= 1) {
      ++dialled;
      failed += library->Dial(channel, "5551234", "100") ? 0 : 1;
    }
  }
}

void WaitUp(int32_t channels) {
  const auto deadline = Clock::now() + kPatience;
  for (int32_t channel = 0; channel < channels; ++channel) {
    while (library->GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) != ZELK_CHANNEL_READY) {
      if (Clock::now() > deadline) {
        throw std::runtime_error("channel " + std::to_string(channel) + " is not READY");
      }
      std::this_thread::sleep_for(kTurn);
    }
    library->OpenChannel(channel);
    idle.push_back(channel);
  }
}

void Report() {
  const auto wide = [](uint64_t value) { return static_cast<unsigned long long>(value); };
  std::printf("{\"dialled\": %llu, \"connected\": %llu, \"ended\": %llu, \"failed\": %llu, \"recorded\": %llu}\n",
              wide(dialled), wide(talked), wide(ended), wide(failed), wide(recorded.Blocks()));
  std::fflush(stdout);
}

void Run(const std::string& path, double rate, int32_t channels) {
  const load::SLibrary loaded(path);
  library = &loaded;
  sound.fill(0x2A);
  loaded.SetEventCallback(&OnEvent);
  if (rate > 0) {
    loaded.SetRecordCallback(&OnRecord);
  }
  if (!loaded.Init() || loaded.GetChannelCount() != channels) {
    throw std::runtime_error("found " + std::to_string(loaded.GetChannelCount()) + " channels");
  }
  WaitUp(channels);
  std::atomic<bool> stopping{false};
  std::thread caller([&] {
    if (rate > 0) {
      PlaceCalls(rate, stopping);
    }
  });
  std::puts("ready");
  std::fflush(stdout);
  for (std::string line; std::getline(std::cin, line);) {
    Report();
  }
  stopping = true;
  caller.join();
  loaded.Shutdown();
  Report();
}

}  // namespace

int main(int count, char** arguments) {
  try {
    if (count != 4) {
      throw std::runtime_error("usage: load_caller LIBRARY RATE CHANNELS");
    }
    Run(arguments[1], std::atof(arguments[2]), std::atoi(arguments[3]));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "load_caller: %s\n", error.what());
    return 1;
  }
  return 0;
}

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "zelk/ZelkApi.h"

// A library that does what a test says: what was called is noted, events and sound come when the test brings them.
class CStandIn {
 public:
  static constexpr int32_t kChannels = 240;

  // Puts itself into the table of functions; one at a time.
  CStandIn();
  ~CStandIn();
  CStandIn(const CStandIn&) = delete;
  CStandIn& operator=(const CStandIn&) = delete;

  // What the functions on channels give, and what Init does before it does.
  std::atomic<bool> result{true};
  std::atomic<bool> initResult{true};
  std::function<void()> onInit;
  std::function<void()> onShutdown;
  std::function<void()> onCall;  // inside every function that takes a channel

  // As on a thread of the library; nothing where no callback is set.
  void BringEvent(int32_t channel, uint32_t code, int32_t param) const;
  void BringSound(uint32_t channel, uint8_t fill) const;  // a block of this byte
  void BringSound(uint32_t channel, const std::vector<uint8_t>& block) const;
  std::vector<uint8_t> TakeSound(uint32_t channel) const;  // what the play callback makes of silence

  bool HasEventCallback() const { return event.load() != nullptr; }
  bool HasRecordCallback() const { return record.load() != nullptr; }
  bool HasPlayCallback() const { return play.load() != nullptr; }

  // "Dial 3 5551234 8001" ... in the order of the calls; without those that ask for information.
  std::vector<std::string> Calls() const;
  void Forget();

  void Note(const std::string& call);
  // The text of a channel is written over by every request, a character at a time.
  const char* Text(int32_t channel, uint32_t key);
  uint32_t Number(int32_t channel, uint32_t key);

  std::atomic<ZelkEventCallback> event{nullptr};
  std::atomic<ZelkRecordCallback> record{nullptr};
  std::atomic<ZelkPlayCallback> play{nullptr};

 private:
  mutable std::mutex lock;
  std::vector<std::string> calls;  // guarded by lock
  std::array<std::array<char, 64>, kChannels> texts{};
};

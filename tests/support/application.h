// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/zelk_library.h"

namespace support {

struct SAppEvent {
  int32_t channel = 0;
  uint32_t code = 0;
  int32_t param = 0;
  std::thread::id thread;
};

// An application under test: the three callbacks, every event kept in order, recorded sound per channel.
// Thread: the callbacks the library's; the rest the test's. One application at a time (C callbacks carry no context).
// Waits return false when the time runs out.
class CApplication {
 public:
  explicit CApplication(const std::string& ini = {});
  ~CApplication();
  CApplication(const CApplication&) = delete;
  CApplication& operator=(const CApplication&) = delete;

  CZelkLibrary zelk;

  // Runs on the library's thread for each event, before the event is kept. Set before ZELK_Init.
  std::function<void(const SAppEvent&)> onEvent;
  // Runs on the pacer thread for each block about to be played. Set before ZELK_Init.
  void SetOnPlay(std::function<void(uint32_t channel, uint8_t* data, uint32_t length)> function);
  // Runs on the pacer thread for each received block, before it is kept. Set before ZELK_Init.
  void SetOnRecord(std::function<void(uint32_t channel, const uint8_t* data, uint32_t length)> function);

  // Waits until every channel is READY.
  bool WaitAllReady(std::chrono::milliseconds timeout);
  // Waits for the count-th event of this code on this channel, counted from the start or the last Forget.
  bool WaitEvent(int32_t channel, uint32_t code, std::chrono::milliseconds timeout, size_t count = 1,
                 int32_t* param = nullptr);
  // All events of a channel in order.
  std::vector<SAppEvent> Events(int32_t channel);
  // Their codes without the channel-state ones.
  std::vector<uint32_t> CallEvents(int32_t channel);
  size_t Count(uint32_t code);
  void Forget();

  // Recording of received blocks starts and is kept until Forget.
  void Record(int32_t channel);
  std::vector<uint8_t> Recorded(int32_t channel);
  bool WaitRecorded(int32_t channel, size_t bytes, std::chrono::milliseconds timeout);

  std::string Text(int32_t channel, uint32_t key);

 private:
  static void ZELK_CALL OnEvent(int32_t channel, uint32_t event, int32_t param);
  static void ZELK_CALL OnRecord(uint32_t channel, const uint8_t* data, uint32_t length);
  static void ZELK_CALL OnPlay(uint32_t channel, uint8_t* data, uint32_t length);

  class CInside;
  static std::atomic<CApplication*> current;
  static std::atomic<int> inside;  // callbacks that use it
  std::function<void(uint32_t channel, uint8_t* data, uint32_t length)> onPlay;
  std::function<void(uint32_t channel, const uint8_t* data, uint32_t length)> onRecord;
  std::mutex lock;
  std::condition_variable changed;
  std::vector<SAppEvent> events;                       // guarded by lock
  std::map<int32_t, std::vector<uint8_t>> recordings;  // guarded by lock
};

// The bytes of `part` stand in `whole` in one piece: where, or -1.
long FindSound(const std::vector<uint8_t>& whole, const std::vector<uint8_t>& part);

}  // namespace support

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "phone/block_sink.h"
#include "phone/event_queue.h"
#include "phone/phone_error.h"
#include "zelk/ZelkApi.h"

namespace phone {

// The library for the life of the program: started by the constructor, shut down by the destructor. Events arrive on
// the library's threads and are queued for the one thread that runs the command.
// Thread: constructor, destructor and NextEvent main; the callbacks the library's. One session at a time.
// Failures throw CPhoneError.
class CSession {
 public:
  explicit CSession(IBlockSink& blockSink);
  ~CSession();
  CSession(const CSession&) = delete;
  CSession& operator=(const CSession&) = delete;

  int32_t ChannelCount() const { return ZELK_GetChannelCount(); }
  // Waits until every channel is usable, or the limit passes; returns how many are. Takes no event from the queue: a
  // call may be offered meanwhile.
  int32_t WaitForTrunks(std::chrono::milliseconds limit);
  // The same for one channel; false when it is still down.
  bool WaitForChannel(int32_t channel, std::chrono::milliseconds limit);
  // Waits for the next event; false when the limit passed or Wake was called, and once when the user asked to stop.
  bool NextEvent(SPhoneEvent& event, std::chrono::milliseconds limit);
  // Ends the wait for an event, or the next one. Thread: any.
  void Wake();
  // The end of the call that was last spoken of on this channel, when it is over already: what is left of it has been
  // dropped.
  std::optional<SPhoneEvent> TakeEnd(int32_t channel);
  // The user pressed Ctrl-C, or the system asks the program to end.
  static bool StopRequested();
  // As if the user had asked.
  static void RequestStop();

 private:
  // Looks at the condition again whenever something happened.
  bool WaitUntil(std::chrono::milliseconds limit, const std::function<bool()>& condition);

  static void ZELK_CALL OnEvent(int32_t channel, uint32_t event, int32_t param);
  static void ZELK_CALL OnRecord(uint32_t channel, const uint8_t* data, uint32_t length);

  static std::atomic<CSession*> current;
  IBlockSink& sink;
  std::mutex lock;
  std::condition_variable arrived;
  CEventQueue events;     // guarded by lock
  bool woken = false;     // guarded by lock
  bool toldStop = false;  // main thread only
};

// The text of an information key, copied; empty when there is none. Thread: any.
std::string InfoText(int32_t channel, uint32_t key);
// The number of an information key. Thread: any.
uint32_t InfoNumber(int32_t channel, uint32_t key);

}  // namespace phone

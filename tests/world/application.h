// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "cardsim/base/bytes.h"
#include "platform/simulated/tasks/side.h"
#include "platform/simulated/world.h"

namespace world {

// What a channel that the application leaves alone needs, at most, to be READY again after the last fault.
inline constexpr int64_t kReadyMs = 15'000;

// An event as the application got it.
struct SEvent {
  int64_t timeUs = 0;
  int32_t channel = 0;
  uint32_t code = 0;
  int32_t param = 0;
};

// Job: the application of a world: takes the library's callbacks, keeps events in order and the sound of channels.
// Thread: tasks of the world. One at a time (C callbacks carry no context); it gives the callbacks back when it goes,
// which is after ZELK_Shutdown.
class CApplication {
 public:
  explicit CApplication(zelk::sim::CWorld& ownWorld);
  ~CApplication();
  CApplication(const CApplication&) = delete;
  CApplication& operator=(const CApplication&) = delete;

  // Run on the library's threads, after the event was kept, or for every block of a channel.
  std::function<void(const SEvent&)> onEvent;
  std::function<void(uint32_t channel, uint8_t* data, uint32_t length)> onPlay;

  // Where callbacks are watched: what is wrong about one that begins.
  std::function<void(const std::string&)> onOddCallback;
  // The library has been shut down, or is about to be started: while it is down no callback may begin, and a thread
  // that was in one when it went down begins none any more.
  void SetDown(bool on);
  bool IsDown() const { return isDown; }
  size_t CallbacksInside() const { return inside.size(); }

  // Keeps what the channel receives from now on.
  void Record(int32_t channel) { recordings[channel].clear(); }
  void StopRecording(int32_t channel) { recordings.erase(channel); }
  const cardsim::Bytes& Recorded(int32_t channel) { return recordings[channel]; }

  const std::vector<SEvent>& Events() const { return events; }
  void ForgetEvents() { events.clear(); }                   // their counts stay
  std::vector<uint32_t> CallEvents(int32_t channel) const;  // codes, without the channel-state ones
  size_t Count(int32_t channel, uint32_t code) const;
  // Parameter of the last event of this code; -9999 when there was none.
  int32_t LastParam(int32_t channel, uint32_t code) const;

  // For a task: true as soon as the condition holds, false when it does not within this time of the world.
  bool Await(const std::function<bool()>& condition, int64_t mostMs) const;
  bool AwaitEvent(int32_t channel, uint32_t code, int64_t mostMs, size_t count = 1) const;
  bool AwaitAllReady(int64_t mostMs) const;

 private:
  // For the length of a callback.
  class CInside {
   public:
    explicit CInside(const char* kind);
    ~CInside();
    CInside(const CInside&) = delete;
    CInside& operator=(const CInside&) = delete;

   private:
    const zelk::sim::CSide side{false};
    bool isCounted = false;
    uint64_t thread = 0;
  };

  static void OnEvent(int32_t channel, uint32_t code, int32_t param);
  static void OnPlay(uint32_t channel, uint8_t* data, uint32_t length);
  static void OnRecord(uint32_t channel, const uint8_t* data, uint32_t length);

  zelk::sim::CWorld& world;
  std::vector<SEvent> events;
  std::map<std::pair<int32_t, uint32_t>, size_t> counts;  // of events, by channel and code
  std::map<int32_t, cardsim::Bytes> recordings;
  bool isDown = false;
  std::vector<uint64_t> inside;   // threads in a callback, once for each, where callbacks are watched
  std::set<uint64_t> leftBehind;  // threads that were in one when the library went down
};

// What the unloading of the library does after ZELK_Shutdown: the log's thread ends. For a task.
void UnloadLibrary();

// One line: time, channel, name and parameter.
std::string ToText(const SEvent& event);

}  // namespace world

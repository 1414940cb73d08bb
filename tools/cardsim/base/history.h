// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "cardsim/base/bytes.h"
#include "cardsim/base/control_parser.h"
#include "common/q931_decode.h"

namespace cardsim {

enum class EDirection { kFromLibrary, kToLibrary };

// A D-channel frame, without FCS, as it passed the card.
struct SFrameRecord {
  EDirection direction;
  int trunk;
  Bytes bytes;
  std::chrono::steady_clock::time_point time;

  SQ921Frame Decode() const { return DecodeFrame(bytes); }
};

// Job: what a card saw: control messages, D-channel frames, connections, lines that came up. Tests read it and wait on
// it. Thread: signalling writes, any reads and waits; only the waits block and return false on time-out.
class CHistory {
 public:
  using Time = std::chrono::steady_clock::time_point;

  explicit CHistory(bool keepAll) : keep(keepAll) {}

  void AddMessage(const SControlMessage& message);
  void AddFrame(EDirection direction, int trunk, ByteView frame, Time time);
  void AddConnection();
  void SetConnected(bool value);
  void SetReady(bool value);
  void SetTrunkUp(int trunk, bool value);
  void Clear();  // forgets messages and frames
  bool KeepsAll() const { return keep; }

  std::vector<SControlMessage> Messages() const;
  std::vector<SFrameRecord> Frames() const;
  // The Q.931 messages of a trunk in order: "> SETUP" went to the library, "< CONNECT" came from it.
  std::vector<std::string> Q931Names(int trunk) const;
  int Connections() const;
  bool IsTrunkUp(int trunk) const;

  // Until `count` well-formed messages of the type have come since the start or the last Clear.
  bool WaitMessage(EControlType type, std::chrono::milliseconds timeout, std::size_t count = 1) const;
  // Until `count` Q.931 messages of the name went that way on the trunk.
  bool WaitQ931(int trunk, EDirection direction, const std::string& name, std::chrono::milliseconds timeout,
                std::size_t count = 1) const;
  bool WaitConnections(int count, std::chrono::milliseconds timeout) const;
  bool WaitConnected(bool value, std::chrono::milliseconds timeout) const;
  // Until the library has set the card up: start and audio port have come.
  bool WaitReady(std::chrono::milliseconds timeout) const;
  bool WaitTrunk(int trunk, bool up, std::chrono::milliseconds timeout) const;

 private:
  using Condition = std::function<bool()>;
  bool Wait(std::chrono::milliseconds timeout, const Condition& condition) const;
  void Change(const std::function<void()>& change);

  const bool keep;
  mutable std::mutex lock;
  mutable std::condition_variable changed;
  std::vector<SControlMessage> messages;  // guarded by lock
  std::vector<SFrameRecord> frames;       // guarded by lock
  std::uint32_t trunksUp = 0;             // guarded by lock; one bit a trunk
  int connections = 0;                    // guarded by lock
  bool connected = false;                 // guarded by lock
  bool ready = false;                     // guarded by lock
};

}  // namespace cardsim

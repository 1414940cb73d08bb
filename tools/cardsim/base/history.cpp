// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/base/history.h"

#include <algorithm>

namespace cardsim {

void CHistory::Change(const std::function<void()>& change) {
  {
    const std::lock_guard guard(lock);
    change();
  }
  changed.notify_all();
}

bool CHistory::Wait(std::chrono::milliseconds timeout, const Condition& condition) const {
  std::unique_lock guard(lock);
  return changed.wait_for(guard, timeout, condition);
}

void CHistory::AddMessage(const SControlMessage& message) {
  if (keep) {
    Change([&] { messages.push_back(message); });
  }
}

void CHistory::AddFrame(EDirection direction, int trunk, ByteView frame, Time time) {
  if (keep) {
    Change([&] { frames.push_back({direction, trunk, Bytes(frame.begin(), frame.end()), time}); });
  }
}

void CHistory::AddConnection() {
  Change([&] {
    ++connections;
    connected = true;
  });
}

void CHistory::SetConnected(bool value) {
  Change([&] { connected = value; });
}

void CHistory::SetReady(bool value) {
  Change([&] { ready = value; });
}

void CHistory::SetTrunkUp(int trunk, bool value) {
  Change([&] {
    const std::uint32_t bit = 1U << trunk;
    trunksUp = value ? trunksUp | bit : trunksUp & ~bit;
  });
}

void CHistory::Clear() {
  Change([&] {
    messages.clear();
    frames.clear();
  });
}

std::vector<SControlMessage> CHistory::Messages() const {
  const std::lock_guard guard(lock);
  return messages;
}

std::vector<SFrameRecord> CHistory::Frames() const {
  const std::lock_guard guard(lock);
  return frames;
}

std::vector<std::string> CHistory::Q931Names(int trunk) const {
  std::vector<std::string> names;
  for (const SFrameRecord& frame : Frames()) {
    const SQ921Frame decoded = frame.Decode();
    if (frame.trunk == trunk && decoded.message.valid) {
      names.push_back((frame.direction == EDirection::kToLibrary ? "> " : "< ") + decoded.message.name);
    }
  }
  return names;
}

int CHistory::Connections() const {
  const std::lock_guard guard(lock);
  return connections;
}

bool CHistory::IsTrunkUp(int trunk) const {
  const std::lock_guard guard(lock);
  return ((trunksUp >> trunk) & 1) != 0;
}

bool CHistory::WaitMessage(EControlType type, std::chrono::milliseconds timeout, std::size_t count) const {
  return Wait(timeout, [&] {
    const auto found = std::count_if(messages.begin(), messages.end(), [&](const auto& m) { return m.Is(type); });
    return static_cast<std::size_t>(found) >= count;
  });
}

bool CHistory::WaitQ931(int trunk, EDirection direction, const std::string& name, std::chrono::milliseconds timeout,
                        std::size_t count) const {
  std::size_t looked = 0;
  std::size_t found = 0;
  return Wait(timeout, [&] {
    if (looked > frames.size()) {  // cleared meanwhile
      looked = found = 0;
    }
    for (; looked < frames.size(); ++looked) {
      const SFrameRecord& frame = frames[looked];
      if (frame.trunk == trunk && frame.direction == direction && frame.Decode().message.name == name) {
        ++found;
      }
    }
    return found >= count;
  });
}

bool CHistory::WaitConnections(int count, std::chrono::milliseconds timeout) const {
  return Wait(timeout, [&] { return connections >= count; });
}

bool CHistory::WaitConnected(bool value, std::chrono::milliseconds timeout) const {
  return Wait(timeout, [&] { return connected == value; });
}

bool CHistory::WaitReady(std::chrono::milliseconds timeout) const {
  return Wait(timeout, [&] { return ready; });
}

bool CHistory::WaitTrunk(int trunk, bool up, std::chrono::milliseconds timeout) const {
  return Wait(timeout, [&] { return (((trunksUp >> trunk) & 1) != 0) == up; });
}

}  // namespace cardsim

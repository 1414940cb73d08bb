#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "card/pri_adapter.h"

namespace zelk {

using PriFrame = std::vector<uint8_t>;

// One side of a D-channel in memory: a controller, the frames it has written and the events it has had.
class CPriSide : public IPriWriter {
 public:
  CPriSide(int nodeType, int switchType = 5, uint32_t trunk = 0)
      : controller(CPriController::Create(*this, trunk, nodeType, switchType)) {}

  int OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) override {
    lastTrunk = trunk;
    written.emplace_back(frame, frame + length);
    return static_cast<int>(length);
  }

  void Note(const SPriEvent& event) {
    events.push_back(event);
    if (event.code == kPriAnswer && acknowledgesAnswers) {
      controller->ConnectAck(event.call, event.channel);
    }
  }
  bool Has(int code) const { return Find(code) != nullptr; }
  const SPriEvent* Find(int code) const {
    for (const SPriEvent& event : events) {
      if (event.code == code) {
        return &event;
      }
    }
    return nullptr;
  }

  std::deque<PriFrame> written;
  std::vector<SPriEvent> events;
  uint32_t lastTrunk = 99;
  bool acknowledgesAnswers = true;
  std::unique_ptr<CPriController> controller;
};

// A user and a network side joined in memory.
class CPriPair {
 public:
  // Hands over one frame of either side; false when there is none.
  bool Step() { return Deliver(user, network) || Deliver(network, user); }
  // Runs what is due and hands over frames until both sides are quiet; at most so many frames.
  void Run(int frames = 1000) {
    RunTimers(user);
    RunTimers(network);
    while (frames-- > 0 && Step()) {
      RunTimers(user);
      RunTimers(network);
    }
  }

  CPriSide user{2};
  CPriSide network{1};

 private:
  static bool Deliver(CPriSide& from, CPriSide& to) {
    if (from.written.empty()) {
      return false;
    }
    const PriFrame frame = from.written.front();
    from.written.pop_front();
    SPriEvent event;
    if (to.controller->Receive(frame.data(), frame.size(), event)) {
      to.Note(event);
    }
    return true;
  }
  static void RunTimers(CPriSide& side) {
    SPriEvent event;
    while (side.controller->RunTimers(event)) {
      side.Note(event);
    }
  }
};

}  // namespace zelk

#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "card/card.h"

namespace zelk {

// Writes down what a card reports, each as a line.
class CRecordingHandlers : public ICardHandlers {
 public:
  void OnCardState(CCard&, ECardCode code, const char* text, uint32_t value, const CStopFlag&) override {
    Note("card " + std::to_string(code) + " " + (text == nullptr ? "" : text) + std::to_string(value));
  }
  void OnTrunkStatus(CCard&, uint32_t trunk, ETrunkStatus code, uint16_t value16, uint32_t value32,
                     const CStopFlag&) override {
    Note("trunk " + std::to_string(trunk) + " " + std::to_string(code) + " " + std::to_string(value16) + " " +
         std::to_string(value32));
    if (onStatus) {
      onStatus(trunk, code);
    }
  }
  void OnCallEvent(CCard& card, uint16_t trunk, uint16_t channel, ECallEvent code, const SPriEvent& event) override {
    Note("call " + std::to_string(trunk) + " " + std::to_string(channel) + " " + std::to_string(code));
    if (onCall) {
      onCall(card, trunk, code, event);
    }
  }
  void OnCardReopening(CCard&, const CStopFlag& caller) override {
    Note("reopening");
    std::function<void(const CStopFlag&)> now;
    {
      const std::lock_guard<std::mutex> held(lock);
      now = onReopening;
    }
    if (now) {
      now(caller);
    }
  }
  // May be changed while a listener runs.
  void SetOnReopening(std::function<void(const CStopFlag&)> function) {
    const std::lock_guard<std::mutex> held(lock);
    onReopening = std::move(function);
  }
  uint32_t FirstGlobalTrunk() const override { return firstGlobalTrunk; }
  void OnMedia(uint16_t, uint16_t, EMediaCode, void*, uint32_t) override {}

  std::vector<std::string> Lines() const {
    const std::lock_guard<std::mutex> held(lock);
    return lines;
  }
  size_t Count(const std::string& line) const {
    const std::lock_guard<std::mutex> held(lock);
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
  }
  bool WaitFor(const std::string& line, size_t times = 1, int timeoutMs = 10000) const {
    std::unique_lock<std::mutex> held(lock);
    return changed.wait_for(held, std::chrono::milliseconds(timeoutMs),
                            [&] { return static_cast<size_t>(std::count(lines.begin(), lines.end(), line)) >= times; });
  }
  // Until so many lines have the part in them.
  bool WaitForPart(const std::string& part, size_t times) const {
    const auto hasPart = [&](const std::string& line) { return line.find(part) != std::string::npos; };
    std::unique_lock<std::mutex> held(lock);
    return changed.wait_for(held, std::chrono::seconds(10), [&] {
      return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), hasPart)) >= times;
    });
  }

  // Set before the handlers are given to a card.
  std::function<void(uint32_t, ETrunkStatus)> onStatus;
  std::function<void(CCard&, uint16_t, ECallEvent, const SPriEvent&)> onCall;
  std::function<void(const CStopFlag&)> onReopening;
  uint32_t firstGlobalTrunk = 0;

 private:
  void Note(const std::string& line) {
    const std::lock_guard<std::mutex> held(lock);
    lines.push_back(line);
    changed.notify_all();
  }

  mutable std::mutex lock;
  mutable std::condition_variable changed;
  std::vector<std::string> lines;
};

inline const char* const kUpLine = "trunk 0 257 0 0";

}  // namespace zelk

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
  void OnCardUp() override { Note("card 3 1"); }
  void OnCardDown(const CStopFlag&) override { Note("card 3 0"); }
  void OnNotice(const char* text) override { Note(std::string("card 1 ") + text); }
  void OnDchannelUp(uint32_t trunk, const CStopFlag&) override {
    NoteStatus(trunk, 257);
    if (onDchannelUp) {
      onDchannelUp(trunk);
    }
  }
  void OnDchannelDown(uint32_t trunk, const CStopFlag&) override { NoteStatus(trunk, 258); }
  void OnConfigError(uint32_t trunk) override { NoteStatus(trunk, 263); }
  void OnLineStatus(uint32_t trunk, uint8_t status) override { NoteStatus(trunk, 260, 0, status); }
  void OnQueueOverflow(uint32_t trunk, uint32_t queue) override { NoteStatus(trunk, 261, 0, queue); }
  void OnHdlcError(uint32_t trunk, uint8_t error) override { NoteStatus(trunk, 262, 0, error); }
  void OnLinkReset(CCard&, uint32_t trunk, uint8_t error) override { NoteStatus(trunk, 264, 0, error); }
  void OnRegister(uint32_t trunk, uint16_t registerNumber, uint8_t value) override {
    NoteStatus(trunk, 265, registerNumber, value);
  }
  void OnCallEvent(CCard& card, uint16_t trunk, uint16_t channel, ECallEvent code, const SPriEvent& event) override {
    Note("call " + std::to_string(trunk) + " " + std::to_string(channel) + " " + std::to_string(code));
    if (onCall) {
      onCall(card, trunk, code, event);
    }
  }
  void OnCardReopening(const CStopFlag& caller) override {
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
  void FillBlock(uint32_t, uint32_t, SBlockFill&) override {}
  bool EndsPlay(uint32_t, uint32_t) override { return false; }
  void OnMarkSent(uint32_t, uint32_t) override {}
  void OnBlockReceived(uint32_t, uint32_t, AudioBlock) override {}
  void OnDigit(uint32_t, uint32_t, char) override {}

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
  std::function<void(uint32_t trunk)> onDchannelUp;
  std::function<void(CCard&, uint16_t, ECallEvent, const SPriEvent&)> onCall;
  std::function<void(const CStopFlag&)> onReopening;
  uint32_t firstGlobalTrunk = 0;

 private:
  void Note(const std::string& line) {
    const std::lock_guard<std::mutex> held(lock);
    lines.push_back(line);
    changed.notify_all();
  }

  // By the numbers of the card's status reports.
  void NoteStatus(uint32_t trunk, uint32_t code, uint32_t value16 = 0, uint32_t value32 = 0) {
    Note("trunk " + std::to_string(trunk) + " " + std::to_string(code) + " " + std::to_string(value16) + " " +
         std::to_string(value32));
  }

  mutable std::mutex lock;
  mutable std::condition_variable changed;
  std::vector<std::string> lines;
};

inline const char* const kUpLine = "trunk 0 257 0 0";

}  // namespace zelk

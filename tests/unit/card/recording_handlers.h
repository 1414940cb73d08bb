// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <vector>

#include "card/card.h"
#include "card_reports.h"

namespace zelk {

// Writes down what a card reports.
class CRecordingHandlers : public ICardHandlers {
 public:
  void OnCardUp() override { Note(CardUp()); }
  void OnCardDown(const CStopFlag&) override { Note(CardDown()); }
  void OnNotice(const char* text) override { Note(Notice(text)); }
  void OnDchannelUp(uint32_t trunk, const CStopFlag&) override {
    Note(DchannelUp(trunk));
    if (onDchannelUp) {
      onDchannelUp(trunk);
    }
  }
  void OnDchannelDown(uint32_t trunk, const CStopFlag&) override { Note(DchannelDown(trunk)); }
  void OnConfigError(uint32_t trunk) override { Note(ConfigError(trunk)); }
  void OnLineStatus(uint32_t trunk, uint8_t status) override { Note(LineStatus(trunk, status)); }
  void OnQueueOverflow(uint32_t trunk, uint32_t queue) override { Note(QueueOverflow(trunk, queue)); }
  void OnHdlcError(uint32_t trunk, uint8_t error) override { Note(HdlcError(trunk, error)); }
  void OnLinkReset(CCard&, uint32_t trunk, uint8_t error) override { Note(LinkReset(trunk, error)); }
  void OnRegister(uint32_t trunk, uint16_t registerNumber, uint8_t value) override {
    Note(Register(trunk, registerNumber, value));
  }
  void OnCallEvent(CCard& card, uint16_t trunk, uint16_t channel, ECallEvent code, const SPriEvent& event) override {
    Note(CallEvent(trunk, channel, code));
    if (onCall) {
      onCall(card, trunk, code, event);
    }
  }
  void OnCardReopening(const CStopFlag& caller) override {
    Note(Reopening());
    std::function<void(const CStopFlag&)> now;
    {
      const std::lock_guard<std::mutex> held(lock);
      now = onReopening;
    }
    if (now) {
      now(caller);
    }
  }
  // Asked once a turn of the control thread.
  bool AwaitsTime() const override {
    ++turns;
    return false;
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
  bool OnBlockReceived(uint32_t, uint32_t, AudioBlock) override { return false; }
  void OnDigit(uint32_t, uint32_t, char) override {}

  Reports Seen() const {
    const std::lock_guard<std::mutex> held(lock);
    return {reports.begin(), reports.end()};
  }
  std::vector<std::string> Notices() const {
    const std::lock_guard<std::mutex> held(lock);
    std::vector<std::string> texts;
    for (const SReport& report : reports) {
      if (report.kind == SReport::EKind::kNotice) {
        texts.push_back(report.text);
      }
    }
    return texts;
  }
  size_t Count(const SReport& report) const {
    const std::lock_guard<std::mutex> held(lock);
    return static_cast<size_t>(std::count(reports.begin(), reports.end(), report));
  }
  bool WaitFor(const SReport& report, size_t times = 1, int timeoutMs = 10000) const {
    std::unique_lock<std::mutex> held(lock);
    return changed.wait_for(held, std::chrono::milliseconds(timeoutMs), [&] {
      return static_cast<size_t>(std::count(reports.begin(), reports.end(), report)) >= times;
    });
  }
  // Until this number of notices have the part in them.
  bool WaitForNotices(const std::string& part, size_t times) const {
    const auto hasPart = [&](const SReport& report) { return report.text.find(part) != std::string::npos; };
    std::unique_lock<std::mutex> held(lock);
    return changed.wait_for(held, std::chrono::seconds(10), [&] {
      return static_cast<size_t>(std::count_if(reports.begin(), reports.end(), hasPart)) >= times;
    });
  }

  // Set before the handlers are given to a card.
  mutable std::atomic<int> turns{0};
  std::function<void(uint32_t trunk)> onDchannelUp;
  std::function<void(CCard&, uint16_t, ECallEvent, const SPriEvent&)> onCall;
  std::function<void(const CStopFlag&)> onReopening;
  uint32_t firstGlobalTrunk = 0;

 private:
  void Note(const SReport& report) {
    const std::lock_guard<std::mutex> held(lock);
    reports.push_back(report);
    changed.notify_all();
  }

  mutable std::mutex lock;
  mutable std::condition_variable changed;
  std::list<SReport> reports;  // one allocation a report: tests let the memory run out there
};

}  // namespace zelk

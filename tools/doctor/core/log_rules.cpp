// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <cstdio>
#include <vector>

#include "doctor/core/rules.h"

namespace doctor {
namespace {

// An operation fails now and then because the call ends at that moment.
constexpr std::uint64_t kFewFailures = 2;

// Job: says what the events of a log mean. Thread: one. Owns what it has found.
class CLogCheck {
 public:
  explicit CLogCheck(const SLogFacts& logFacts) : log(logFacts) {}

  Findings Run() {
    CheckCards();
    CheckStart();
    CheckLoad();
    CheckCalls();
    CheckMemory();
    return findings;
  }

 private:
  struct SSubject {
    std::string name;
    const SLogTally* tally;
  };

  std::vector<SSubject> Of(ELogEvent event) const {
    std::vector<SSubject> subjects;
    for (const auto& [key, tally] : log.events) {
      if (key.first == event) {
        subjects.push_back({key.second, &tally});
      }
    }
    return subjects;
  }
  const SLogTally* One(ELogEvent event) const {
    const std::vector<SSubject> subjects = Of(event);
    return subjects.empty() ? nullptr : subjects.front().tally;
  }
  std::string Place(const SLogMark& mark) const {
    return fmt::format("{}, line {}: {}", log.path, mark.line, mark.text);
  }
  std::vector<std::string> Places(const SLogTally& tally) const {
    std::vector<std::string> places = {Place(tally.first)};
    if (tally.count > 1) {
      places.push_back(Place(tally.last));
    }
    return places;
  }
  void Add(const char* rule, const std::string& sentence, const std::vector<std::string>& evidence) {
    findings.push_back(Find(rule, sentence, evidence));
  }

  void CheckCards() {
    for (const SSubject& card : Of(ELogEvent::kCardLost)) {
      Add("log-card-lost",
          fmt::format("In the last day of its log the library lost card {} ({}).", card.name, Times(card.tally->count)),
          Places(*card.tally));
    }
    const SLogTally* failed = One(ELogEvent::kReopenFailed);
    const SLogTally* reopened = One(ELogEvent::kCardReopened);
    if (failed != nullptr && (reopened == nullptr || reopened->last.line < failed->last.line)) {
      Add("log-reopen-failed", "A card came back, and the library could not open it again.", {Place(failed->last)});
    }
  }

  void CheckStart() {
    if (const SLogTally* ignored = One(ELogEvent::kCardsIgnored)) {
      Add("log-cards-ignored", "More cards answered than the library serves, and it ignored the others.",
          {Place(ignored->last)});
    }
    for (const SSubject& card : Of(ELogEvent::kChannelsShort)) {
      Add("log-channels-short",
          fmt::format("Trunks of card {} have no channels, because the library's table of them is full.", card.name),
          {Place(card.tally->last)});
    }
  }

  void CheckLoad() {
    for (const SSubject& card : Of(ELogEvent::kReceiveLate)) {
      Add("log-receive-late",
          fmt::format("Card {}: for seconds on end the library could not keep up with its sound ({}).", card.name,
                      Times(card.tally->count)),
          Places(*card.tally));
    }
  }

  void CheckCalls() {
    for (const SSubject& trunk : Of(ELogEvent::kCallRefused)) {
      Add("log-call-refused",
          fmt::format("Card {}: no channel was open, idle and ready for {}, which the library refused.", trunk.name,
                      Counted(trunk.tally->count, "incoming call")),
          Places(*trunk.tally));
    }
    CheckFailures(ELogEvent::kDialFailed, "dial");
    CheckFailures(ELogEvent::kAnswerFailed, "answer");
  }

  void CheckFailures(ELogEvent event, const char* what) {
    std::uint64_t count = 0;
    std::vector<std::string> evidence;
    for (const SSubject& channel : Of(event)) {
      count += channel.tally->count;
      evidence.push_back(Place(channel.tally->last));
    }
    if (count > kFewFailures) {
      Add("log-operation-failed", fmt::format("The library could not {} {}.", what, Counted(count, "call")), evidence);
    }
  }

  void CheckMemory() {
    if (const SLogTally* sounds = One(ELogEvent::kNoMemory)) {
      Add("log-no-memory", fmt::format("The library had no memory for {}.", Counted(sounds->count, "sound")),
          Places(*sounds));
    }
    if (const SLogTally* lost = One(ELogEvent::kLinesLost)) {
      Add("log-no-memory", "Lines are missing in the log: there was no memory for them, or they could not be written.",
          Places(*lost));
    }
  }

  static std::string Times(std::uint64_t count) { return count == 1 ? "once" : std::to_string(count) + " times"; }

  const SLogFacts& log;
  Findings findings;
};

}  // namespace

Findings LogRules(const SLogFacts& log) {
  if (!log.fault.empty()) {
    return {Find("log-unreadable", log.path + " cannot be read: " + log.fault + ".")};
  }
  return CLogCheck(log).Run();
}

}  // namespace doctor

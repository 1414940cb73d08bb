// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/log_facts.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string_view>

#include "trace/core/bounded_line.h"

namespace doctor {
namespace {

constexpr std::size_t kMostChars = 300;      // of a line; what is looked for is shorter
constexpr std::size_t kMostSubjects = 2000;  // channels of a library, and more
constexpr std::streamoff kEndBytes = 1 << 20;
constexpr std::int64_t kDay = 86'400;
constexpr int kTimeChars = 19;  // "07/03/2024 14:05:09"
constexpr std::size_t kMostTagChars = 14;

// A text of the library: what it begins with, and what comes at once or somewhere behind that.
struct SPattern {
  ELogEvent event;
  const char* begin;
  const char* later;
};
constexpr SPattern kPatterns[] = {
    {ELogEvent::kCardLost, "Card ", " is down"},
    {ELogEvent::kCardReopened, "Card reopen has Succeeded", ""},
    {ELogEvent::kReopenFailed, "Card reopen has failed", ""},
    {ELogEvent::kCardsIgnored, "Discovery: more than ", " cards answered"},
    {ELogEvent::kChannelsShort, "Card ", " Trunks have no channels, the channel table is full"},
    {ELogEvent::kReceiveLate, "Card ", ": Audio packets have waited for "},
    {ELogEvent::kCallRefused, "Card ", " - New Call aborted due to BCHANNEL unavailable"},
    {ELogEvent::kDialFailed, "Dial() -> new call ", "failed"},
    {ELogEvent::kAnswerFailed, "Answer() -> Answer() failed", ""},
    {ELogEvent::kNoMemory, "NewBlock() -> malloc() returned error", ""},
    {ELogEvent::kLinesLost, "Log: lines lost for want of memory: ", ""},
};

bool IsOfAStart(ELogEvent event) {
  return event == ELogEvent::kCardsIgnored || event == ELogEvent::kChannelsShort;
}

// A line of the library: its time, its channel or "G", its text.
struct SLogLine {
  std::int64_t second = 0;
  std::string_view tag;
  std::string_view text;
};

std::optional<std::int64_t> SecondOf(const std::string& line) {
  unsigned day = 0;
  unsigned month = 0;
  int year = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int end = 0;
  if (std::sscanf(line.c_str(), "%2u/%2u/%4d %2d:%2d:%2d%n", &day, &month, &year, &hour, &minute, &second, &end) != 6 ||
      end != kTimeChars) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month), std::chrono::day(day)};
  if (!date.ok()) {
    return std::nullopt;
  }
  const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
  return ((days * 24 + hour) * 60 + minute) * 60 + second;
}

std::optional<SLogLine> Parse(const std::string& line) {
  const std::optional<std::int64_t> second = SecondOf(line);
  const std::size_t colon = second ? line.find(" :", kTimeChars) : std::string::npos;
  if (colon == std::string::npos || colon > kTimeChars + kMostTagChars) {
    return std::nullopt;
  }
  const std::string_view whole = line;
  std::string_view tag = whole.substr(kTimeChars, colon - kTimeChars);
  tag.remove_prefix(std::min(tag.find_first_not_of(' '), tag.size()));
  return SLogLine{*second, tag, whole.substr(colon + 2)};
}

std::optional<ELogEvent> EventOf(std::string_view text) {
  for (const SPattern& pattern : kPatterns) {
    const std::string_view begin = pattern.begin;
    if (text.starts_with(begin) && text.find(pattern.later, begin.size()) != std::string_view::npos) {
      return pattern.event;
    }
  }
  return std::nullopt;
}

// "1" of "Card 1 is down", "4, trunk 0" of "Card 4: Trunk 0 - ...".
std::string SubjectOf(ELogEvent event, const SLogLine& line) {
  unsigned card = 0;
  unsigned trunk = 0;
  const std::string text(line.text);
  const int got = std::sscanf(text.c_str(), "Card %10u: Trunk %10u", &card, &trunk);
  if (event == ELogEvent::kCallRefused && got == 2) {
    return std::to_string(card) + ", trunk " + std::to_string(trunk);
  }
  if (got >= 1) {
    return std::to_string(card);
  }
  if (event == ELogEvent::kDialFailed || event == ELogEvent::kAnswerFailed) {
    return "channel " + std::string(line.tag);
  }
  return {};
}

// The time of the last line that has one.
std::int64_t NewestSecond(std::istream& in) {
  in.seekg(0, std::ios::end);
  const std::streamoff size = in.tellg();
  in.seekg(std::max<std::streamoff>(size - kEndBytes, 0));
  std::int64_t newest = 0;
  for (std::string line; trace::ReadLine(in, line, kMostChars);) {
    newest = SecondOf(line).value_or(newest);
  }
  in.clear();
  in.seekg(0);
  return newest;
}

void Keep(SLogFacts& facts, ELogEvent event, const SLogLine& line, const std::string& text) {
  const std::pair<ELogEvent, std::string> key{event, SubjectOf(event, line)};
  if (facts.events.count(key) == 0 && facts.events.size() >= kMostSubjects) {
    return;
  }
  SLogTally& tally = facts.events[key];
  tally.last = {facts.lines, text};
  tally.first = tally.count == 0 ? tally.last : tally.first;
  ++tally.count;
}

}  // namespace

SLogFacts ReadLog(std::istream& in, const std::string& path) {
  SLogFacts facts;
  facts.path = path;
  const std::int64_t newest = NewestSecond(in);
  for (std::string text; trace::ReadLine(in, text, kMostChars);) {
    ++facts.lines;
    text.resize(text.find_last_not_of('\r') + 1);
    const std::optional<SLogLine> line = Parse(text);
    facts.foreign += line ? 0 : 1;
    const std::optional<ELogEvent> event = line ? EventOf(line->text) : std::nullopt;
    if (event && (IsOfAStart(*event) || line->second > newest - kDay)) {
      Keep(facts, *event, *line, text);
    }
  }
  if (2 * facts.foreign > facts.lines) {
    facts.fault = std::to_string(facts.foreign) + " of its " + std::to_string(facts.lines) + " lines are no library's";
    facts.events.clear();
  }
  return facts;
}

}  // namespace doctor

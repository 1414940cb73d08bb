// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <istream>
#include <map>
#include <string>
#include <utility>

namespace doctor {

// What a log tells that nothing else does; the texts stand in docs/troubleshooting.md.
enum class ELogEvent {
  kCardLost,
  kCardReopened,
  kReopenFailed,
  kCardsIgnored,   // at the start of a library
  kChannelsShort,  // the same
  kReceiveLate,
  kCallRefused,
  kDialFailed,
  kAnswerFailed,
  kNoMemory,
  kLinesLost
};

struct SLogMark {
  std::uint64_t line = 0;  // from 1
  std::string text;
};

// The lines of one event and one subject.
struct SLogTally {
  std::uint64_t count = 0;
  SLogMark first;
  SLogMark last;
};

// The log of a library: what happened in the day before its last line, and at starts of the library at any time.
struct SLogFacts {
  std::string path;
  std::string fault;  // it is there and cannot be read
  std::uint64_t lines = 0;
  std::uint64_t foreign = 0;  // that no library writes
  // By event and by whom it is about: "1" for a card, "4, trunk 0" for a trunk, "channel 12".
  std::map<std::pair<ELogEvent, std::string>, SLogTally> events;
};

// A stream with places to go to. Any bytes are allowed; what is kept of them is bounded.
SLogFacts ReadLog(std::istream& in, const std::string& path);

}  // namespace doctor

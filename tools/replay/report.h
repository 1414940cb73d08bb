// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "replay/clock.h"

namespace replay {

// The first frame that is not as recorded.
struct SDifference {
  std::string what;      // a sentence
  std::string expected;  // the recorded frame, in words and in hexadecimal digits; empty: none
  std::string got;       // the library's
  std::uint64_t packet = 0;
  std::string call;  // the one that it is about; may be empty
};

// Job: prints what happens in a replay, a line each with the virtual time in UTC: text, or a JSON object. Log lines of
// the library come here from its own log, where there is a report. Thread: one; one at a time.
class CReport {
 public:
  // The stream must outlive it.
  CReport(bool asJson, std::FILE* outputStream);
  ~CReport();
  CReport(const CReport&) = delete;
  CReport& operator=(const CReport&) = delete;

  void Event(std::int32_t channel, std::uint32_t event, std::int32_t parameter);
  void Log(std::int32_t channel, const std::string& text);
  // What the application does, as the frames that it caused tell.
  void Act(std::int32_t channel, const std::string& what);
  void Different(const SDifference& difference);
  void Same(std::uint64_t sent, std::uint64_t received);

 private:
  void Line(const char* type, const std::string& json, const std::string& text) const;

  const bool isJson;
  std::FILE* const stream;
};

}  // namespace replay

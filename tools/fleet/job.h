// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "phone/json_line.h"

namespace fleet {

using phone::Json;
using phone::UtcTime;

// A trunk by the serial number of its card and its number there, counted from 1: "100001/2".
struct STrunkName {
  uint32_t card = 0;
  uint32_t trunk = 0;
  bool operator==(const STrunkName& other) const = default;
};

// A call that is to be placed. docs/fleet.md has the meaning of each member.
struct SJob {
  std::string id;
  std::string to;
  std::optional<std::string> from;
  std::vector<STrunkName> trunks;        // any when empty
  std::chrono::seconds giveUpAfter{60};  // from the SETUP
  std::string play;                      // a sound of the fleet, or a file of the host
  std::string record;                    // a file of the host
  int digits = 0;                        // how many are waited for
  int attempts = 1;                      // SETUPs at most
  std::optional<UtcTime> notBefore;
  std::optional<UtcTime> notAfter;
};

// A job that is none; the text says which member, and why.
class CJobError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws CJobError.
SJob ParseJob(const std::string& text);
SJob JobOf(const Json& object);
Json JsonOf(const SJob& job);

// A line of JSON, or of a table whose members are texts, becomes the same job: "7" is the number 7 there.
SJob JobOfTexts(const std::vector<std::string>& names, const std::vector<std::string>& values);

// As in 2026-01-31T08:09:10Z, with or without milliseconds; empty when it is none.
std::optional<UtcTime> ParseTime(const std::string& text);

}  // namespace fleet

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "phone/json_line.h"

namespace phone {

enum class EDo { kDial, kAnswer, kReject, kHangup, kPlay, kStop, kRecord, kDigits, kState };

// One command of `serve`, as a line of JSON has it: {"id":3,"do":"dial","channel":0,"number":"0305551234"}.
// NOLINTNEXTLINE(bugprone-exception-escape): a move of its id only throws where JSON itself is broken
struct SRequest {
  Json id;  // an integer or a text
  EDo what = EDo::kState;
  std::optional<int32_t> channel;   // always there but for kState; may be none that exists
  std::string number;               // kDial
  std::optional<std::string> from;  // kDial
  std::string file;                 // kPlay, kRecord
  std::string digits;               // kDigits
  bool stopsPlay = true;            // kStop
  bool stopsRecord = true;          // kStop
};

// A command that is not carried out. The code is for programs: see docs/phone.md.
class CRequestError : public std::runtime_error {
 public:
  CRequestError(const char* errorCode, const std::string& text, Json ofId = nullptr)
      : std::runtime_error(text), code(errorCode), id(std::move(ofId)) {}

  const char* const code;
  Json id;  // null where the line names none
};

// Throws CRequestError: "bad-json" for a line that is no JSON object, "bad-request" for an object that is no command.
SRequest ParseRequest(const std::string& line);

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <stdexcept>
#include <string>

namespace trace {

// What a program of this folder exits with.
enum class EExit {
  kDone = 0,
  kNothingFound = 1,  // the input was read, and has nothing of what was asked for
  kBadInput = 2,      // the input cannot be read, or only up to a place; what was read until then is given
  kBadOutput = 3,     // the result cannot be written
  kUsage = 4,
};

// One sentence for the user, and the exit code.
class CTraceError : public std::runtime_error {
 public:
  CTraceError(EExit exitCode, const std::string& sentence) : std::runtime_error(sentence), code(exitCode) {}
  EExit Code() const { return code; }

 private:
  EExit code;
};

}  // namespace trace

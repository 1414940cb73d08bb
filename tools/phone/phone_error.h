// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <stdexcept>
#include <string>

namespace phone {

// The program's exit codes, as the manual page has them.
enum class EExit {
  kDone = 0,
  kFailed = 1,      // a call did not run to its end, or whatever has no code of its own
  kUsage = 2,       // a mistake on the command line
  kNoCard = 3,      // no card was found
  kNoTrunk = 4,     // no channel is usable, or the one that was asked for is not
  kRefused = 5,     // the call was cleared before it was connected: busy, barred, wrong number
  kNoAnswer = 6,    // nobody answered, or nobody called
  kFile = 7,        // a file could not be read or written
  kCardsInUse = 8,  // another program uses the cards
};

// The code's name in the lines of --json.
const char* ExitName(EExit code);

// The exit code of a call that was cleared with this cause (ITU-T Q.850) before it was connected.
EExit ExitOfCause(int cause);

// Something the user has to be told, after which the program ends with a failure.
class CPhoneError : public std::runtime_error {
 public:
  CPhoneError(EExit exitCode, const std::string& text) : std::runtime_error(text), code(exitCode) {}

  const EExit code;
};

}  // namespace phone

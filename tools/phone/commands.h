// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "phone/call_script.h"
#include "phone/report.h"

namespace phone {

constexpr int kAnyChannel = -1;

struct SAnswerOptions {
  int channel = kAnyChannel;
  int calls = 1;        // connected ones; 0: until the user stops the program
  int waitSeconds = 0;  // for each call; 0: without a limit
  SCallScript script;
};

struct SDialOptions {
  int channel = 0;
  std::string number;
  std::string from;
  int answerSeconds = 60;
  SCallScript script;
};

// Each runs one command. trunkSeconds: how long trunks may take to come up.
// Channels fails when none is usable; answer goes on with the next call when one does not come about.
// Failures throw CPhoneError with the program's exit code. Thread: main.
void RunChannels(CReport& report, int trunkSeconds);
void RunAnswer(CReport& report, const SAnswerOptions& options, int trunkSeconds);
void RunDial(CReport& report, const SDialOptions& options, int trunkSeconds);
// Commands come in lines on standard input, whose end ends it; see docs/phone.md.
void RunServe(CReport& report, int trunkSeconds);

}  // namespace phone

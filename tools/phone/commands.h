// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "phone/call_script.h"

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

// Each runs one command and returns the program's exit code. trunkSeconds: how long trunks may take to come up.
// Channels fails when none is usable; answer goes on with the next call when one does not come about.
// Failures throw CPhoneError. Thread: main.
int RunChannels(int trunkSeconds);
int RunAnswer(const SAnswerOptions& options, int trunkSeconds);
int RunDial(const SDialOptions& options, int trunkSeconds);

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cardsim/audio/audio_faults.h"
#include "cardsim/audio/signals.h"
#include "cardsim/base/config.h"

namespace cardsim {

// The command line of zelk-cardsim. Times in milliseconds unless named otherwise.
struct SOptions {
  int cards = 0;  // 0: as many as there are entries in trunks
  std::vector<int> trunks{1};
  std::vector<std::string> addresses;
  std::string baseAddress = "127.0.1.1";
  std::string broadcast = "127.255.255.255";
  std::uint32_t serial = 100001;
  bool announce = false;

  double callsPerSecond = 0;
  std::uint64_t calls = 0;  // 0: no limit
  bool stay = false;        // the end of the calls is not the end of the program
  int concurrent = 0;       // 0: as many as there are timeslots
  std::string calling = "5551000";
  std::string called = "100";
  std::string redirecting;
  int redirectingReason = 15;
  int giveUpAfter = 0;

  int alertAfter = 0;
  int answerAfter = 0;
  bool noAnswer = false;
  int refuse = 0;  // a cause, 0: not refused

  int hold = 0;  // the far end hangs up after this; 0: the library does
  int cause = 16;
  std::string digits;
  SDtmfSignal digitSignal;
  std::vector<double> tone;  // frequencies; the far end sends them after digits and file, for ever
  double toneLevel = -10;
  std::string play;
  bool loop = false;
  std::string record;

  // Echo of what the far ends hear into what they send; below 0: none.
  double echoDelay = -1;
  double echoLoss = 6;

  SAudioFaults faults;  // of the audio packets of every card
  int faultDelay = 0;
  int faultJitter = 0;
  int pauseEvery = 0;  // ms; 0: never
  int pauseLength = 300;
  std::string recordLines;  // directory: all that every timeslot heard

  std::string scenario;  // file or builtin:NAME; empty: calls by the options above
  std::string junit;
  bool strict = false;
  bool list = false;
  std::string print;

  double seconds = 0;  // 0: until the calls are done or a signal comes
  std::string report;
  bool verbose = false;
};

// Reads the command line. Returns the options, or the exit code when the program has to end (help: 0; a mistake, which
// has been explained on standard error: another).
struct SParsed {
  std::optional<SOptions> options;
  int exitCode = 0;
};
SParsed ParseOptions(int argc, const char* const* argv);

// The cards that the options ask for; throws std::invalid_argument for addresses that are none.
SSimulatorConfig ConfigOf(const SOptions& options);

}  // namespace cardsim

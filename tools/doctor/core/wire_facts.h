// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "trace/core/reply_watch.h"
#include "trace/core/traffic.h"

namespace doctor {

using trace::Time;

// A packet of the capture, or a line of a D-channel file.
struct SMark {
  Time time = 0;
  std::uint64_t number = 0;
  std::string file{};  // whose line it is; empty: a packet
};
// "packet 12 (2026-01-31T08:09:10.123Z)", "FILE, line 12 (2026-01-31T08:09:10Z)"
std::string PlaceText(const SMark& mark);

// How often something was there, the first time and the last.
struct STally {
  std::uint64_t count = 0;
  SMark first;
  SMark last;
  void Add(const SMark& mark);
};
// "packet 12 (...): WHAT", and "packet 80 (...): the last of 7" where it came more than once.
std::vector<std::string> PlacesOf(const STally& tally, const std::string& what);

// How often a side gave a cause, and the diagnostics that came with it, in hexadecimal.
struct SCauseFacts {
  STally tally;
  std::set<std::string> diagnostics;
};
using Causes = std::map<int, SCauseFacts>;

// A call that has something wrong with it.
struct SCallFacts {
  std::uint64_t number = 0;  // as zelk-trace calls tells it
  int timeslot = -1;
  Time length = 0;  // what it is about
};

struct STrunkFacts {
  // Layer 1
  std::optional<std::uint8_t> status;  // the last that the card told; 0: in service
  SMark statusSince;
  STally outages;                    // times that it went out of service
  std::map<int, STally> hdlcErrors;  // by code, while in service
  std::vector<Time> hdlcTimes;       // of the first of them
  STally hdlcResets;                 // times that ten came without a good frame
  std::uint64_t framesFromLine = 0;  // good ones
  std::uint64_t framesFromLibrary = 0;
  // Layer 2
  STally sabmeFromLibrary;
  STally sabmeFromLine;
  std::uint64_t uaFromLine = 0;
  std::optional<bool> libraryIsNetwork;  // the side that it plays
  std::optional<bool> lineIsNetwork;
  std::optional<bool> isUp;
  bool wasUp = false;
  STally drops;  // times that it came up and went down again
  // Layer 3
  std::uint64_t callsFromLibrary = 0;
  std::uint64_t callsToLibrary = 0;
  Causes clearedByLine;  // of calls
  Causes clearedByLibrary;
  Causes statusFromLine;  // in STATUS
  Causes statusFromLibrary;
  STally glares;
  STally restarts;
  std::map<int, std::uint64_t> restartStorms;  // by timeslot, -1 the trunk: most RESTARTs in a minute, where over two
  std::vector<SCallFacts> held;                // at the end, and nothing was said of them for `length`
  // Sound
  std::uint64_t starvedBlocks = 0;
  std::uint64_t soundBlocks = 0;      // that connected calls had to the line
  std::vector<SCallFacts> deafCalls;  // nothing from the line, though the library sent sound
};

// The rate of a card's clock against that of the machine that captured.
struct SClockFacts {
  double ppm = 0;      // how much faster the card is
  double error = 0;    // what it may be off, in the same unit: twice the standard error
  double seconds = 0;  // of measuring
};

struct SCardFacts {
  std::uint32_t address = 0;
  std::uint32_t serial = 0;  // 0: not known
  // Discovery
  STally replies;
  STally announcements;
  // Connection
  STally connections;  // SYNs, or where one that had begun before was seen first
  STally unanswered;   // SYNs to which nothing came
  STally refused;
  STally informationRequests;
  STally badInformation;
  std::uint64_t informationMessages = 0;
  STally silences;  // of more than a second, on a connection that was set up
  Time longestSilence = 0;
  STally endedByCard;
  std::uint64_t messages = 0;  // of the card
  SMark audioPort;             // where the library told it
  Time last = 0;               // when the last connection was heard of
  // Sound
  STally audioFromCard;
  STally audioToCard;
  trace::SReplyCounts audio;
  std::optional<double> delayP50;
  std::optional<double> delayP99;
  STally pauses;
  Time longestPause = 0;
  Time allPauses = 0;
  std::optional<SClockFacts> clock;
  std::vector<STrunkFacts> trunks;
};

struct SWireFacts {
  std::string source;  // file or adapter
  Time begin = 0;
  Time end = 0;
  STally probes;
  std::map<std::uint32_t, SCardFacts> cards;  // by address
  std::vector<std::string> notes;             // what is missing in the capture
  std::string emptiness;                      // a sentence when no card is in it
  std::string fault;                          // it breaks off
};

// What a card is called: its serial number, or its address where that is not known.
std::string CardName(const SCardFacts& card);
std::string TrunkName(const SCardFacts& card, std::size_t trunk);

}  // namespace doctor

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "cardsim/base/bytes.h"
#include "common/wire.h"

namespace cardsim {

// Which end of the D-channel a trunk plays, and the libpri switch type.
struct SPeerRole {
  bool userSide = false;
  int switchType = 5;  // Euro ISDN, E1
};

struct SCardConfig {
  std::string address = "127.0.1.1";
  SCardIdentity identity;
  int framesPerPacket = 0;       // 0: as many as fit
  std::uint8_t backlogHint = 0;  // byte 6 of every audio packet
  std::chrono::milliseconds lateAfter{200};
  // The trunk status message is repeated at this interval: it tells the library that the card is alive.
  std::chrono::milliseconds statusInterval{250};
  // Time from the audio port message, the last of the card's set-up, until the lines carry frames.
  std::chrono::milliseconds lineDelay{20};
  std::map<std::uint16_t, std::uint8_t> registers{{0x1006, 0x5A}};
  std::map<int, SPeerRole> roles;  // by trunk; a trunk not named is the network
};

struct SSimulatorConfig {
  std::vector<SCardConfig> cards;
  // Where probes are heard and announcements are sent.
  std::string broadcast = "127.255.255.255";
  // Keep every control message and D-channel frame, for tests. A program that runs for days switches it off.
  bool keepHistory = true;

  // One card for each entry, with that many trunks; addresses 127.0.1.1, 127.0.1.2 ..., serial numbers 100001 upward.
  static SSimulatorConfig WithTrunks(const std::vector<int>& trunksOfCards,
                                     const std::string& firstAddress = "127.0.1.1");
};

// The IPv4 address `offset` above `first`; throws std::invalid_argument for a text that is not one.
std::string AddToAddress(const std::string& first, std::uint32_t offset);

}  // namespace cardsim

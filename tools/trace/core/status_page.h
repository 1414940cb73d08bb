// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/wire.h"
#include "trace/core/capture_file.h"

namespace trace {

// What the status page of a library says (docs/status-page.md), version 1.
struct SPageThread {
  Time seen = 0;
  Time latestAt = 0;
  std::uint32_t latestMs = 0;
};

struct SPageCallback {
  std::uint64_t slowestUs = 0;
  Time slowestAt = 0;
  std::uint32_t slowestChannel = 0;
  std::uint32_t overBlock = 0;
};

enum class EPageCall : std::uint8_t { kNone, kOffered, kDialled, kConnected, kClearing, kLost };

struct SPageChannel {
  std::optional<std::uint32_t> number;
  bool isOpen = false;
  bool isUp = false;
  EPageCall state = EPageCall::kNone;
  Time changed = 0;
  std::uint32_t offered = 0;
  std::uint32_t dialled = 0;
  std::uint32_t connected = 0;
  std::uint32_t cause = 0;
  std::uint32_t queuedBytes = 0;
  std::uint32_t lostReceived = 0;
  std::uint32_t lostSent = 0;
};

struct SPageTrunk {
  std::uint32_t lineStatus = 0;
  bool isUp = false;
  Time changed = 0;
  std::uint32_t hdlcErrors = 0;
  std::uint32_t queueOverflows = 0;
  std::uint32_t linkResets = 0;
  std::array<SPageChannel, tool::kTimeslots> channels;
};

struct SPageCard {
  std::uint32_t number = 0;  // as the library's log has it
  std::uint32_t state = 0;   // 1 open, 2 lost, 3 closed
  std::uint32_t serial = 0;
  std::uint32_t address = 0;  // host order
  Time changed = 0;
  std::uint32_t opens = 0;
  std::array<SPageThread, 3> threads;  // control, audio receive, pacer
  std::vector<SPageTrunk> trunks;
};

struct SStatusPage {
  std::uint32_t process = 0;
  bool isRunning = false;
  Time started = 0;
  Time heartbeat = 0;  // the newest sign of life, of whichever thread
  std::uint32_t starts = 0;
  std::array<SPageCallback, 3> callbacks;  // event, play, record
  std::vector<SPageCard> cards;            // those that there have been
};

// Throws CTraceError for a file that cannot be read or is the page of no library, of another version or size.
SStatusPage ReadStatusPage(const std::string& path);
// The same of the bytes of a file; `name` is for the sentence.
SStatusPage ParseStatusPage(ByteView bytes, const std::string& name);

// Why what the page says is not what is: one sentence; empty for a library that runs. `processLives` as the system
// tells.
std::string WhyNotLive(const SStatusPage& page, Time now, bool processLives, const std::string& name);

const char* PageCardStateName(std::uint32_t state);
const char* PageThreadName(std::size_t thread);
const char* PageCallbackName(std::size_t kind);

}  // namespace trace

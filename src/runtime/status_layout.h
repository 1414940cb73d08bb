// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "runtime/e1.h"

namespace zelk {

// What the status page holds, byte by byte as docs/status-page.md has it: for programs of any age that read the file.
// A change of what is here is another kStatusVersion. Numbers have the machine's byte order; times are UTC, in
// milliseconds since 1970, 0 for never. No field holds a text or anything of a caller.
constexpr uint64_t kStatusMagic = 0x544154534B4C455A;  // "ZELKSTAT"
constexpr uint32_t kStatusVersion = 1;
constexpr uint32_t kStatusCards = 20;

using StatusWord = std::atomic<uint32_t>;
using StatusLong = std::atomic<uint64_t>;
static_assert(StatusWord::is_always_lock_free && StatusLong::is_always_lock_free);

// A kind of callback of the application.
struct SStatusCallback {
  StatusLong slowestUs;
  StatusLong slowestAt;
  StatusWord slowestChannel;
  StatusWord overBlock;  // how many took longer than a block of 20 ms
};
static_assert(sizeof(SStatusCallback) == 24);

enum EStatusCallback : uint32_t { kStatusEvent, kStatusPlay, kStatusRecord, kStatusCallbacks };

struct SStatusHeader {
  StatusLong magic;  // written last
  StatusWord version;
  StatusWord size;  // bytes of the whole page
  StatusWord process;
  StatusWord isRunning;  // 1 from start-up to shut-down
  StatusLong started;
  StatusLong heartbeat;
  StatusWord cards;
  StatusWord trunks;     // of a card
  StatusWord timeslots;  // of a trunk
  StatusWord starts;     // how often the process has started the library
  std::array<SStatusCallback, kStatusCallbacks> callbacks;
  std::array<uint8_t, 128> reserved;
};
static_assert(sizeof(SStatusHeader) == 256);

// A thread of a card.
struct SStatusThread {
  StatusLong seen;      // its last turn
  StatusLong latestAt;  // when it was latest
  StatusWord latestMs;
  StatusWord reserved;
};
static_assert(sizeof(SStatusThread) == 24);

enum EStatusThread : uint32_t { kStatusControl, kStatusReceive, kStatusPacer, kStatusThreads };

// Lost: nothing has come of it for a second. Closed: by the library, as before each try to open it again.
enum EStatusCardState : uint32_t { kStatusNoCard, kStatusCardOpen, kStatusCardLost, kStatusCardClosed };

struct SStatusCard {
  StatusWord state;
  StatusWord serial;
  StatusWord address;  // IPv4, its first number in the first byte
  StatusWord trunks;
  StatusLong changed;
  StatusWord opens;
  StatusWord reserved;
  std::array<SStatusThread, kStatusThreads> threads;
  std::array<uint8_t, 24> unused;
};
static_assert(sizeof(SStatusCard) == 128);

struct SStatusTrunk {
  StatusWord lineStatus;    // as the card sends it: 0 in service, 3 not known yet
  StatusWord isDchannelUp;  // layer 2
  StatusLong changed;       // one of the two
  StatusWord hdlcErrors;    // every one that the card told
  StatusWord queueOverflows;
  StatusWord linkResets;
  StatusWord reserved;
  std::array<uint8_t, 32> unused;
};
static_assert(sizeof(SStatusTrunk) == 64);

struct SStatusChannel {
  StatusWord number;  // of the channel, plus 1; 0: none stands here
  StatusWord isOpen;
  StatusWord isUp;   // 1: the trunk is up and the channel open to calls
  StatusWord state;  // ECallState: idle, offered, dialled, connected, clearing, lost
  StatusLong changed;
  StatusWord offered;  // calls
  StatusWord dialled;
  StatusWord connected;
  StatusWord cause;  // of the last call that ended
  StatusWord queuedBytes;
  StatusWord lostReceived;  // blocks from the line that found no place
  StatusWord lostSent;      // blocks to the line that were not there in time
  StatusWord reserved;
  std::array<uint8_t, 8> unused;
};
static_assert(sizeof(SStatusChannel) == 64);

struct SStatusLayout {
  SStatusHeader header;
  std::array<SStatusCard, kStatusCards> cards;
  std::array<std::array<SStatusTrunk, kMaxTrunks>, kStatusCards> trunks;
  // By place in the card's sample frame: timeslots 0 and 16 have a record too, of which only the blocks count.
  std::array<std::array<SStatusChannel, kMaxPositions>, kStatusCards> channels;
};
static_assert(sizeof(SStatusLayout) == 340736);

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "load/reply_sound.h"
#include "load/sockets.h"
#include "load/sound.h"

namespace load {

// What a card's exchange of packets was like between Begin and End.
struct SExchange {
  uint64_t sent = 0;
  uint64_t answered = 0;
  uint64_t repeated = 0;        // replies under a number that was there before
  uint64_t unexpected = 0;      // of another length, or to no packet
  std::vector<int64_t> delays;  // ns from before the call that sends to the reply's arrival at the socket
};

// One card's packets: sent one by one when they are due, with the time of each, and the replies to them.
// Thread: one.
class CAudioLine {
 public:
  struct SOptions {
    std::string address;
    uint32_t trunks = 8;
    bool answersFirst = false;  // a library has no reply for a connection's first packet, an echo has
    bool checksSound = false;   // replies carry numbered blocks
    uint16_t firstChannel = 0;
    int64_t offsetNs = 0;  // of this card's packets from the others'
  };

  CAudioLine(const SOptions& lineOptions, std::unique_ptr<ILineSound> lineSound);

  void SetTarget(const std::string& address, uint16_t port);
  bool HasTarget() const { return target.sin_port != 0; }
  // Nothing is sent behind the end, so that replies that are missing then are lost.
  bool IsSending() const { return HasTarget() && sent.size() < endOfWindow; }
  int64_t Due() const { return due; }
  // In step with the other cards, whenever each was opened.
  void Start(int64_t monotonicNs) { due = (monotonicNs / intervalNs + 1) * intervalNs + options.offsetNs; }
  void Send();
  void TakeReplies();
  void Begin();
  void End() { endOfWindow = sent.size(); }
  const SExchange& Exchange();
  SBlockCounts Sound() const { return replySound.Counts(); }

 private:
  struct SSent {
    int64_t at = 0;
    bool isAnswered = false;
  };

  bool IsInWindow(size_t index) const { return index >= beginOfWindow && index < endOfWindow; }
  void Take(const uint8_t* packet, size_t length, int64_t arrived);

  const SOptions options;
  const size_t packetBytes;
  const int64_t intervalNs;
  const int descriptor;
  const std::unique_ptr<ILineSound> sound;
  CReplySound replySound;
  sockaddr_in target{};
  int64_t due = 0;
  std::vector<SSent> sent;
  size_t beginOfWindow = 0;
  size_t endOfWindow = std::numeric_limits<size_t>::max();
  SExchange exchange;
};

}  // namespace load

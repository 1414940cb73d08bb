// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace cardsim {

// One packet as it reaches the library.
struct SArrival {
  std::uint32_t sequence = 0;
  std::uint8_t hint = 0;
  std::size_t bytes = 0;
  std::uint64_t frame = 0;
};

// Job: which replies the library owes for the packets that reach it, stated here on its own.
//
//   sequence           in step            first packet, a gap of two or more, the tenth old one
//   replies            1                  hint - 4, none up to 4
//
// One packet that comes one early is kept until the next: if that is the missing one, both are answered, else the early
// one is dropped. Old packets are dropped. Thread: under the owner's lock. Nothing blocks or fails.
class CReplyModel {
 public:
  void Restart();
  // Appends, for every reply that becomes due, the packet that it answers.
  void OnArrival(const SArrival& packet, std::vector<SArrival>& answered);

  std::uint64_t Losses() const { return losses; }        // gaps that started the numbering anew
  std::uint64_t OldPackets() const { return olds; }      // repeated or late ones
  std::uint64_t OldResets() const { return oldResets; }  // ten of them in a row

 private:
  void Judge(const SArrival& packet, std::vector<SArrival>& answered);
  void StartAnew(const SArrival& packet, std::vector<SArrival>& answered);
  void Accept(const SArrival& packet);

  std::uint32_t next = 1;
  bool first = true;
  int oldInARow = 0;
  std::optional<SArrival> early;
  std::uint64_t losses = 0;
  std::uint64_t olds = 0;
  std::uint64_t oldResets = 0;
};

}  // namespace cardsim

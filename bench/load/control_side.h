// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace load {

// What is said to a library besides audio, for all cards: answers to probes, card information, trunk status. D-channels
// are taken and never answered, so trunks stay down, which audio does not mind. Thread: one of its own.
class CControlSide {
 public:
  struct SCard {
    std::string address;
    uint8_t trunks = 0;
  };

  CControlSide(std::vector<SCard> allCards, const std::string& broadcast);
  ~CControlSide();
  CControlSide(const CControlSide&) = delete;
  CControlSide& operator=(const CControlSide&) = delete;

  // Where the library wants this card's audio: its port, 0 as long as it has not said so.
  uint16_t AudioPort(size_t card) const { return audioPorts[card]; }

 private:
  struct SConnection {
    int listener = -1;
    int answers = -1;  // of probes
    int stream = -1;
    std::vector<uint8_t> unread;
  };

  void Run();
  void AnswerProbe();
  void Accept(SConnection& connection);
  void Read(size_t card);
  void Take(size_t card, const std::vector<uint8_t>& message);
  void Talk();

  const std::vector<SCard> cards;
  const int probes;
  std::vector<SConnection> connections;
  std::array<std::atomic<uint16_t>, 20> audioPorts{};
  std::atomic<bool> stopping{false};
  std::thread worker;
};

}  // namespace load

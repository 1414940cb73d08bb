// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace zelk {

// What a card says to the discovery probe, from its address.
struct SDiscoveryAnswer {
  std::string address;
  std::vector<uint8_t> datagram;
};

// A reply as cards send it; the arguments make it another's.
std::vector<uint8_t> DiscoveryReply(const char* magic = "ZELK R", uint8_t version = 1, size_t length = 15);

// Hears the probes for all the cards of the loopback network and gives their answers, in this order.
// Thread: any; the work is done on a thread of its own.
class CDiscoveryResponder {
 public:
  explicit CDiscoveryResponder(const std::vector<SDiscoveryAnswer>& answers);
  // Cards at these addresses that answer as they should.
  explicit CDiscoveryResponder(const std::vector<std::string>& cardAddresses);
  ~CDiscoveryResponder();
  CDiscoveryResponder(const CDiscoveryResponder&) = delete;
  CDiscoveryResponder& operator=(const CDiscoveryResponder&) = delete;

  bool IsReady() const { return isReady; }
  int Probes() const { return probes; }

 private:
  struct SCard {
    int socket;
    std::vector<uint8_t> datagram;
  };

  int OpenUdp(const std::string& address, uint16_t port);
  void Run();
  void Answer();

  bool isReady = true;
  const int receiver;
  std::vector<SCard> cards;
  std::atomic<int> probes{0};
  std::atomic<bool> stopping{false};
  std::thread worker;
};

}  // namespace zelk

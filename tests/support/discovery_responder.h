#pragma once

#include <string>
#include <vector>

#include "unit/card/fake_card.h"

namespace zelk::test {

// Answers the discovery probe on the loopback network for cards at these addresses, in this order.
class CDiscoveryResponder {
 public:
  explicit CDiscoveryResponder(std::vector<std::string> cardAddresses) : probes(OpenUdp("127.255.255.255")), worker() {
    for (const std::string& address : cardAddresses) {
      cards.push_back(OpenUdp(address));
    }
    worker = std::thread([this] { Run(); });
  }
  ~CDiscoveryResponder() {
    stopping = true;
    worker.join();
    CloseSocket(probes);
    for (const int card : cards) {
      CloseSocket(card);
    }
  }
  CDiscoveryResponder(const CDiscoveryResponder&) = delete;
  CDiscoveryResponder& operator=(const CDiscoveryResponder&) = delete;

 private:
  static int OpenUdp(const std::string& address) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in local = SystemAddress(address, 5854);
    EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof local), 0) << address;
    return descriptor;
  }

  void Run() {
    while (!stopping) {
      pollfd polled{probes, POLLIN, 0};
      if (poll(&polled, 1, 10) <= 0) {
        continue;
      }
      char probe[64];
      sockaddr_in from{};
      socklen_t length = sizeof from;
      if (recvfrom(probes, probe, sizeof probe, 0, reinterpret_cast<sockaddr*>(&from), &length) == 6) {
        from.sin_port = htons(5854);  // where the library listens; the probe came from another socket
        const char reply[15] = {'Z', 'E', 'L', 'K', ' ', 'R', 1};
        for (const int card : cards) {
          (void)!sendto(card, reply, sizeof reply, 0, reinterpret_cast<const sockaddr*>(&from), length);
        }
      }
    }
  }

  const int probes;
  std::vector<int> cards;
  std::atomic<bool> stopping{false};
  std::thread worker;
};

}  // namespace zelk::test

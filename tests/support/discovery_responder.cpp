// SPDX-License-Identifier: GPL-2.0-only
#include "support/discovery_responder.h"

#include <cstring>

#include "support/system_address.h"

namespace zelk {

namespace {

constexpr uint16_t kPort = 5854;
constexpr char kProbe[] = "ZELK D";
constexpr size_t kProbeBytes = 6;
constexpr char kBroadcast[] = "127.255.255.255";

std::vector<SDiscoveryAnswer> RepliesFrom(const std::vector<std::string>& cardAddresses) {
  std::vector<SDiscoveryAnswer> answers;
  for (const std::string& address : cardAddresses) {
    answers.push_back({address, DiscoveryReply()});
  }
  return answers;
}

}  // namespace

std::vector<uint8_t> DiscoveryReply(const char* magic, uint8_t version, size_t length) {
  std::vector<uint8_t> datagram(magic, magic + kProbeBytes);
  datagram.push_back(version);
  datagram.resize(length);
  return datagram;
}

CDiscoveryResponder::CDiscoveryResponder(const std::vector<std::string>& cardAddresses)
    : CDiscoveryResponder(RepliesFrom(cardAddresses)) {}

CDiscoveryResponder::CDiscoveryResponder(const std::vector<SDiscoveryAnswer>& answers)
    : receiver(OpenUdp(kBroadcast, kPort)) {
  for (const SDiscoveryAnswer& answer : answers) {
    cards.push_back({OpenUdp(answer.address, 0), answer.datagram});
  }
  worker = std::thread([this] { Run(); });
}

CDiscoveryResponder::~CDiscoveryResponder() {
  stopping = true;
  worker.join();
  CloseSocket(receiver);
  for (const SCard& card : cards) {
    CloseSocket(card.socket);
  }
}

int CDiscoveryResponder::OpenUdp(const std::string& address, uint16_t port) {
  const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
  const int on = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in local = SystemAddress(address, port);
  isReady = bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0 && isReady;
  return descriptor;
}

void CDiscoveryResponder::Run() {
  while (!stopping) {
    pollfd polled{receiver, POLLIN, 0};
    if (poll(&polled, 1, 10) > 0) {
      Answer();
    }
  }
}

void CDiscoveryResponder::Answer() {
  char buffer[1500];
  sockaddr_in from{};
  socklen_t size = sizeof from;
  const int64_t length = recvfrom(receiver, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &size);
  if (length != int64_t{kProbeBytes} || std::memcmp(buffer, kProbe, kProbeBytes) != 0) {
    return;
  }
  ++probes;
  from.sin_port = htons(kPort);  // where the library listens; the probe came from another socket
  for (const SCard& card : cards) {
    (void)!sendto(card.socket, card.datagram.data(), card.datagram.size(), 0, reinterpret_cast<const sockaddr*>(&from),
                  size);
  }
}

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/program/machine.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string_view>

#include "common/wire.h"

namespace doctor {
namespace {

constexpr int kQuietMs = 50;
constexpr int kProbes = 3;
constexpr int kMostReplies = 100;  // who never stops sending must not hold us

std::uint32_t AddressOf(const sockaddr* address) {
  sockaddr_in ipv4{};
  if (address != nullptr) {
    std::memcpy(&ipv4, address, sizeof ipv4);
  }
  return ntohl(ipv4.sin_addr.s_addr);
}

sockaddr_in Endpoint(std::uint32_t address) {
  sockaddr_in endpoint{};
  endpoint.sin_family = AF_INET;
  endpoint.sin_port = htons(tool::kCardPort);
  endpoint.sin_addr.s_addr = htonl(address);
  return endpoint;
}

// Job: a UDP socket. Thread: one. Owns it.
class CUdp {
 public:
  CUdp() : handle(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  ~CUdp() {
    if (handle >= 0) {
      close(handle);
    }
  }
  CUdp(const CUdp&) = delete;
  CUdp& operator=(const CUdp&) = delete;

  const int handle;
};

void TakeReplies(int receiver, std::vector<std::uint32_t>& cards) {
  pollfd waiting{receiver, POLLIN, 0};
  for (int i = 0; i < kMostReplies && poll(&waiting, 1, kQuietMs) > 0; ++i) {
    std::array<char, 2048> datagram{};
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t got =
        recvfrom(receiver, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
    const std::uint32_t card = ntohl(from.sin_addr.s_addr);
    if (got > 0 && std::string_view(datagram.data(), static_cast<std::size_t>(got)).starts_with("ZELK R") &&
        std::find(cards.begin(), cards.end(), card) == cards.end()) {
      cards.push_back(card);
    }
  }
}

}  // namespace

std::optional<std::vector<SAdapterAddress>> AdapterAddresses() {
  ifaddrs* records = nullptr;
  if (getifaddrs(&records) != 0) {
    return std::nullopt;
  }
  std::vector<SAdapterAddress> addresses;
  for (const ifaddrs* each = records; each != nullptr; each = each->ifa_next) {
    if ((each->ifa_flags & IFF_UP) != 0 && each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET) {
      addresses.push_back({each->ifa_name, AddressOf(each->ifa_addr), AddressOf(each->ifa_netmask),
                           (each->ifa_flags & IFF_LOOPBACK) != 0});
    }
  }
  freeifaddrs(records);
  return addresses;
}

bool MayWrite(const std::string& path) {
  return access(path.c_str(), W_OK) == 0;
}

std::optional<std::uint64_t> ReceiveBufferMost() {
  std::ifstream file("/proc/sys/net/core/rmem_max");
  std::uint64_t most = 0;
  return file >> most ? std::optional<std::uint64_t>(most) : std::nullopt;
}

SProbed ProbeCards(const SAdapterAddress& adapter) {
  SProbed probed;
  const CUdp receiver;
  const CUdp sender;
  const int yes = 1;
  const sockaddr_in own = Endpoint(adapter.address);
  const sockaddr_in everyone = Endpoint(adapter.address | ~adapter.mask);
  if (setsockopt(receiver.handle, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
      bind(receiver.handle, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
      setsockopt(sender.handle, SOL_SOCKET, SO_BROADCAST, &yes, sizeof yes) != 0) {
    probed.fault = std::strerror(errno);
    return probed;
  }
  constexpr std::string_view kProbe = "ZELK D";
  for (int i = 0; i < kProbes; ++i) {
    if (sendto(sender.handle, kProbe.data(), kProbe.size(), 0, reinterpret_cast<const sockaddr*>(&everyone),
               sizeof everyone) < 0) {
      probed.fault = std::strerror(errno);
      return probed;
    }
    TakeReplies(receiver.handle, probed.cards);
  }
  return probed;
}

}  // namespace doctor

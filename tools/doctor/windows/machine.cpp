// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/program/machine.h"

#include <winsock2.h>
// The other system headers need it first.
#include <iphlpapi.h>
#include <windows.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "common/wire.h"

namespace doctor {
namespace {

constexpr int kQuietMs = 50;
constexpr int kProbes = 3;
constexpr int kMostReplies = 100;  // who never stops sending must not hold us

std::uint32_t AddressOf(const IP_ADDRESS_STRING& text) {
  in_addr parsed{};
  return inet_pton(AF_INET, text.String, &parsed) == 1 ? ntohl(parsed.s_addr) : 0;
}

sockaddr_in Endpoint(std::uint32_t address) {
  sockaddr_in endpoint{};
  endpoint.sin_family = AF_INET;
  endpoint.sin_port = htons(tool::kCardPort);
  endpoint.sin_addr.s_addr = htonl(address);
  return endpoint;
}

// Job: the system's sockets, and one of UDP. Thread: one. Owns it.
class CUdp {
 public:
  CUdp() {
    WSADATA data{};
    WSAStartup(MAKEWORD(2, 2), &data);
    handle = socket(AF_INET, SOCK_DGRAM, 0);
  }
  ~CUdp() {
    if (handle != INVALID_SOCKET) {
      closesocket(handle);
    }
    WSACleanup();
  }
  CUdp(const CUdp&) = delete;
  CUdp& operator=(const CUdp&) = delete;

  SOCKET handle;
};

std::string LastFault() {
  return "error " + std::to_string(WSAGetLastError());
}

void TakeReplies(SOCKET receiver, std::vector<std::uint32_t>& cards) {
  for (int i = 0; i < kMostReplies; ++i) {
    std::array<char, 2048> datagram{};
    sockaddr_in from{};
    int size = sizeof from;
    const int got = recvfrom(receiver, datagram.data(), static_cast<int>(datagram.size()), 0,
                             reinterpret_cast<sockaddr*>(&from), &size);
    if (got <= 0) {
      return;  // the time is over
    }
    const std::uint32_t card = ntohl(from.sin_addr.s_addr);
    if (std::string_view(datagram.data(), static_cast<std::size_t>(got)).starts_with("ZELK R") &&
        std::find(cards.begin(), cards.end(), card) == cards.end()) {
      cards.push_back(card);
    }
  }
}

}  // namespace

std::optional<std::vector<SAdapterAddress>> AdapterAddresses() {
  ULONG bytes = 0;
  if (GetAdaptersInfo(nullptr, &bytes) != ERROR_BUFFER_OVERFLOW) {
    return std::nullopt;
  }
  std::vector<IP_ADAPTER_INFO> buffer(bytes / sizeof(IP_ADAPTER_INFO) + 1);
  if (GetAdaptersInfo(buffer.data(), &bytes) != ERROR_SUCCESS) {
    return std::nullopt;
  }
  std::vector<SAdapterAddress> addresses;
  for (const IP_ADAPTER_INFO* each = buffer.data(); each != nullptr; each = each->Next) {
    for (const IP_ADDR_STRING* address = &each->IpAddressList; address != nullptr; address = address->Next) {
      const std::uint32_t number = AddressOf(address->IpAddress);
      if (number != 0) {
        addresses.push_back(
            {each->Description, number, AddressOf(address->IpMask), each->Type == MIB_IF_TYPE_LOOPBACK});
      }
    }
  }
  return addresses;
}

// By opening with that right, which changes nothing.
bool MayWrite(const std::string& path) {
  const DWORD attributes = GetFileAttributesA(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    return false;
  }
  const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  // Opening asks for the right and changes nothing.
  const DWORD right = isFolder ? FILE_ADD_FILE : FILE_APPEND_DATA;
  const DWORD flags = isFolder ? FILE_FLAG_BACKUP_SEMANTICS : FILE_ATTRIBUTE_NORMAL;
  const HANDLE handle = CreateFileA(path.c_str(), right, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, flags, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    return GetLastError() == ERROR_SHARING_VIOLATION;  // somebody has it to himself: the library
  }
  CloseHandle(handle);
  return true;
}

std::optional<std::uint64_t> ReceiveBufferMost() {
  return std::nullopt;
}

SProbed ProbeCards(const SAdapterAddress& adapter) {
  SProbed probed;
  const CUdp receiver;
  const CUdp sender;
  const BOOL yes = TRUE;
  const DWORD wait = kQuietMs;
  const sockaddr_in own = Endpoint(adapter.address);
  const sockaddr_in everyone = Endpoint(adapter.address | ~adapter.mask);
  const auto* const option = reinterpret_cast<const char*>(&yes);
  if (setsockopt(receiver.handle, SOL_SOCKET, SO_REUSEADDR, option, sizeof yes) != 0 ||
      setsockopt(receiver.handle, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&wait), sizeof wait) != 0 ||
      bind(receiver.handle, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
      setsockopt(sender.handle, SOL_SOCKET, SO_BROADCAST, option, sizeof yes) != 0) {
    probed.fault = LastFault();
    return probed;
  }
  constexpr std::string_view kProbe = "ZELK D";
  for (int i = 0; i < kProbes; ++i) {
    if (sendto(sender.handle, kProbe.data(), static_cast<int>(kProbe.size()), 0,
               reinterpret_cast<const sockaddr*>(&everyone), sizeof everyone) < 0) {
      probed.fault = LastFault();
      return probed;
    }
    TakeReplies(receiver.handle, probed.cards);
  }
  return probed;
}

}  // namespace doctor

// SPDX-License-Identifier: GPL-2.0-only
#include "platform/adapters.h"

#include <winsock2.h>
//
#include <iphlpapi.h>
#include <ws2tcpip.h>

#include <cstddef>

namespace zelk {

namespace {

SIpv4Address AddressOf(const IP_ADDRESS_STRING& text) {
  in_addr parsed{};
  return inet_pton(AF_INET, text.String, &parsed) == 1 ? SIpv4Address{parsed.s_addr} : kAnyAddress;
}

}  // namespace

int ListAdapters(std::vector<SAdapter>& adapters) {
  adapters.clear();
  ULONG bytes = 0;
  if (GetAdaptersInfo(nullptr, &bytes) != ERROR_BUFFER_OVERFLOW) {
    return kAdaptersNotSized;
  }
  std::vector<IP_ADAPTER_INFO> buffer(bytes / sizeof(IP_ADAPTER_INFO) + 1);
  if (GetAdaptersInfo(buffer.data(), &bytes) != ERROR_SUCCESS) {
    return kAdaptersNotRead;
  }
  for (const IP_ADAPTER_INFO* record = buffer.data(); record != nullptr; record = record->Next) {
    adapters.push_back({AddressOf(record->IpAddressList.IpAddress), AddressOf(record->IpAddressList.IpMask)});
  }
  return kAdaptersListed;
}

}  // namespace zelk

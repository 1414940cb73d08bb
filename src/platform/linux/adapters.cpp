// SPDX-License-Identifier: GPL-2.0-only
#include "platform/adapters.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <string>

namespace zelk {

namespace {

struct SEntry {
  std::string name;
  bool loopback;
  SAdapter adapter;
};

SIpv4Address AddressOf(const sockaddr* address) {
  return address == nullptr ? kAnyAddress
                            : SIpv4Address{reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr};
}

// An interface with several addresses has several records: its first one counts.
bool IsWanted(const ifaddrs& record, const std::vector<SEntry>& entries) {
  if ((record.ifa_flags & IFF_UP) == 0 || record.ifa_addr == nullptr || record.ifa_addr->sa_family != AF_INET) {
    return false;
  }
  return std::none_of(entries.begin(), entries.end(),
                      [&record](const SEntry& entry) { return entry.name == record.ifa_name; });
}

}  // namespace

int ListAdapters(std::vector<SAdapter>& adapters) {
  adapters.clear();
  ifaddrs* records = nullptr;
  if (getifaddrs(&records) != 0) {
    return kAdaptersNotRead;
  }
  std::vector<SEntry> entries;
  for (const ifaddrs* record = records; record != nullptr; record = record->ifa_next) {
    if (IsWanted(*record, entries)) {
      entries.push_back({record->ifa_name,
                         (record->ifa_flags & IFF_LOOPBACK) != 0,
                         {AddressOf(record->ifa_addr), AddressOf(record->ifa_netmask)}});
    }
  }
  freeifaddrs(records);
  std::stable_partition(entries.begin(), entries.end(), [](const SEntry& entry) { return !entry.loopback; });
  for (const SEntry& entry : entries) {
    adapters.push_back(entry.adapter);
  }
  return kAdaptersListed;
}

}  // namespace zelk

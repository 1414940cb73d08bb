// SPDX-License-Identifier: GPL-2.0-only
#include "common/port_holders.h"

#include <winsock2.h>
// The other system headers need it first.
#include <iphlpapi.h>
#include <windows.h>

#include <algorithm>
#include <array>

namespace tool {

namespace {

std::string NameOf(DWORD pid) {
  const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
  if (process == nullptr) {
    return {};
  }
  std::array<char, 1024> path{};
  auto length = static_cast<DWORD>(path.size());
  const bool known = QueryFullProcessImageNameA(process, 0, path.data(), &length) != 0;
  CloseHandle(process);
  const std::string whole = known ? std::string(path.data(), length) : std::string();
  return whole.substr(whole.find_last_of('\\') + 1);
}

// The table may grow between the question for its size and the one for itself.
std::vector<DWORD> ReadTable() {
  DWORD bytes = 0;
  std::vector<DWORD> table;
  DWORD result = ERROR_INSUFFICIENT_BUFFER;
  while (result == ERROR_INSUFFICIENT_BUFFER) {
    table.resize(bytes / sizeof(DWORD) + 1);
    bytes = static_cast<DWORD>(table.size() * sizeof(DWORD));
    result = GetExtendedUdpTable(table.data(), &bytes, FALSE, AF_INET, UDP_TABLE_OWNER_PID, 0);
  }
  if (result != NO_ERROR) {
    table.clear();
  }
  return table;
}

}  // namespace

std::vector<SPortHolder> UdpWildcardHolders(uint16_t port) {
  std::vector<SPortHolder> holders;
  const std::vector<DWORD> words = ReadTable();
  if (words.empty()) {
    return holders;
  }
  const auto* table = reinterpret_cast<const MIB_UDPTABLE_OWNER_PID*>(words.data());
  const MIB_UDPROW_OWNER_PID* rows = table->table;
  for (DWORD i = 0; i < table->dwNumEntries; ++i) {
    const DWORD pid = rows[i].dwOwningPid;
    const bool holds = rows[i].dwLocalAddr == 0 && rows[i].dwLocalPort == htons(port);
    const bool known = std::any_of(holders.begin(), holders.end(), [pid](const auto& it) { return it.pid == pid; });
    if (holds && !known) {
      holders.push_back({static_cast<uint32_t>(pid), NameOf(pid)});
    }
  }
  return holders;
}

uint32_t OwnProcessId() {
  return static_cast<uint32_t>(GetCurrentProcessId());
}

}  // namespace tool

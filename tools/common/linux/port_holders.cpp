// SPDX-License-Identifier: GPL-2.0-only
#include "common/port_holders.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace tool {

namespace {

namespace fs = std::filesystem;

// Sockets by the names under which they stand among a process's descriptors; the value: its process was found.
using Sockets = std::map<std::string, bool>;

// A line of the table: number, local address and port in hexadecimal, seven more columns, inode.
Sockets WildcardSockets(uint16_t port) {
  char local[32];
  std::snprintf(local, sizeof local, "00000000:%04X", unsigned{port});
  Sockets sockets;
  std::ifstream table("/proc/net/udp");
  std::string line;
  while (std::getline(table, line)) {
    std::istringstream columns(line);
    std::string column;
    columns >> column >> column;
    if (column != local) {
      continue;
    }
    for (int i = 0; i < 8; ++i) {
      columns >> column;
    }
    sockets["socket:[" + column + "]"] = false;
  }
  return sockets;
}

// Another user's descriptors cannot be read: such a process has none of the sockets, as far as we can see.
bool HasAny(const fs::path& process, Sockets& sockets) {
  bool found = false;
  std::error_code failed;
  for (fs::directory_iterator entry(process / "fd", failed), end; !failed && entry != end; entry.increment(failed)) {
    std::error_code gone;
    const auto socket = sockets.find(fs::read_symlink(entry->path(), gone).string());
    if (!gone && socket != sockets.end()) {
      socket->second = true;
      found = true;
    }
  }
  return found;
}

std::string NameOf(const fs::path& process) {
  std::ifstream file(process / "comm");
  std::string name;
  std::getline(file, name);
  return name;
}

}  // namespace

std::vector<SPortHolder> UdpWildcardHolders(uint16_t port) {
  Sockets sockets = WildcardSockets(port);
  std::vector<SPortHolder> holders;
  if (sockets.empty()) {
    return holders;
  }
  std::error_code failed;
  for (fs::directory_iterator entry("/proc", failed), end; !failed && entry != end; entry.increment(failed)) {
    const std::string pid = entry->path().filename().string();
    if (pid.find_first_not_of("0123456789") == std::string::npos && HasAny(entry->path(), sockets)) {
      holders.push_back({static_cast<uint32_t>(std::stoul(pid)), NameOf(entry->path())});
    }
  }
  if (std::any_of(sockets.begin(), sockets.end(), [](const auto& socket) { return !socket.second; })) {
    holders.push_back({});
  }
  return holders;
}

uint32_t OwnProcessId() {
  return static_cast<uint32_t>(getpid());
}

}  // namespace tool

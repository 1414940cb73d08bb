// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/port_holders.h"
#include "doctor/core/ini_text.h"
#include "doctor/core/log_facts.h"
#include "trace/core/status_page.h"

namespace doctor {

// What stands beside a library.
struct SLibraryFacts {
  std::string path;
  std::string folder;
  bool hasLibrary = true;
  std::string iniPath;
  std::optional<SIniText> ini;  // none: there is no such file
  std::string iniFault;         // it is there and cannot be read
  bool isFolderWritable = true;
  std::vector<std::string> notWritable;        // files that are there and may not be written
  std::optional<std::uint64_t> diskFreeBytes;  // in that folder
  std::optional<trace::SStatusPage> page;
  std::string pageFault;    // it is there and cannot be read
  std::string pageNotLive;  // why it is not what is
  std::optional<SLogFacts> log;
  std::vector<std::string> dChannelFiles;
};

// An IPv4 address of an adapter of this machine, in host order.
struct SAdapterAddress {
  std::string adapter;
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
  bool isLoopback = false;
};

struct SMachineFacts {
  std::optional<std::vector<SAdapterAddress>> adapters;  // in the system's order; none: it does not tell
  std::vector<tool::SPortHolder> holders;                // of UDP port 5854 of the wildcard address
  std::optional<std::uint64_t> receiveBufferMost;        // bytes that a socket may have; none: no such limit
};

// A card that somewhere was seen: its trunks by its serial number. 0 trunks: not known.
using Serials = std::map<std::uint32_t, int>;

}  // namespace doctor

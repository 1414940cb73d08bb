// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "fleet/link.h"

namespace node {

struct SNodeOptions {
  std::string fleet = "zelk";
  std::string node;
  std::string files = ".";
  double rate = 0;
  int channels = 0;
  int trunkSeconds = 10;
  int drainSeconds = 3600;
  int incomingMs = 2000;
  std::string incomingDefault = "reject";
  bool hidesNumbers = false;
  bool isForced = false;
  fleet::SLinkOptions link;
};

// Is a host of the fleet until SIGINT or SIGTERM, and until its calls are over then.
// Failures of the start throw phone::CPhoneError, fleet::CLinkError or std::invalid_argument.
void RunNode(const SNodeOptions& options);

}  // namespace node

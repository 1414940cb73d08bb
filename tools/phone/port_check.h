// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/port_holders.h"

namespace phone {

// Why the telephone must leave the cards alone when these processes hear the cards' announcements; empty when it need
// not. A card serves one program: opened a second time it drops the first one's calls.
std::string RefusalText(const std::vector<tool::SPortHolder>& holders, uint32_t ownPid);

// Throws CPhoneError when another process of this machine seems to use the cards. Thread: main, before the library is
// started.
void RequireCardsFree();

}  // namespace phone

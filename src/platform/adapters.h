// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <vector>

#include "platform/ipv4_address.h"

namespace zelk {

// The first IPv4 address of a network adapter and its mask.
struct SAdapter {
  SIpv4Address address;
  SIpv4Address mask;
};

constexpr int kAdaptersListed = 0;
constexpr int kAdaptersNotSized = -1;  // the system did not say how long the list is
constexpr int kAdaptersNotRead = -2;   // the list could not be read

// Fills the list in the system's order, loopback last (Linux). Returns one of the three results above.
// Thread: any.
int ListAdapters(std::vector<SAdapter>& adapters);

}  // namespace zelk

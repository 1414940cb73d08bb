// SPDX-License-Identifier: GPL-2.0-only

// Whose a message of the library is.
#include <algorithm>

#include "cardsim/exchange/trunk_calls.h"

namespace cardsim {

bool CTrunkCalls::OnMessage(const SQ931Message& message) {
  constexpr int kFlag = 0x8000;
  const int reference = message.callReference | (message.fromDestination ? kFlag : 0);
  const auto found = std::find_if(calls.begin(), calls.end(),
                                  [&](const Call& call) { return peer.Reference(call->handle) == reference; });
  if (found == calls.end()) {
    return false;
  }
  (*found)->AddMessage(message);
  return true;
}

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace fleet {

// What the server tells of a message that it delivers, in the subject to which it is to be acknowledged.
struct SDelivery {
  uint64_t times = 0;     // how often it was delivered, this time too
  uint64_t sequence = 0;  // in its stream
  uint64_t pending = 0;   // messages behind it
};

// Empty for a subject that is none of these: "$JS.ACK.stream.consumer.times.sequence.order.time.pending", and the form
// of later servers, which put a domain and an account in front.
std::optional<SDelivery> ParseDelivery(const std::string& ackSubject);

// The bytes of a text in base64; empty when it is none.
std::optional<std::string> FromBase64(const std::string& text);

}  // namespace fleet

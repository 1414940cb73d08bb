// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

#include "node/asks.h"
#include "phone/json_line.h"

namespace node {

// What became of a message for a stream.
struct SStored {
  enum class EKind {
    kStored,
    kRefused,  // another message stands there already
    kFailed,   // not known, or not now: ask again
  };
  EKind kind = EKind::kFailed;
  uint64_t sequence = 0;
};

// A stored message.
struct SFound {
  enum class EKind { kThere, kMissing, kFailed };
  EKind kind = EKind::kFailed;
  uint64_t sequence = 0;
  std::string data;
  phone::UtcTime time;  // when the server stored it, by its clock
};

SStored StoredOf(const SReply& reply);
SFound FoundOf(const SReply& reply);

// The request for the last message of a subject in a stream.
std::string LastOfSubject(const std::string& subject);
std::string GetSubject(const std::string& stream);

}  // namespace node

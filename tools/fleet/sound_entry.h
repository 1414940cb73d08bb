// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

namespace fleet {

constexpr size_t kMostSoundBytes = size_t{1024} * 1024;
constexpr size_t kSoundPart = size_t{512} * 1024;  // well below what a server takes as one message

// SHA-256 (FIPS 180-4) as 64 hexadecimal digits.
std::string Sha256(const std::string& bytes);

// What the bucket of sounds has under a name: the hash, and in how many parts the bytes stand under HASH.0, HASH.1, ...
struct SSoundEntry {
  std::string hash;
  size_t parts = 0;
};

std::string TextOf(const SSoundEntry& entry);
// Throws std::invalid_argument.
SSoundEntry ParseSoundEntry(const std::string& text);

// The key of a name: what a key cannot hold is written as =XX.
std::string SoundKey(const std::string& name);

}  // namespace fleet

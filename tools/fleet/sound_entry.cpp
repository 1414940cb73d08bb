// SPDX-License-Identifier: GPL-2.0-only
#include "fleet/sound_entry.h"

#include <array>
#include <bit>
#include <stdexcept>

#include "phone/json_line.h"

namespace fleet {

namespace {

using phone::Json;

// The first 32 bits of the fractional parts of the cube roots of the first 64 primes.
constexpr std::array<uint32_t, 64> kRound{
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

using State = std::array<uint32_t, 8>;

std::array<uint32_t, 64> Schedule(const uint8_t* block) {
  std::array<uint32_t, 64> words{};
  for (size_t i = 0; i < 16; ++i) {
    words[i] = uint32_t{block[4 * i]} << 24 | uint32_t{block[4 * i + 1]} << 16 | uint32_t{block[4 * i + 2]} << 8 |
               uint32_t{block[4 * i + 3]};
  }
  for (size_t i = 16; i < 64; ++i) {
    const uint32_t a = words[i - 15];
    const uint32_t b = words[i - 2];
    words[i] = words[i - 16] + (std::rotr(a, 7) ^ std::rotr(a, 18) ^ a >> 3) + words[i - 7] +
               (std::rotr(b, 17) ^ std::rotr(b, 19) ^ b >> 10);
  }
  return words;
}

void Mix(State& state, const uint8_t* block) {
  const std::array<uint32_t, 64> words = Schedule(block);
  auto [a, b, c, d, e, f, g, h] = state;
  for (size_t i = 0; i < 64; ++i) {
    const uint32_t first =
        h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) + ((e & f) ^ (~e & g)) + kRound[i] + words[i];
    const uint32_t second = (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + first;
    d = c;
    c = b;
    b = a;
    a = first + second;
  }
  const State mixed{a, b, c, d, e, f, g, h};
  for (size_t i = 0; i < state.size(); ++i) {
    state[i] += mixed[i];
  }
}

}  // namespace

std::string Sha256(const std::string& bytes) {
  std::string padded = bytes + '\x80';
  padded.append((120 - padded.size() % 64) % 64, '\0');
  const uint64_t bits = uint64_t{bytes.size()} * 8;
  for (int shift = 56; shift >= 0; shift -= 8) {
    padded += static_cast<char>(bits >> shift & 0xFF);
  }
  State state{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  for (size_t at = 0; at < padded.size(); at += 64) {
    Mix(state, reinterpret_cast<const uint8_t*>(padded.data()) + at);
  }
  std::string text;
  for (const uint32_t word : state) {
    for (int shift = 28; shift >= 0; shift -= 4) {
      text += "0123456789abcdef"[word >> shift & 0xF];
    }
  }
  return text;
}

std::string TextOf(const SSoundEntry& entry) {
  return Json{{"hash", entry.hash}, {"parts", entry.parts}}.dump();
}

SSoundEntry ParseSoundEntry(const std::string& text) {
  const Json object = Json::parse(text, nullptr, false);
  try {
    SSoundEntry entry{object.at("hash"), object.at("parts")};
    const bool isHash =
        entry.hash.size() == 64 && entry.hash.find_first_not_of("0123456789abcdef") == std::string::npos;
    if (isHash && entry.parts > 0 && entry.parts <= kMostSoundBytes / kSoundPart) {
      return entry;
    }
  } catch (const Json::exception&) {  // told below
  }
  throw std::invalid_argument("the entry of a sound that cannot be read");
}

std::string SoundKey(const std::string& name) {
  std::string key = "name.";
  for (const char byte : name) {
    const auto code = static_cast<unsigned char>(byte);
    const bool isPlain = (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                         byte == '-' || byte == '_';
    if (isPlain) {
      key += byte;
    } else {
      key += '=';
      key += "0123456789ABCDEF"[code >> 4];
      key += "0123456789ABCDEF"[code & 0xF];
    }
  }
  return key;
}

}  // namespace fleet

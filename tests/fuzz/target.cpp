// SPDX-License-Identifier: GPL-2.0-only
#include "fuzz/target.h"

#include <algorithm>
#include <stdexcept>

namespace zelk::fuzz {

namespace {

std::vector<STarget>& Registry() {
  static std::vector<STarget> targets;
  return targets;
}

}  // namespace

const std::vector<STarget>& Targets() {
  return Registry();
}

SRegistered::SRegistered(const STarget& target) {
  Registry().push_back(target);
}

void Require(bool holds, const char* promise) {
  if (!holds) {
    throw std::runtime_error(promise);
  }
}

Bytes Join(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

Bytes Text(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

uint8_t CInput::Byte() {
  if (left == 0) {
    return 0;
  }
  --left;
  return *next++;
}

uint32_t CInput::Number(size_t bytes) {
  uint32_t number = 0;
  for (size_t i = 0; i < bytes; ++i) {
    number |= static_cast<uint32_t>(Byte()) << (8 * i);
  }
  return number;
}

Bytes CInput::Take(size_t count) {
  const size_t taken = std::min(count, left);
  Bytes bytes(next, next + taken);
  next += taken;
  left -= taken;
  return bytes;
}

}  // namespace zelk::fuzz

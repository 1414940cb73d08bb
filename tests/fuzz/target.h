// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zelk::fuzz {

// One kind of input from outside: what the library does with any bytes of it, and valid inputs to begin from.
// libfuzzer.cpp drives one target by coverage, fuzz_targets_test.cpp drives all of them for a moment in every test run.
//
// Thread: one. Run leaves nothing behind: the same bytes do the same each time. It throws a std::runtime_error when the
// library breaks a promise; memory errors are for the sanitizers to see.
using Bytes = std::vector<uint8_t>;

struct STarget {
  const char* name;
  void (*run)(const uint8_t* bytes, size_t length);
  std::vector<Bytes> (*seeds)();
  size_t mutations = 300;  // that every test run tries
};

// Every target that is linked into the program.
const std::vector<STarget>& Targets();

// A target's file defines one of these.
struct SRegistered {
  explicit SRegistered(const STarget& target);
};

void Require(bool holds, const char* promise);

Bytes Join(const std::vector<Bytes>& parts);
Bytes Text(const std::string& text);

// Takes an input apart, front to back; what it has no bytes for reads as 0.
class CInput {
 public:
  CInput(const uint8_t* bytes, size_t length) : next(bytes), left(length) {}

  bool IsEmpty() const { return left == 0; }
  size_t Left() const { return left; }
  uint8_t Byte();
  uint32_t Number(size_t bytes);  // little-endian
  // So many bytes, or what is left; in memory of exactly that size, so that a read past the end is seen.
  Bytes Take(size_t count);
  Bytes Rest() { return Take(left); }

 private:
  const uint8_t* next;
  size_t left;
};

}  // namespace zelk::fuzz

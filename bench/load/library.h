// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

#include "native_module.h"
#include "support/library_functions.h"
#include "zelk/ZelkApi.h"

namespace load {

// The library, loaded as an application does, for as long as the process lives. Throws std::runtime_error.
struct SLibrary {
#define ZELK_FUNCTION(name) decltype(&::ZELK_##name) name = nullptr;
  ZELK_LIBRARY_FUNCTIONS(ZELK_FUNCTION)
#undef ZELK_FUNCTION

  explicit SLibrary(const std::string& path) {
    Module module = OpenModule(path);
#define ZELK_FUNCTION(name)                                              \
  name = FindFunction<decltype(name)>(module, "ZELK_" #name);            \
  if ((name) == nullptr) {                                               \
    throw std::runtime_error("the library does not export ZELK_" #name); \
  }
    ZELK_LIBRARY_FUNCTIONS(ZELK_FUNCTION)
#undef ZELK_FUNCTION
  }
};

// A record callback's work at its least: every byte is read, every block counted. A channel's count belongs to its
// card's pacer.
class CRecordCount {
 public:
  void Take(uint32_t channel, const uint8_t* data, uint32_t length) {
    uint64_t sum = 0;
    for (uint32_t at = 0; at + sizeof sum <= length; at += sizeof sum) {
      uint64_t word = 0;
      std::memcpy(&word, data + at, sizeof word);
      sum ^= word;
    }
    touched.store(sum, std::memory_order_relaxed);
    blocks[channel].store(blocks[channel].load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  }

  uint64_t Blocks() const {
    uint64_t sum = 0;
    for (const auto& each : blocks) {
      sum += each;
    }
    return sum;
  }

 private:
  std::array<std::atomic<uint64_t>, ZELK_MAX_CHANNELS> blocks{};
  std::atomic<uint64_t> touched{0};
};

}  // namespace load

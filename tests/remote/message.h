// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "support/library_functions.h"

namespace remote {

// What one side may ask of the other: a function of the library, one of its callbacks, or something of the host.
enum class EAsk : uint8_t {
#define ZELK_ASK(name) name,
  ZELK_LIBRARY_FUNCTIONS(ZELK_ASK)
#undef ZELK_ASK
      OnEvent,
  OnPlay,
  OnRecord,
  NewThread,   // of the host: connect once more, for another thread of the test
  Unload,      // of the host: let go of the library
  CpuSeconds,  // of the host: what its process has used so far
  PassRecord,  // of the host: a channel whose record callbacks are passed on, or kPassAll (at first), or kPassNone
};

constexpr int32_t kPassAll = -1;
constexpr int32_t kPassNone = -2;

// A request or its reply: values one after the other, taken out in the order they were put in.
// Integers and doubles are eight bytes; a piece of memory is its length and its bytes with a zero after them.
class CMessage {
 public:
  explicit CMessage(EAsk what = EAsk::Init, bool answers = false) : ask(what), isReply(answers) {}

  EAsk ask;
  bool isReply;
  std::vector<uint8_t> bytes;

  template <class T>
  void Put(T value) {
    static_assert(std::is_arithmetic_v<T>);
    const auto wide = static_cast<std::conditional_t<std::is_floating_point_v<T>, double, int64_t>>(value);
    Append(&wide, sizeof wide);
  }
  void Put(const char* text) { PutMemory(text, text == nullptr ? 0 : std::strlen(text)); }
  void PutMemory(const void* data, size_t length) {
    Put(data == nullptr ? int64_t{-1} : static_cast<int64_t>(length));
    if (data != nullptr) {
      Append(data, length);
      bytes.push_back(0);
    }
  }

  template <class T>
  T Get() {
    if constexpr (std::is_same_v<T, const char*> || std::is_same_v<T, const void*>) {
      return reinterpret_cast<T>(GetMemory().data);
    } else {
      std::conditional_t<std::is_floating_point_v<T>, double, int64_t> wide{};
      std::memcpy(&wide, Take(sizeof wide), sizeof wide);
      return static_cast<T>(wide);
    }
  }
  struct SMemory {
    const uint8_t* data;  // null for a null pointer; lives as long as the message
    size_t length;
  };
  SMemory GetMemory() {
    const auto length = Get<int64_t>();
    return length < 0 ? SMemory{nullptr, 0}
                      : SMemory{Take(static_cast<size_t>(length) + 1), static_cast<size_t>(length)};
  }

 private:
  void Append(const void* data, size_t length) {
    const auto* from = static_cast<const uint8_t*>(data);
    bytes.insert(bytes.end(), from, from + length);
  }
  const uint8_t* Take(size_t length) {
    if (bytes.size() - at < length) {
      throw std::runtime_error("a message between test and application host is too short");
    }
    at += length;
    return bytes.data() + at - length;
  }

  size_t at = 0;
};

}  // namespace remote

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/file.h"
#include "platform/riff.h"

namespace zelk {

// The walk of riff.h over a file, without help of the system: what CRiffFile is where the system has no such functions,
// and what the others are compared with. The same contract.
class CRiffWalk {
 public:
  bool Open(const char* path);
  bool IsOpen() const;
  bool DescendRiff(uint32_t formType, SRiffChunk& chunk);
  bool DescendChunk(uint32_t id, const SRiffChunk& parent, SRiffChunk& chunk);
  bool Ascend(const SRiffChunk& chunk);
  size_t Read(void* data, size_t length);
  uint64_t BytesLeft() const;
  bool Close();

 private:
  static constexpr size_t kBufferBytes = 16U << 10;

  size_t Peek(const uint8_t*& bytes, size_t wanted);
  bool ReadHeader(SRiffChunk& chunk);
  void PassZeros(uint64_t limit);
  template <class Match>
  bool Search(uint64_t limit, SRiffChunk& chunk, Match match);

  CReadFile file;
  uint64_t position = 0;
  // Headers come from here: a file of nothing but small chunks is not read with one system call each.
  std::array<uint8_t, kBufferBytes> buffer{};
  uint64_t bufferAt = 0;
  size_t buffered = 0;
};

}  // namespace zelk

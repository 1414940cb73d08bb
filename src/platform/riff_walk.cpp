// SPDX-License-Identifier: GPL-2.0-only

// A RIFF file, as the walk sees it (offsets grow downward, sizes little-endian):
//
//   "RIFF" size formType        <- DescendRiff enters: position after the form type
//     "fmt " size data [pad]    <- DescendChunk enters: position after the size
//     "LIST" size listType ...  <- passed over whole when it is not what is searched
//     "data" size data [pad]    <- Ascend leaves: position after the padding
//
#include "platform/riff_walk.h"

#include <algorithm>
#include <cstring>

#include "platform/bytes.h"

namespace zelk {

namespace {

constexpr uint32_t kRiff = FourCc("RIFF");
constexpr uint32_t kList = FourCc("LIST");
constexpr size_t kHeaderBytes = 8;
constexpr size_t kFormTypeBytes = 4;

bool IsZero(const uint8_t* header) {
  uint64_t value = 0;
  static_assert(sizeof value == kHeaderBytes);
  std::memcpy(&value, header, sizeof value);
  return value == 0;
}

// Chunks begin at even offsets: an odd size is followed by one byte that it does not count.
uint64_t EndOf(const SRiffChunk& chunk) {
  return uint64_t{chunk.dataOffset} + chunk.size + (chunk.size & 1U);
}

}  // namespace

// What the buffer holds from the position on, filled up first when that is fewer than wanted. Fewer at the file's end.
size_t CRiffWalk::Peek(const uint8_t*& bytes, size_t wanted) {
  if (position < bufferAt || position + wanted > bufferAt + buffered) {
    bufferAt = position;
    buffered = file.ReadAt(position, buffer.data(), buffer.size());
  }
  const auto offset = static_cast<size_t>(position - bufferAt);
  bytes = buffer.data() + offset;
  return buffered - offset;
}

// Reads the header at the position and moves past it; false at the end of the file.
bool CRiffWalk::ReadHeader(SRiffChunk& chunk) {
  const uint8_t* bytes = nullptr;
  const size_t got = Peek(bytes, kHeaderBytes + kFormTypeBytes);
  if (got < kHeaderBytes || position + kHeaderBytes > UINT32_MAX) {
    return false;
  }
  chunk.id = ReadLittle32(&bytes[0]);
  chunk.size = ReadLittle32(&bytes[4]);
  chunk.formType = 0;
  chunk.dataOffset = static_cast<uint32_t>(position + kHeaderBytes);
  position += kHeaderBytes;
  if (chunk.id == kRiff || chunk.id == kList) {
    if (got < kHeaderBytes + kFormTypeBytes) {
      return false;
    }
    chunk.formType = ReadLittle32(&bytes[8]);
    position += kFormTypeBytes;
  }
  return true;
}

// Moves past the headers of nothing but zeros at the position, which files that were cut or never filled have by the
// million. Each is a chunk without a name and without content.
void CRiffWalk::PassZeros(uint64_t limit) {
  const uint64_t end = std::min<uint64_t>(limit, UINT32_MAX);
  while (position < end) {
    const uint8_t* bytes = nullptr;
    const size_t headers = Peek(bytes, kHeaderBytes) / kHeaderBytes;
    size_t zeros = 0;
    while (zeros < headers && IsZero(bytes + zeros * kHeaderBytes)) {
      ++zeros;
    }
    position += zeros * kHeaderBytes;
    if (headers == 0 || zeros < headers) {
      return;
    }
    position += (file.BehindHole(position) - position) / kHeaderBytes * kHeaderBytes;
  }
}

// Every turn moves on by a header at least, so the walk ends with the file.
template <class Match>
bool CRiffWalk::Search(uint64_t limit, SRiffChunk& chunk, Match match) {
  while (position < limit) {
    SRiffChunk found;
    if (!ReadHeader(found)) {
      return false;
    }
    if (match(found)) {
      chunk = found;
      return true;
    }
    position = EndOf(found);
    if (found.id == 0 && found.size == 0) {
      PassZeros(limit);
    }
  }
  return false;
}

bool CRiffWalk::Open(const char* path) {
  position = 0;
  buffered = 0;
  return file.Open(path);
}

bool CRiffWalk::IsOpen() const {
  return file.IsOpen();
}

bool CRiffWalk::DescendRiff(uint32_t formType, SRiffChunk& chunk) {
  return Search(UINT64_MAX, chunk,
                [=](const SRiffChunk& found) { return found.id == kRiff && found.formType == formType; });
}

bool CRiffWalk::DescendChunk(uint32_t id, const SRiffChunk& parent, SRiffChunk& chunk) {
  return Search(uint64_t{parent.dataOffset} + parent.size, chunk,
                [=](const SRiffChunk& found) { return found.id == id; });
}

bool CRiffWalk::Ascend(const SRiffChunk& chunk) {
  if (!IsOpen()) {
    return false;
  }
  position = EndOf(chunk);
  return true;
}

size_t CRiffWalk::Read(void* data, size_t length) {
  const size_t got = file.ReadAt(position, data, length);
  position += got;
  return got;
}

uint64_t CRiffWalk::BytesLeft() const {
  const uint64_t size = file.Size();
  return size > position ? size - position : 0;
}

bool CRiffWalk::Close() {
  return file.Close();
}

}  // namespace zelk

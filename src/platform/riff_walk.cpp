// A RIFF file, as the walk sees it (offsets grow downward, sizes little-endian):
//
//   "RIFF" size formType        <- DescendRiff enters: position behind the form type
//     "fmt " size data [pad]    <- DescendChunk enters: position behind the size
//     "LIST" size listType ...  <- passed over whole when it is not what is searched
//     "data" size data [pad]    <- Ascend leaves: position behind the padding
//
#include "platform/riff_walk.h"

#include <algorithm>
#include <array>

namespace zelk {

namespace {

constexpr uint32_t kRiff = FourCc("RIFF");
constexpr uint32_t kList = FourCc("LIST");
constexpr uint64_t kHeaderBytes = 8;
constexpr uint64_t kFormTypeBytes = 4;

uint32_t LittleEndian32(const uint8_t* bytes) {
  return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
         static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

// Chunks begin at even offsets: an odd size is followed by one byte that it does not count.
uint64_t EndOf(const SRiffChunk& chunk) {
  return uint64_t{chunk.dataOffset} + chunk.size + (chunk.size & 1U);
}

}  // namespace

// Reads the header at the position and moves behind it; false at the end of the file.
bool CRiffWalk::ReadHeader(SRiffChunk& chunk) {
  std::array<uint8_t, kHeaderBytes + kFormTypeBytes> bytes{};
  const size_t got = file.ReadAt(position, bytes.data(), bytes.size());
  if (got < kHeaderBytes || position + kHeaderBytes > UINT32_MAX) {
    return false;
  }
  chunk.id = LittleEndian32(&bytes[0]);
  chunk.size = LittleEndian32(&bytes[4]);
  chunk.formType = 0;
  chunk.dataOffset = static_cast<uint32_t>(position + kHeaderBytes);
  position += kHeaderBytes;
  if (chunk.id == kRiff || chunk.id == kList) {
    if (got < bytes.size()) {
      return false;
    }
    chunk.formType = LittleEndian32(&bytes[8]);
    position += kFormTypeBytes;
  }
  return true;
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
  }
  return false;
}

bool CRiffWalk::Open(const char* path) {
  position = 0;
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

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace zelk {

constexpr uint32_t FourCc(const char (&name)[5]) {
  return static_cast<uint32_t>(static_cast<uint8_t>(name[0])) |
         static_cast<uint32_t>(static_cast<uint8_t>(name[1])) << 8 |
         static_cast<uint32_t>(static_cast<uint8_t>(name[2])) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(name[3])) << 24;
}

struct SRiffChunk {
  uint32_t id = 0;
  uint32_t size = 0;        // as the file claims it
  uint32_t formType = 0;    // of RIFF and LIST chunks
  uint32_t dataOffset = 0;  // of the first byte after the size field (the form type counts as data)
};

// Walks the chunks of a RIFF file as the Windows multimedia file functions do (odd sizes padded, search inside the
// parent, claimed sizes beyond the file's end accepted by the search and found short by the read).
// Thread: one at a time. Nothing is allocated by a size that the file only claims.
class CRiffFile {
 public:
  CRiffFile();
  ~CRiffFile();  // Closes.
  CRiffFile(const CRiffFile&) = delete;
  CRiffFile& operator=(const CRiffFile&) = delete;

  bool Open(const char* path);
  bool IsOpen() const;
  // Finds the next RIFF chunk of this form type from the current position and enters it.
  bool DescendRiff(uint32_t formType, SRiffChunk& chunk);
  // Finds the next chunk of this id inside the parent from the current position and enters it.
  bool DescendChunk(uint32_t id, const SRiffChunk& parent, SRiffChunk& chunk);
  // Moves past a chunk that was entered.
  bool Ascend(const SRiffChunk& chunk);
  // Bytes read at the current position, fewer than asked at the end of the file.
  size_t Read(void* data, size_t length);
  // Bytes between the current position and the end of the file.
  uint64_t BytesLeft() const;
  bool Close();

 private:
  struct SState;
  std::unique_ptr<SState> state;
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "formats/wave_format.h"
#include "platform/riff.h"

namespace zelk {

// Reads a WAV file: finds the format record and the sample data after it. Sizes in the file are claims: nothing is
// allocated by one that the file does not hold.
// Thread: one at a time; blocks on the disk. Owns the file and the copy of the format record. Failures return false and
// leave an error text; the file may still be open then, until Release or the destructor.
class CWaveFile {
 public:
  CWaveFile() = default;
  virtual ~CWaveFile();
  CWaveFile(const CWaveFile&) = delete;
  CWaveFile& operator=(const CWaveFile&) = delete;

  // Opens the file and moves to the first sample byte.
  bool Load(const char* path);
  // Reads all sample bytes, once, after a Load. Null (and outOfMemory) when there is no memory, null (and an error
  // text) when the file holds fewer than it claims.
  std::unique_ptr<uint8_t[]> ReadSamples(bool& outOfMemory);
  // Frees the format record and closes the file; the result is the close's.
  bool Release();

  // The record as the file has it, what a short one lacks read as 0.
  SWaveFormat Format() const;
  uint32_t DataSize() const { return dataSize; }
  uint32_t SavedByte() const { return savedByte; }  // what stood in byte 11 of the record
  const std::string& ErrorText() const { return errorText; }
  bool IsOpen() const { return file.IsOpen(); }

 private:
  bool Fail(const char* text, const char* path);
  bool LoadFormat(const char* path);
  void TakeAverageBytesTop();

  std::string errorText;
  CRiffFile file;
  SRiffChunk riff;
  SRiffChunk current;
  uint32_t dataSize = 0;
  std::unique_ptr<uint8_t[]> format;
  uint32_t formatSize = 0;
  uint32_t savedByte = 0;
};

}  // namespace zelk

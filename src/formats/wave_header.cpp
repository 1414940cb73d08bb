// SPDX-License-Identifier: GPL-2.0-only
#include "formats/wave_header.h"

#include <cstring>
#include <new>

#include "platform/bytes.h"
#include "platform/file.h"

namespace zelk {
namespace {

constexpr size_t kDataChunkOffset = 36;  // where the second of the two writes begins
constexpr uint32_t kPcmRecordBytes = 16;

uint32_t WriteHeader(const char* path, uint32_t type) {
  CUpdateFile file;
  if (!path || !file.OpenExisting(path)) {
    return kErrorFileOpen;
  }
  const SSampleFormat* const format = SampleFormatNumbered(type);
  if (!format) {
    return kErrorBadFormat;
  }
  const WaveHeader header = MakeWaveHeader(file.Size32(), *format);
  if (!file.Write(header.data(), kDataChunkOffset) ||
      !file.Write(&header[kDataChunkOffset], kWaveHeaderBytes - kDataChunkOffset)) {
    return kErrorFileWrite;
  }
  if (!file.Close()) {
    file.Close();
    return kErrorFileClose;
  }
  return kErrorNone;
}

}  // namespace

WaveHeader MakeWaveHeader(uint32_t fileSize, const SSampleFormat& format) {
  WaveHeader header{};
  std::memcpy(&header[0], "RIFF", 4);
  WriteLittle32(&header[4], fileSize - 8);
  std::memcpy(&header[8], "WAVEfmt ", 8);
  WriteLittle32(&header[16], kPcmRecordBytes);
  WriteLittle16(&header[20], format.tag);
  WriteLittle16(&header[22], 1);
  WriteLittle32(&header[24], kSampleRate);
  WriteLittle32(&header[28], kSampleRate);
  WriteLittle16(&header[32], 1);
  WriteLittle16(&header[34], 8);
  std::memcpy(&header[kDataChunkOffset], "data", 4);
  WriteLittle32(&header[40], fileSize - uint32_t{kWaveHeaderBytes});
  return header;
}

uint32_t ConvertRawToWaveFile(const char* path, uint32_t type) {
  try {
    return WriteHeader(path, type);
  } catch (const std::bad_alloc&) {
    return kErrorFileOpen;
  }
}

}  // namespace zelk

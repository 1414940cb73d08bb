// SPDX-License-Identifier: GPL-2.0-only
#include "formats/wave_file.h"

#include <algorithm>
#include <new>

#include "platform/bytes.h"

// What Load walks through:
//
//   "RIFF" size "WAVE"            entered
//     "fmt " size record          copied and left; before it, other chunks are passed over
//     "data" size samples         entered: the position is at the first sample
//
// The record, little-endian: tag u16, channels u16, samples per second u32, average bytes per second u32 (byte 11 is
// its top), block align u16, bits per sample u16.

namespace zelk {
namespace {

constexpr size_t kRecordBytes = 18;
constexpr size_t kAverageBytesTop = 11;

}  // namespace

CWaveFile::~CWaveFile() {
  Release();
}

bool CWaveFile::Release() {
  format.reset();
  return file.Close();
}

bool CWaveFile::Fail(const char* text, const char* path) {
  errorText = text;
  if (path) {
    errorText += path;
  }
  return false;
}

bool CWaveFile::Load(const char* path) {
  const char* const name = path ? path : "";
  Release();
  errorText.clear();
  if (!path || !file.Open(path)) {
    return Fail("CWaveFile::Load() -> Unable to open ", name);
  }
  if (!file.DescendRiff(FourCc("WAVE"), riff)) {
    Release();
    return Fail("CWaveFile::Load() -> Invalid RIFF Header ", name);
  }
  if (!LoadFormat(name)) {
    return false;
  }
  file.Ascend(current);
  current = SRiffChunk{};
  if (!file.DescendChunk(FourCc("data"), riff, current)) {
    return Fail("CWaveFile::Load() -> Unable to descend into data chunk.", nullptr);
  }
  dataSize = current.size;
  return true;
}

bool CWaveFile::LoadFormat(const char* path) {
  if (!file.DescendChunk(FourCc("fmt "), riff, current)) {
    Release();
    return Fail("CWaveFile::Load() -> Invalid fmt Header ", path);
  }
  formatSize = current.size;
  const bool claimsTooMuch = formatSize > file.BytesLeft();
  if (!claimsTooMuch) {
    // Always room for the whole record: a short chunk reads as one filled up with zeros.
    format.reset(new (std::nothrow) uint8_t[std::max<size_t>(formatSize, kRecordBytes)]());
    if (!format) {
      Release();
      return Fail("CWaveFile::Load() -> Insufficient memory for wave header", nullptr);
    }
  }
  if (claimsTooMuch || file.Read(format.get(), formatSize) < formatSize) {
    return Fail("CWaveFile::Load() -> Unable to read fmt chunk.", nullptr);
  }
  TakeAverageBytesTop();
  return true;
}

// No rate of telephone audio reaches the top byte of the average bytes per second: what stands there is set aside.
void CWaveFile::TakeAverageBytesTop() {
  savedByte = format[kAverageBytesTop];
  if (savedByte != 0) {
    format[kAverageBytesTop] = 0;
  }
}

std::unique_ptr<uint8_t[]> CWaveFile::ReadSamples(bool& outOfMemory) {
  std::unique_ptr<uint8_t[]> samples;
  outOfMemory = false;
  const bool claimsTooMuch = dataSize > file.BytesLeft();
  if (!claimsTooMuch) {
    samples.reset(new (std::nothrow) uint8_t[dataSize]);
    if (!samples) {
      outOfMemory = true;
      return nullptr;
    }
  }
  if (claimsTooMuch || file.Read(samples.get(), dataSize) < dataSize) {
    Fail("CWaveFile::Load() -> Unable to read data chunk.", nullptr);
    return nullptr;
  }
  return samples;
}

SWaveFormat CWaveFile::Format() const {
  SWaveFormat record{0, 0, 0, 0, 0, 0, 0};
  if (const uint8_t* const bytes = format.get()) {
    record.formatTag = ReadLittle16(bytes);
    record.channels = ReadLittle16(bytes + 2);
    record.samplesPerSecond = ReadLittle32(bytes + 4);
    record.averageBytesPerSecond = ReadLittle32(bytes + 8);
    record.blockAlign = ReadLittle16(bytes + 12);
    record.bitsPerSample = ReadLittle16(bytes + 14);
    record.extraSize = ReadLittle16(bytes + 16);
  }
  return record;
}

}  // namespace zelk

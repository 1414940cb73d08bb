// SPDX-License-Identifier: GPL-2.0-only
#include "playback/file_player.h"

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "formats/sample_format.h"
#include "formats/wave_file.h"

namespace zelk {
namespace {

// The format of a record that can be played; null for any other.
const SSampleFormat* PlayableFormat(const SWaveFormat& record) {
  const SSampleFormat* const format = SampleFormatOf(record);
  const bool isLine = record.channels == 1 && record.samplesPerSecond == kSampleRate;
  return format && isLine && record.bitsPerSample == format->bits ? format : nullptr;
}

// The file's samples in the queue's format; null with a code.
SampleBuffer LoadConverted(const char* target, const char* path, uint32_t& size, uint32_t& error) {
  CWaveFile file;
  if (!file.Load(path)) {
    error = kErrorFileOpen;
    return nullptr;
  }
  bool outOfMemory = false;
  SampleBuffer samples = file.ReadSamples(outOfMemory);
  if (!samples) {
    error = outOfMemory ? kErrorNoMemory : kErrorFileRead;
    return nullptr;
  }
  const SSampleFormat* const source = PlayableFormat(file.Format());
  if (!source) {
    error = kErrorBadFormat;
    return nullptr;
  }
  samples = ConvertSamples(target, source->name, std::move(samples), file.DataSize());
  size = ConvertedSize(target, source->name, file.DataSize());
  error = samples ? kErrorNone : kErrorConversion;
  return samples;
}

bool QueueCopy(CWave& wave, const uint8_t* data, uint32_t length, uint32_t blockError, uint32_t& error) {
  std::unique_ptr<CWaveBlock> block = wave.NewBlock(length);
  if (!block) {
    error = blockError;
    return false;
  }
  if (length > 0) {
    std::memcpy(block->Data(), data, length);
  }
  if (!wave.Enqueue(std::move(block))) {
    error = kErrorNoMemory;
    return false;
  }
  return true;
}

}  // namespace

bool PlayBuffer(CWave& wave, const uint8_t* data, uint32_t length, uint32_t& error) {
  error = kErrorNone;
  if (!data && length > 0) {
    return false;
  }
  return QueueCopy(wave, data, length, kErrorNoMemory, error);
}

bool PlayFile(CWave& wave, const char* path, uint32_t& error) {
  error = kErrorNone;
  try {
    uint32_t size = 0;
    const SampleBuffer samples = LoadConverted(wave.FormatName(), path, size, error);
    // A block that cannot be made is logged and leaves no code.
    return samples && QueueCopy(wave, samples.get(), size, kErrorNone, error);
  } catch (const std::bad_alloc&) {
    error = kErrorNoMemory;  // for a path or an error text
    return false;
  }
}

}  // namespace zelk

#include "playback/file_player.h"

#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "formats/sample_format.h"
#include "formats/wave_file.h"
#include "platform/file.h"

namespace zelk {
namespace {

constexpr uint32_t kTypeMuLaw = 1;
constexpr uint32_t kTypeALaw = 2;
constexpr uint16_t kTagPcm = 1;
constexpr uint16_t kTagALaw = 6;
constexpr uint16_t kTagMuLaw = 7;
constexpr uint32_t kLineRate = 8000;
constexpr size_t kHeaderBytes = 44;
constexpr size_t kDataChunkOffset = 36;  // where the second of the two writes begins

using Header = std::array<uint8_t, kHeaderBytes>;

// The sample format that a record names; null for what cannot be played.
const char* PlayableFormat(const SWaveFormat& format) {
  if (format.channels != 1 || format.samplesPerSecond != kLineRate) {
    return nullptr;
  }
  if (format.formatTag == kTagPcm && format.bitsPerSample == 16) {
    return "PCM16";
  }
  if (format.bitsPerSample != 8) {
    return nullptr;
  }
  switch (format.formatTag) {
    case kTagPcm:
      return "PCM8";
    case kTagALaw:
      return "ALAW";
    case kTagMuLaw:
      return "MULAW";
    default:
      return nullptr;
  }
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
  const char* const source = PlayableFormat(file.Format());
  if (!source) {
    error = kErrorBadFormat;
    return nullptr;
  }
  samples = ConvertSamples(target, source, std::move(samples), file.DataSize());
  size = ConvertedSize(target, source, file.DataSize());
  error = samples ? kErrorNone : kErrorConversion;
  return samples;
}

bool QueueCopy(CWave& wave, const void* data, uint32_t length, uint32_t blockError, uint32_t& error) {
  std::unique_ptr<CWaveBlock> block = wave.NewBlock(length);
  if (!block) {
    error = blockError;
    return false;
  }
  if (length > 0) {
    std::memcpy(block->data.get(), data, length);
  }
  if (!wave.Enqueue(std::move(block))) {
    error = kErrorNoMemory;
    return false;
  }
  return true;
}

void PutText(Header& header, size_t offset, const char* text) {
  std::memcpy(&header[offset], text, 4);
}

void PutNumber(Header& header, size_t offset, size_t bytes, uint32_t value) {
  for (size_t i = 0; i < bytes; ++i) {
    header[offset + i] = static_cast<uint8_t>(value >> (8 * i));
  }
}

// Offsets as in any WAV file with a 16-byte format record. Sizes wrap for a file shorter than the header.
Header MakeHeader(uint32_t fileSize, uint16_t tag) {
  Header header{};
  PutText(header, 0, "RIFF");
  PutNumber(header, 4, 4, fileSize - 8);
  PutText(header, 8, "WAVE");
  PutText(header, 12, "fmt ");
  PutNumber(header, 16, 4, 16);
  PutNumber(header, 20, 2, tag);
  PutNumber(header, 22, 2, 1);
  PutNumber(header, 24, 4, kLineRate);
  PutNumber(header, 28, 4, kLineRate);
  PutNumber(header, 32, 2, 1);
  PutNumber(header, 34, 2, 8);
  PutText(header, kDataChunkOffset, "data");
  PutNumber(header, 40, 4, fileSize - 44);
  return header;
}

uint32_t WriteHeader(const char* path, uint32_t type) {
  CUpdateFile file;
  if (!path || !file.OpenExisting(path)) {
    return kErrorFileOpen;
  }
  if (type != kTypeMuLaw && type != kTypeALaw) {
    return kErrorBadFormat;
  }
  const Header header = MakeHeader(file.Size32(), type == kTypeMuLaw ? kTagMuLaw : kTagALaw);
  if (!file.Write(header.data(), kDataChunkOffset) ||
      !file.Write(&header[kDataChunkOffset], kHeaderBytes - kDataChunkOffset)) {
    return kErrorFileWrite;
  }
  if (!file.Close()) {
    file.Close();
    return kErrorFileClose;
  }
  return kErrorNone;
}

}  // namespace

bool PlayBuffer(CWave& wave, const void* data, uint32_t length, uint32_t& error) {
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

uint32_t ConvertRawToWaveFile(const char* path, uint32_t type) {
  try {
    return WriteHeader(path, type);
  } catch (const std::bad_alloc&) {
    return kErrorFileOpen;
  }
}

}  // namespace zelk

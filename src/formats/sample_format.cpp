#include "formats/sample_format.h"

#include <array>
#include <cstddef>
#include <limits>
#include <new>
#include <utility>

#include "formats/g711.h"

namespace zelk {
namespace {

enum class EFormat : uint8_t { kPcm16, kPcm8, kALaw, kMuLaw };

struct SFormat {
  const char* name;
  EFormat format;
  uint32_t bytesPerSample;
};

constexpr std::array<SFormat, 4> kFormats = {{{"PCM16", EFormat::kPcm16, 2},
                                              {"PCM8", EFormat::kPcm8, 1},
                                              {"ALAW", EFormat::kALaw, 1},
                                              {"MULAW", EFormat::kMuLaw, 1}}};

char Upper(char letter) {
  return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

bool SameName(const char* left, const char* right) {
  for (; Upper(*left) == Upper(*right); ++left, ++right) {
    if (*left == 0) {
      return true;
    }
  }
  return false;
}

const SFormat* Find(const char* name) {
  for (const SFormat& format : kFormats) {
    if (name && SameName(name, format.name)) {
      return &format;
    }
  }
  return nullptr;
}

constexpr uint64_t kMaxSize = std::numeric_limits<uint32_t>::max();

uint64_t SizeAs(const SFormat& target, const SFormat& source, uint32_t length) {
  return uint64_t{length} * target.bytesPerSample / source.bytesPerSample;
}

SampleBuffer NewSamples(size_t bytes) {
  return SampleBuffer(new (std::nothrow) uint8_t[bytes]);
}

int16_t ExpandPcm8(uint8_t byte) {
  return static_cast<int16_t>((byte - 128) * 256);
}

// The quotient is cut toward zero, so 128 covers -255 to 255.
uint8_t CompressPcm8(int16_t sample) {
  return static_cast<uint8_t>(sample / 256 + 128);
}

// 8-bit codes to 16-bit samples, low byte first. Null without memory.
template <int16_t (*Expand)(uint8_t)>
SampleBuffer ExpandAll(const uint8_t* input, size_t count) {
  SampleBuffer output = NewSamples(count * 2);
  for (size_t i = 0; output && i < count; ++i) {
    const auto sample = static_cast<uint16_t>(Expand(input[i]));
    output[2 * i] = static_cast<uint8_t>(sample);
    output[2 * i + 1] = static_cast<uint8_t>(sample >> 8);
  }
  return output;
}

template <uint8_t (*Compress)(int16_t)>
SampleBuffer CompressAll(const uint8_t* input, size_t count) {
  SampleBuffer output = NewSamples(count);
  for (size_t i = 0; output && i < count; ++i) {
    output[i] = Compress(static_cast<int16_t>(input[2 * i] | input[2 * i + 1] << 8));
  }
  return output;
}

SampleBuffer ToPcm16(EFormat source, SampleBuffer buffer, size_t count) {
  switch (source) {
    case EFormat::kPcm8:
      return ExpandAll<ExpandPcm8>(buffer.get(), count);
    case EFormat::kALaw:
      return ExpandAll<ALawToLinear>(buffer.get(), count);
    case EFormat::kMuLaw:
      return ExpandAll<MuLawToLinear>(buffer.get(), count);
    case EFormat::kPcm16:
      break;
  }
  return buffer;
}

SampleBuffer FromPcm16(EFormat target, SampleBuffer buffer, size_t count) {
  switch (target) {
    case EFormat::kPcm8:
      return CompressAll<CompressPcm8>(buffer.get(), count);
    case EFormat::kALaw:
      return CompressAll<LinearToALaw>(buffer.get(), count);
    case EFormat::kMuLaw:
      return CompressAll<LinearToMuLaw>(buffer.get(), count);
    case EFormat::kPcm16:
      break;
  }
  return buffer;
}

}  // namespace

// Every road between two formats leads over 16-bit samples.
SampleBuffer ConvertSamples(const char* targetName, const char* sourceName, SampleBuffer buffer, uint32_t length) {
  const SFormat* const target = Find(targetName);
  const SFormat* const source = Find(sourceName);
  if (!target || !source || !buffer) {
    return nullptr;
  }
  if (target == source) {
    return buffer;
  }
  if (SizeAs(*target, *source, length) > kMaxSize) {
    return nullptr;
  }
  const size_t count = length / source->bytesPerSample;
  SampleBuffer linear = ToPcm16(source->format, std::move(buffer), count);
  return linear ? FromPcm16(target->format, std::move(linear), count) : nullptr;
}

uint32_t ConvertedSize(const char* targetName, const char* sourceName, uint32_t length) {
  const SFormat* const target = Find(targetName);
  const SFormat* const source = Find(sourceName);
  if (!target || !source) {
    return 0;
  }
  const uint64_t size = SizeAs(*target, *source, length);
  return size <= kMaxSize ? static_cast<uint32_t>(size) : 0;
}

}  // namespace zelk

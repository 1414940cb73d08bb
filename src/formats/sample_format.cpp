// SPDX-License-Identifier: GPL-2.0-only
#include "formats/sample_format.h"

#include <cstddef>
#include <limits>
#include <new>
#include <utility>

#include "formats/g711.h"
#include "formats/wave_format.h"
#include "platform/bytes.h"

namespace zelk {
namespace {

constexpr uint64_t kMaxSize = std::numeric_limits<uint32_t>::max();

uint64_t SizeAs(const SSampleFormat& target, const SSampleFormat& source, uint32_t length) {
  return uint64_t{length} * target.bits / source.bits;
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
    WriteLittle16(&output[2 * i], sample);
  }
  return output;
}

template <uint8_t (*Compress)(int16_t)>
SampleBuffer CompressAll(const uint8_t* input, size_t count) {
  SampleBuffer output = NewSamples(count);
  for (size_t i = 0; output && i < count; ++i) {
    output[i] = Compress(static_cast<int16_t>(ReadLittle16(input + 2 * i)));
  }
  return output;
}

SampleBuffer ToPcm16(ESampleFormat source, SampleBuffer buffer, size_t count) {
  switch (source) {
    case ESampleFormat::kPcm8:
      return ExpandAll<ExpandPcm8>(buffer.get(), count);
    case ESampleFormat::kALaw:
      return ExpandAll<ALawToLinear>(buffer.get(), count);
    case ESampleFormat::kMuLaw:
      return ExpandAll<MuLawToLinear>(buffer.get(), count);
    case ESampleFormat::kPcm16:
      break;
  }
  return buffer;
}

SampleBuffer FromPcm16(ESampleFormat target, SampleBuffer buffer, size_t count) {
  switch (target) {
    case ESampleFormat::kPcm8:
      return CompressAll<CompressPcm8>(buffer.get(), count);
    case ESampleFormat::kALaw:
      return CompressAll<LinearToALaw>(buffer.get(), count);
    case ESampleFormat::kMuLaw:
      return CompressAll<LinearToMuLaw>(buffer.get(), count);
    case ESampleFormat::kPcm16:
      break;
  }
  return buffer;
}

}  // namespace

// Every way between two formats leads through 16-bit samples.
SampleBuffer ConvertSamples(const char* targetName, const char* sourceName, SampleBuffer buffer, uint32_t length) {
  const SSampleFormat* const target = SampleFormatNamed(targetName);
  const SSampleFormat* const source = SampleFormatNamed(sourceName);
  if (!target || !source || !buffer) {
    return nullptr;
  }
  if (target == source) {
    return buffer;
  }
  if (SizeAs(*target, *source, length) > kMaxSize) {
    return nullptr;
  }
  const size_t count = length / (source->bits / 8);
  SampleBuffer linear = ToPcm16(source->format, std::move(buffer), count);
  return linear ? FromPcm16(target->format, std::move(linear), count) : nullptr;
}

uint32_t ConvertedSize(const char* targetName, const char* sourceName, uint32_t length) {
  const SSampleFormat* const target = SampleFormatNamed(targetName);
  const SSampleFormat* const source = SampleFormatNamed(sourceName);
  if (!target || !source) {
    return 0;
  }
  const uint64_t size = SizeAs(*target, *source, length);
  return size <= kMaxSize ? static_cast<uint32_t>(size) : 0;
}

}  // namespace zelk

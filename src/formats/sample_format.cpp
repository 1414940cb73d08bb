// SPDX-License-Identifier: GPL-2.0-only
#include "formats/sample_format.h"

#include <cstddef>
#include <limits>
#include <new>
#include <utility>

#include "formats/block_codec.h"
#include "formats/wave_format.h"

namespace zelk {
namespace {

constexpr uint64_t kMaxSize = std::numeric_limits<uint32_t>::max();

uint64_t SizeAs(const SSampleFormat& target, const SSampleFormat& source, uint32_t length) {
  return uint64_t{length} * target.bits / source.bits;
}

SampleBuffer NewSamples(size_t bytes) {
  return SampleBuffer(new (std::nothrow) uint8_t[bytes]);
}

// The output of one step, count samples of the given width each. Null without memory.
template <class Step>
SampleBuffer Convert(Step step, const SampleBuffer& input, size_t count, size_t width) {
  SampleBuffer output = NewSamples(count * width);
  if (output)
    step(input.get(), count, output.get());
  return output;
}

SampleBuffer ToPcm16(ESampleFormat source, SampleBuffer buffer, size_t count) {
  const SBlockCodec* const codec = BlockCodecs().Of(source);
  return codec ? Convert(codec->expand, buffer, count, 2) : std::move(buffer);
}

SampleBuffer FromPcm16(ESampleFormat target, SampleBuffer buffer, size_t count) {
  const SBlockCodec* const codec = BlockCodecs().Of(target);
  return codec ? Convert(codec->compress, buffer, count, 1) : std::move(buffer);
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

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <memory>

namespace zelk {

using SampleBuffer = std::unique_ptr<uint8_t[]>;

// Converts between the formats "PCM16", "PCM8", "ALAW" and "MULAW" (any letter case) at 8000 Hz mono. Takes the buffer:
// gives it back untouched when the formats are the same, a new one otherwise, null (buffer released) for an unknown
// name, a result above 4 GB or when there is no memory. length in bytes. Thread: any.
SampleBuffer ConvertSamples(const char* targetName, const char* sourceName, SampleBuffer buffer, uint32_t length);

// The bytes that ConvertSamples yields; 0 for an unknown name or a size that 32 bits do not hold.
uint32_t ConvertedSize(const char* targetName, const char* sourceName, uint32_t length);

}  // namespace zelk

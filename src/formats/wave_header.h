// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "formats/media_error.h"
#include "formats/wave_format.h"

namespace zelk {

constexpr size_t kWaveHeaderBytes = 44;

using WaveHeader = std::array<uint8_t, kWaveHeaderBytes>;

// The header of a file of this many bytes, the header's own among them; format is one of 8 bits a sample. Sizes wrap
// for a file shorter than the header:
//
//   0      4         8      12     16  20  22        24    28     32     34    36     40
//   "RIFF" size - 8  "WAVE" "fmt " 16  tag channels  rate  bytes  align  bits  "data" size - 44
WaveHeader MakeWaveHeader(uint32_t fileSize, const SSampleFormat& format);

// Makes a raw recording, whose first 44 bytes were left free, a WAV file by writing the header over them. type: a
// format's public number. Blocks on the disk. Returns an EMediaError: none, file open (also without memory), bad format
// (unknown type; the file is as it was), file write or file close. Thread: application.
uint32_t ConvertRawToWaveFile(const char* path, uint32_t type);

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "cardsim/base/bytes.h"

namespace cardsim {

// Reads a mono 8 kHz WAV file as A-law. Codes of an A-law file come as they are, bit exact; other formats are taken as
// 16-bit samples and encoded. Throws std::runtime_error, with the file's name, for anything else.
Bytes ReadWav(const std::string& path);
// Writes the codes as an A-law WAV file, mono, 8 kHz. Throws std::runtime_error, with the file's name, on failure.
void WriteWav(const std::string& path, ByteView samples);

}  // namespace cardsim

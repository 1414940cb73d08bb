// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "formats/media_error.h"
#include "playback/wave.h"

namespace zelk {

// Queues a copy of the bytes, already in the queue's format. error becomes the channel's last error (0 or 2).
bool PlayBuffer(CWave& wave, const uint8_t* data, uint32_t length, uint32_t& error);

// Loads a WAV file, converts it to the queue's format and queues it as one block. error becomes the channel's last
// error, an EMediaError. Blocks on the disk. Thread: application.
bool PlayFile(CWave& wave, const char* path, uint32_t& error);

}  // namespace zelk

#pragma once

#include <cstdint>

#include "playback/wave.h"

namespace zelk {

// Last-error and file result codes, one numbering (the public header states the same values under its own names).
enum EMediaError : uint32_t {
  kErrorNone = 0,
  kErrorBadChannel = 1,
  kErrorNoMemory = 2,
  kErrorFileOpen = 3,
  kErrorFileRead = 4,
  kErrorFileWrite = 5,
  kErrorFileClose = 6,
  kErrorBadFormat = 7,
  kErrorConversion = 8,
};

// Queues a copy of the bytes, already in the queue's format. error becomes the channel's last error (0 or 2).
bool PlayBuffer(CWave& wave, const void* data, uint32_t length, uint32_t& error);

// Loads a WAV file, converts it to the queue's format and queues it as one block. error becomes the channel's last
// error. Blocks on the disk. Thread: application.
bool PlayFile(CWave& wave, const char* path, uint32_t& error);

// Writes a WAV header over the first 44 bytes of a raw recording. type: 1 mu-law, 2 A-law. Returns a code above.
uint32_t ConvertRawToWaveFile(const char* path, uint32_t type);

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "phone/block_sink.h"

namespace phone {

// Records one channel's received A-law into a WAV file: the callback only copies, the disk is written by Flush.
// Thread: Append the library's pacer; everything else main. Failures throw CPhoneError.
class CRecorder : public IBlockSink {
 public:
  // Creates the file (with room for the WAV header) and starts to take this channel's blocks.
  void Start(int32_t channel, const std::string& path);
  // Also meters a channel that is not recorded to a file.
  void Watch(int32_t channel);
  void Append(uint32_t channel, const uint8_t* data, uint32_t length) override;
  void Flush();
  // Writes what is left and turns the file into a WAV file. False when nothing was started.
  bool Finish();

  bool IsRecording() const { return file.is_open(); }
  const std::string& Path() const { return filePath; }

  uint64_t BytesRecorded();
  // Power of the last block in dBm0 (a full-scale sine is +3.14 dBm0); -99 for digital silence.
  double LevelDbm0();

 private:
  std::mutex lock;
  int32_t watched = -1;          // guarded by lock
  bool recording = false;        // guarded by lock
  std::vector<uint8_t> pending;  // guarded by lock: received, not yet written
  std::vector<uint8_t> latest;   // guarded by lock: the last block
  uint64_t bytes = 0;            // guarded by lock
  std::ofstream file;            // main thread only
  std::string filePath;          // main thread only
};

}  // namespace phone

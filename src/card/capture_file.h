// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/clock.h"
#include "platform/file.h"

namespace zelk {

// One line of a capture, as text2pcap reads it with a direction and a time stamp first:
//
//   O 2013-05-09 14:03:07 0000 02 01 7F \r\n
//
// 29 characters and three for every byte. direction: 'O' sent, 'I' received.
std::string FormatCaptureLine(char direction, const SLocalTime& time, const uint8_t* bytes, size_t count);

// The path of a trunk's capture; directory ends in a separator already, and the name has two in a row.
std::string CapturePath(const std::string& directory, char separator, uint32_t serialNumber, uint32_t trunkNumber);

// The text capture of one trunk's D-channel frames. Writes to a capture that is not open do nothing; a failed open or
// write is not reported, because signalling goes on without the capture.
// Thread: any, under the trunk's lock.
class CCaptureFile {
 public:
  // Appends to the trunk's file beside the library. trunkNumber counts from 1.
  void Open(uint32_t serialNumber, uint32_t trunkNumber);
  // bytes: the frame without its FCS.
  void Write(char direction, const uint8_t* bytes, size_t count);
  void Close();

 private:
  CAppendFile file;
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

#include "trace/core/control_decoder.h"

namespace trace {

// Job: reads the file into which the library writes a D-channel (zelk-<serial>-<trunk>.hdlc), line by line. Its times
// are local and of whole seconds. Thread: one. Owns the file. The constructor throws CTraceError for a file that cannot
// be opened or is named otherwise; a line that is none ends the reading, and Fault says so. A file that grows has lines
// again after its end, and begins anew when it has become shorter.
class CHdlcFile {
 public:
  explicit CHdlcFile(const std::string& path, bool isGrowing = false);
  static bool IsOne(const std::string& path);

  // False at the end, of a growing file at its present one. The frame comes without FCS.
  bool Next(SControl& frame);
  std::uint32_t Serial() const { return serial; }
  int Trunk() const { return trunk; }  // from 0
  const std::string& Fault() const { return fault; }

 private:
  bool ReadText(std::string& text);
  bool ReadWhole(std::string& text);

  std::string name;
  const bool grows;
  std::ifstream file;
  std::string begun;        // of a line of which the rest is not written yet
  std::uint64_t taken = 0;  // bytes of the file
  std::uint64_t line = 0;
  std::uint32_t serial = 0;
  int trunk = 0;
  std::string fault;
};

}  // namespace trace

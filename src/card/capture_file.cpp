// SPDX-License-Identifier: GPL-2.0-only
#include "card/capture_file.h"

#include <exception>

#include "platform/module.h"
#include "runtime/format.h"
#include "runtime/paths.h"

namespace zelk {

std::string FormatCaptureLine(char direction, const SLocalTime& time, const uint8_t* bytes, size_t count) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string line;
  FormatString(line, "%c %04u-%02u-%02u %02u:%02u:%02u 0000 ", direction, unsigned{time.year}, unsigned{time.month},
               unsigned{time.day}, unsigned{time.hour}, unsigned{time.minute}, unsigned{time.second});
  line.reserve(line.size() + count * 3 + 2);
  for (size_t i = 0; i < count; ++i) {
    line += kDigits[bytes[i] >> 4];
    line += kDigits[bytes[i] & 0x0F];
    line += ' ';
  }
  line += "\r\n";
  return line;
}

std::string CapturePath(const std::string& directory, char separator, uint32_t serialNumber, uint32_t trunkNumber) {
  std::string name;
  FormatString(name, "%czelk-%u-%u.hdlc", separator, serialNumber, trunkNumber);
  return directory + name;
}

void CCaptureFile::Open(uint32_t serialNumber, uint32_t trunkNumber) {
  Close();
  std::string module;
  if (!ModulePath(module)) {
    return;
  }
  const SLibraryPaths paths = DerivePaths(module, kPathSeparator);
  file.Open(CapturePath(paths.directory, kPathSeparator, serialNumber, trunkNumber));
}

void CCaptureFile::Write(char direction, const uint8_t* bytes, size_t count) {
  if (!file.IsOpen()) {
    return;
  }
  try {
    const std::string line = FormatCaptureLine(direction, LocalNow(), bytes, count);
    file.Write(line.data(), line.size());
  } catch (const std::exception&) {
    return;  // libpri calls this: nothing may be thrown through it
  }
}

void CCaptureFile::Close() {
  file.Close();
}

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/paths.h"

namespace zelk {

namespace {

constexpr size_t kEndingChars = 6;

}  // namespace

SLibraryPaths DerivePaths(const std::string& modulePath, char separator) {
  const size_t last = modulePath.rfind(separator);
  const size_t kept = modulePath.size() > kEndingChars ? modulePath.size() - kEndingChars : modulePath.size();
  const std::string stem = modulePath.substr(0, kept);
  return {modulePath.substr(0, last == std::string::npos ? last : last + 1), stem + ".log", stem + ".ini",
          stem + ".status"};
}

}  // namespace zelk

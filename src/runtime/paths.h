// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

namespace zelk {

// Where the library's own files stand, all derived from the path of the library file.
struct SLibraryPaths {
  std::string directory;  // the module path cut after its last separator, which stays; whole when there is none
  std::string log;
  std::string ini;
  std::string status;
};

// The last six characters (64.dll, or -64.so) are cut whatever they are, so that builds of every width share one log,
// one ini file and one status page; a path of six characters or fewer is not cut.
SLibraryPaths DerivePaths(const std::string& modulePath, char separator);

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "doctor/core/place_facts.h"

namespace doctor {

// What stands beside the library; `path` is the library, or the folder that it is in.
SLibraryFacts LookAtLibrary(const std::string& path);
SLogFacts LookAtLog(const std::string& path);

}  // namespace doctor

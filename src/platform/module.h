// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

namespace zelk {

// The separator of the system's paths: backslash on Windows, slash elsewhere.
extern const char kPathSeparator;

// The full path of the file that holds this code (the shared library, or a test program), cut to 259 characters. Found
// out once, when the code is loaded: the directory that a relative name counts from may be another one later.
// False when the system did not say. Thread: any.
bool ModulePath(std::string& path);

}  // namespace zelk

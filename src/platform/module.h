#pragma once

#include <string>

namespace zelk {

// The separator of the system's paths: backslash on Windows, slash elsewhere.
extern const char kPathSeparator;

// The full path of the file that holds this code (the shared library, or a test program), cut to 259 characters.
// False when the system does not say.
bool ModulePath(std::string& path);

}  // namespace zelk

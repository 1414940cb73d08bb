// SPDX-License-Identifier: GPL-2.0-only
#include "platform/module_name.h"

namespace zelk {

namespace {

constexpr char kSlash = '/';

// Symbolic links stay as they are: the name under which the library was loaded names its log and ini files.
std::string Absolute(std::string_view name, std::string_view directory, std::string_view program) {
  if (name.find(kSlash) == std::string_view::npos) {
    return std::string(program);  // found by the search path; libraries always carry a separator
  }
  if (name.front() == kSlash) {
    return std::string(name);
  }
  std::string path(directory);
  if (path.empty() || path.back() != kSlash) {
    path += kSlash;
  }
  path += name.substr(name.rfind("./", 0) == 0 ? 2 : 0);
  return path;
}

}  // namespace

std::string ModulePathOf(std::string_view name, std::string_view directory, std::string_view program) {
  return Absolute(name, directory, program).substr(0, kMaxModulePath);
}

}  // namespace zelk

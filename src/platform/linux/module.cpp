#include "platform/module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>

namespace zelk {

const char kPathSeparator = '/';

namespace {

constexpr size_t kMaxModulePath = 259;

bool CurrentDirectory(std::string& directory) {
  std::array<char, PATH_MAX> buffer{};
  if (getcwd(buffer.data(), buffer.size()) == nullptr) {
    return false;
  }
  directory = buffer.data();
  return true;
}

bool ProgramPath(std::string& path) {
  std::array<char, PATH_MAX> buffer{};
  const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
  if (length <= 0) {
    return false;
  }
  path.assign(buffer.data(), static_cast<size_t>(length));
  return true;
}

// Symbolic links stay as they are: the name under which the library was loaded names its log and ini files.
bool MakeAbsolute(const std::string& name, std::string& path) {
  if (name.front() == kPathSeparator) {
    path = name;
    return true;
  }
  if (name.find(kPathSeparator) == std::string::npos) {
    return ProgramPath(path);  // a program that was found by the search path; libraries always carry a separator
  }
  std::string directory;
  if (!CurrentDirectory(directory)) {
    return false;
  }
  if (directory.back() != kPathSeparator) {
    directory += kPathSeparator;
  }
  path = directory + (name.rfind("./", 0) == 0 ? name.substr(2) : name);
  return true;
}

}  // namespace

bool ModulePath(std::string& path) {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&ModulePath), &info) == 0 || info.dli_fname == nullptr ||
      info.dli_fname[0] == '\0') {
    return false;
  }
  if (!MakeAbsolute(info.dli_fname, path)) {
    return false;
  }
  path.resize(std::min(path.size(), kMaxModulePath));
  return true;
}

}  // namespace zelk

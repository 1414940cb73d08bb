// SPDX-License-Identifier: GPL-2.0-only
#include "platform/module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <new>
#include <string_view>

#include "platform/module_name.h"

namespace zelk {

const char kPathSeparator = '/';

namespace {

using PathBuffer = std::array<char, PATH_MAX>;

std::string_view CurrentDirectory(PathBuffer& buffer) {
  return getcwd(buffer.data(), buffer.size()) == nullptr ? std::string_view() : buffer.data();
}

std::string_view ProgramPath(PathBuffer& buffer) {
  const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
  return {buffer.data(), length < 0 ? 0 : static_cast<size_t>(length)};
}

// Plain memory, which stays as it is while static objects are destroyed. Empty when the system does not say.
struct SModulePath {
  std::array<char, kMaxModulePath + 1> text{};

  SModulePath() noexcept;
};

SModulePath::SModulePath() noexcept {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&ModulePath), &info) == 0 || info.dli_fname == nullptr) {
    return;
  }
  const std::string_view name = info.dli_fname;
  PathBuffer directoryBuffer;
  PathBuffer programBuffer;
  const std::string_view directory = CurrentDirectory(directoryBuffer);
  const std::string_view program = ProgramPath(programBuffer);
  const bool isRelative = name.find(kPathSeparator) != std::string_view::npos && name.front() != kPathSeparator;
  if (name.empty() || (isRelative && directory.empty())) {
    return;
  }
  try {
    ModulePathOf(name, directory, program).copy(text.data(), kMaxModulePath);
  } catch (const std::bad_alloc&) {
    text.front() = '\0';
  }
}

const SModulePath& LoadedPath() {
  static const SModulePath path;
  return path;
}

// Asked for when the library is loaded, or by an object that is made even earlier.
[[maybe_unused]] const SModulePath& loadedPath = LoadedPath();

}  // namespace

bool ModulePath(std::string& path) {
  path = LoadedPath().text.data();
  return !path.empty();
}

}  // namespace zelk

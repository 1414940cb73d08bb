// SPDX-License-Identifier: GPL-2.0-only
#include "platform/module.h"

#include <windows.h>

#include <array>

namespace zelk {

const char kPathSeparator = '\\';

namespace {

// The loader keeps full paths, whatever the library was called when it was loaded. Empty when it does not say.
struct SModulePath {
  std::array<char, MAX_PATH> text{};

  SModulePath() noexcept;
};

SModulePath::SModulePath() noexcept {
  // The reference count stays as it is: asking for the path must not keep the library loaded.
  constexpr DWORD kByAddress = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  HMODULE module = nullptr;
  if (GetModuleHandleExA(kByAddress, reinterpret_cast<LPCSTR>(&ModulePath), &module) == FALSE ||
      GetModuleFileNameA(module, text.data(), static_cast<DWORD>(text.size())) == 0) {
    text.front() = '\0';
  }
  text.back() = '\0';  // a path that is cut comes without its end on some systems
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

#include "platform/module.h"

#include <windows.h>

#include <array>

namespace zelk {

const char kPathSeparator = '\\';

bool ModulePath(std::string& path) {
  // The reference count stays as it is: asking for the path must not keep the library loaded.
  constexpr DWORD kByAddress = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  HMODULE module = nullptr;
  if (GetModuleHandleExA(kByAddress, reinterpret_cast<LPCSTR>(&ModulePath), &module) == FALSE) {
    return false;
  }
  std::array<char, MAX_PATH> buffer{};
  const DWORD length = GetModuleFileNameA(module, buffer.data(), static_cast<DWORD>(buffer.size()));
  buffer.back() = '\0';  // a path that is cut comes without its end on some systems
  path = buffer.data();
  return length != 0;
}

}  // namespace zelk

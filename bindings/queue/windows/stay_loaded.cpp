// SPDX-License-Identifier: GPL-2.0-only

// Threads may wait in this library at the end of the process, and the telephony library may be inside its callbacks:
// once loaded it is never unloaded. Where the linker has an option for that, this source is left out.

#include <windows.h>

namespace {

const bool kStays = [] {
  constexpr DWORD kForGood = GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS;
  static const char place = 0;
  HMODULE self = nullptr;
  return GetModuleHandleExA(kForGood, &place, &self) != 0;
}();

}  // namespace

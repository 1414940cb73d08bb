#pragma once

#include <windows.h>

// What tests may ask about the system they run on, to say why they skip.
constexpr bool kOnWindows = true;

inline bool RunsUnderWine() {
  const HMODULE ntdll = GetModuleHandleA("ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

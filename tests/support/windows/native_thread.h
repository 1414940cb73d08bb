// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <windows.h>

#include <optional>
#include <string>

// What the system says of the calling thread.

// Nothing where the system keeps no names.
inline std::optional<std::string> OwnThreadName() {
  using GetDescription = HRESULT(WINAPI*)(HANDLE, PWSTR*);
  const auto function = reinterpret_cast<GetDescription>(
      reinterpret_cast<void (*)()>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "GetThreadDescription")));
  PWSTR description = nullptr;
  if (function == nullptr || FAILED(function(GetCurrentThread(), &description))) {
    return std::nullopt;
  }
  std::string name;
  for (PCWSTR at = description; *at != L'\0'; ++at) {
    name += static_cast<char>(*at);
  }
  LocalFree(description);
  return name;
}

inline bool OwnThreadIsRaised() {
  return GetThreadPriority(GetCurrentThread()) == THREAD_PRIORITY_TIME_CRITICAL;
}

// Whether a thread of this process can be raised at all.
inline bool ThreadsMayBeRaised() {
  return true;
}

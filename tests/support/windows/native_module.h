// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <windows.h>
#include <winsock2.h>

#include <stdexcept>
#include <string>

// Dynamic libraries. OpenModule throws std::runtime_error with the system's reason.
using Module = HMODULE;

inline Module OpenModule(const std::string& path) {
  // Windows looks beside the program for a name that is not a full path of its own kind.
  char full[MAX_PATH];
  const DWORD length = GetFullPathNameA(path.c_str(), MAX_PATH, full, nullptr);
  Module module = length == 0 || length >= MAX_PATH ? nullptr : LoadLibraryA(full);
  if (module == nullptr) {
    throw std::runtime_error("LoadLibrary of " + path + ": error " + std::to_string(GetLastError()));
  }
  return module;
}

template <class Function>
Function FindFunction(Module module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

inline void CloseModule(Module module) {
  FreeLibrary(module);
}

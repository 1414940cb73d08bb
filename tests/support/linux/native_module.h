// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <dlfcn.h>

#include <stdexcept>
#include <string>

// Dynamic libraries. OpenModule throws std::runtime_error with the system's reason.
using Module = void*;

inline Module OpenModule(const std::string& path) {
  Module module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    throw std::runtime_error(dlerror());
  }
  return module;
}

template <class Function>
Function FindFunction(Module module, const char* name) {
  return reinterpret_cast<Function>(dlsym(module, name));
}

inline void CloseModule(Module module) {
  dlclose(module);
}

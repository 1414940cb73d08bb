// SPDX-License-Identifier: GPL-2.0-only
#include "platform/module.h"

namespace zelk {

const char kPathSeparator = '/';

bool ModulePath(std::string& path) {
  path = "/world/libZelkApi-64.so";
  return true;
}

}  // namespace zelk

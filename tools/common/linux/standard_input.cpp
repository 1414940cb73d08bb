// SPDX-License-Identifier: GPL-2.0-only
#include "common/standard_input.h"

#include <unistd.h>

#include <cerrno>

namespace tool {

std::size_t ReadStandardInput(char* to, std::size_t room) {
  ssize_t taken = 0;
  do {
    taken = read(STDIN_FILENO, to, room);
  } while (taken < 0 && errno == EINTR);
  return taken > 0 ? static_cast<std::size_t>(taken) : 0;
}

void KeepStandardBytes() {}

}  // namespace tool

// SPDX-License-Identifier: GPL-2.0-only
#include "common/standard_input.h"

#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <windows.h>

#include <algorithm>

namespace tool {

std::size_t ReadStandardInput(char* to, std::size_t room) {
  constexpr std::size_t kMost = 1U << 20U;
  DWORD taken = 0;
  // The other end of a pipe going away is an error here; it is the end as well.
  const BOOL isRead =
      ReadFile(GetStdHandle(STD_INPUT_HANDLE), to, static_cast<DWORD>(std::min(room, kMost)), &taken, nullptr);
  return isRead != FALSE ? taken : 0;
}

void KeepStandardBytes() {
  for (FILE* const stream : {stdin, stdout, stderr}) {
    _setmode(_fileno(stream), _O_BINARY);
  }
}

}  // namespace tool

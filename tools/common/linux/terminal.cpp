// SPDX-License-Identifier: GPL-2.0-only
#include "common/terminal.h"

#include <unistd.h>

namespace tool {

bool StdoutIsTerminal() {
  return isatty(STDOUT_FILENO) == 1;
}

bool StdinIsTerminal() {
  return isatty(STDIN_FILENO) == 1;
}

}  // namespace tool

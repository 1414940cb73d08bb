// SPDX-License-Identifier: GPL-2.0-only
#include "common/terminal.h"

#include <poll.h>
#include <unistd.h>

namespace tool {

bool StdoutIsTerminal() {
  return isatty(STDOUT_FILENO) == 1;
}

bool StderrIsTerminal() {
  return isatty(STDERR_FILENO) == 1;
}

bool StdinIsTerminal() {
  return isatty(STDIN_FILENO) == 1;
}

bool StdinIsGone() {
  pollfd input{STDIN_FILENO, 0, 0};
  return poll(&input, 1, 0) == 1 && (input.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

}  // namespace tool

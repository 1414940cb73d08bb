// SPDX-License-Identifier: GPL-2.0-only
#include "common/terminal.h"

#include <io.h>
#include <stdio.h>

namespace tool {

bool StdoutIsTerminal() {
  return _isatty(_fileno(stdout)) != 0;
}

bool StderrIsTerminal() {
  return _isatty(_fileno(stderr)) != 0;
}

bool StdinIsTerminal() {
  return _isatty(_fileno(stdin)) != 0;
}

// A console that is closed ends its programs.
bool StdinIsGone() {
  return false;
}

}  // namespace tool

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace tool {

// True when standard output is a terminal that a person watches, so that a line may be drawn over.
bool StdoutIsTerminal();
// The same of standard error, where progress is shown.
bool StderrIsTerminal();
// The same of standard input, from which keys would come.
bool StdinIsTerminal();
// True when the terminal behind standard input is gone: no key will come again, and no signal may have said so.
bool StdinIsGone();

}  // namespace tool

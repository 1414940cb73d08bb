// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <string>

#include "trace/program/board_view.h"

namespace trace {

// Of curses, or a plain table on systems without it (trace/curses, trace/plain).

// Whether there is a terminal on which places can be written to.
bool ScreenIsPossible();

// The board on the terminal, twice a second, until a key, a signal or `isOver` ends it. The terminal is then as it was.
// `title`: what is shown. Without colours where NO_COLOR is set.
void ShowBoard(IBoardSource& source, const std::string& title, const std::function<bool()>& isOver);

}  // namespace trace

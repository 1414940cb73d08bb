// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>
#include <vector>

namespace tool {

// Windows only, which has no curses: writes over the console's window, line by line, as much of them as it has room
// for.
void PaintConsole(const std::vector<std::string>& lines);

}  // namespace tool

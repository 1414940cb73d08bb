// SPDX-License-Identifier: GPL-2.0-only
#include "common/console.h"

#include <windows.h>

namespace tool {

// By places, which every Windows knows; the sequences of a terminal are new there.
void PaintConsole(const std::vector<std::string>& lines) {
  const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (GetConsoleScreenBufferInfo(console, &info) == 0) {
    return;
  }
  const SMALL_RECT window = info.srWindow;
  const auto width = static_cast<std::size_t>(window.Right - window.Left + 1);
  const auto height = static_cast<std::size_t>(window.Bottom - window.Top + 1);
  for (std::size_t i = 0; i < height; ++i) {
    std::string line = i < lines.size() ? lines[i] : std::string();
    line.resize(width, ' ');
    const COORD place{window.Left, static_cast<SHORT>(window.Top + static_cast<SHORT>(i))};
    DWORD written = 0;
    WriteConsoleOutputCharacterA(console, line.data(), static_cast<DWORD>(line.size()), place, &written);
  }
  // What is printed afterwards, the shell's prompt, comes below.
  SetConsoleCursorPosition(console, {window.Left, window.Bottom});
}

}  // namespace tool

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

struct screen;

namespace trace {

// Job: the terminal as a screen of curses, from the constructor to the destructor, which leaves it as it was. Without
// colours where NO_COLOR is set. Thread: one, and one object at a time.
class CTerminal {
 public:
  CTerminal();
  ~CTerminal();
  CTerminal(const CTerminal&) = delete;
  CTerminal& operator=(const CTerminal&) = delete;

  // Attributes for a cell's letter.
  unsigned int Colour(char letter) const;
  // Ctrl-C, kill or the end of the terminal.
  static bool IsAskedToEnd();

 private:
  screen* own = nullptr;
  bool isColoured = false;
};

// As much of a text as the line has room for.
void Put(int y, int x, const std::string& text, unsigned int how = 0);

}  // namespace trace

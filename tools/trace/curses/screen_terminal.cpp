// SPDX-License-Identifier: GPL-2.0-only
#include "trace/curses/screen_terminal.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "common/child_process.h"
#include "common/terminal.h"
#include "trace/program/board_screen.h"

// After all others: they have macros of many names, and a function of the name of this namespace.
#define trace trace_of_curses
#include <curses.h>
#include <term.h>
#undef trace

namespace trace {
namespace {

constexpr int kTickMs = 500;

std::atomic<bool> isAskedToEnd{false};

void OnEnd(int) {
  isAskedToEnd = true;
}

// Colours by the letter of a cell.
int PairOf(char letter) {
  switch (letter) {
    case 'C':
      return 1;
    case 'i':
    case 'o':
      return 2;
    case 'x':
      return 3;
    case '-':
    case 'h':
      return 4;
    default:
      return 0;
  }
}

}  // namespace

CTerminal::CTerminal() {
  set_escdelay(25);
  own = newterm(nullptr, stdout, stdin);
  tool::OnEndRequest(OnEnd);
  cbreak();
  noecho();
  keypad(stdscr, TRUE);
  curs_set(0);
  timeout(kTickMs);
  const char* const wish = std::getenv("NO_COLOR");
  if ((wish == nullptr || *wish == '\0') && has_colors()) {
    start_color();
    use_default_colors();
    for (const auto& [pair, colour] :
         {std::pair(1, COLOR_GREEN), std::pair(2, COLOR_YELLOW), std::pair(3, COLOR_RED), std::pair(4, COLOR_CYAN)}) {
      init_pair(static_cast<short>(pair), static_cast<short>(colour), -1);
    }
    isColoured = true;
  }
}

CTerminal::~CTerminal() {
  endwin();
  delscreen(own);
}

unsigned int CTerminal::Colour(char letter) const {
  return isColoured ? static_cast<unsigned int>(COLOR_PAIR(PairOf(letter))) : 0;
}

bool CTerminal::IsAskedToEnd() {
  return isAskedToEnd || tool::StdinIsGone();
}

void Put(int y, int x, const std::string& text, unsigned int how) {
  if (y < 0 || y >= LINES || x >= COLS) {
    return;
  }
  attrset(how);
  mvaddnstr(y, x, text.c_str(), COLS - x);
  attrset(A_NORMAL);
}

bool ScreenIsPossible() {
  if (!tool::StdoutIsTerminal() || !tool::StdinIsTerminal()) {
    return false;
  }
  int fault = 0;
  if (setupterm(nullptr, 1, &fault) == ERR) {
    return false;
  }
  const char* const move = tigetstr("cup");
  return move != nullptr && move != reinterpret_cast<char*>(-1);
}

}  // namespace trace

// SPDX-License-Identifier: GPL-2.0-only
#include "trace/program/board_screen.h"

#include <fmt/format.h>

#include <algorithm>

#include "trace/core/text.h"
#include "trace/curses/screen_terminal.h"

// After all others: they have macros of many names, and a function of the name of this namespace.
#define trace trace_of_curses
#include <curses.h>
#undef trace

namespace trace {
namespace {

constexpr int kCellsAt = 22;
constexpr int kEscape = 27;

const char* const kHelpText[] = {
    "A line a trunk, a letter a channel:",
    "",
    "  .  idle                 o  dialled by the library    -  clearing",
    "  i  ringing in           C  connected                 x  down",
    "  h  connected, and no message of the call for an hour",
    "",
    "Arrows       move; Page Up, Page Down, Home, End too",
    "Enter        the channel: numbers, times, levels, last causes, messages of its last call",
    "/            only trunks with this in their line (down, out, 100001-); empty for all",
    "p            stand still, and go on",
    "?  h         this page",
    "q  Ctrl-C    leave",
    "",
    "p50, p99     how long the replies to the card's audio packets took",
    "lost         audio packets of the card (or, of a status page, blocks from the line)",
    "starved      blocks of 20 ms for which the line had no sound from the library",
};

// Job: what of the board is on the screen, and what the keys do to it. Thread: one.
class CBoardScreen {
 public:
  CBoardScreen(IBoardSource& boardSource, const std::string& boardTitle) : source(boardSource), title(boardTitle) {}

  // False when it is to end.
  bool Turn() {
    if (!isPaused) {
      view = source.Look();
    }
    Choose();
    erase();
    Draw();
    refresh();
    const int key = getch();
    return !CTerminal::IsAskedToEnd() && (key == ERR || OnKey(key));
  }

 private:
  enum class EMode { kTable, kDetails, kHelp, kFilter };

  int Room() const { return std::max(LINES - 3, 1); }

  // The rows that pass the filter; the chosen one stays chosen as long as it is there.
  void Choose() {
    rows.clear();
    for (const SBoardRow& row : view.rows) {
      const std::string text = row.name + " " + row.layer1 + " " + row.layer2;
      if (text.find(filter) != std::string::npos) {
        rows.push_back(&row);
      }
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
      at = rows[i]->name == chosen ? static_cast<int>(i) : at;
    }
    MoveTo(at, cell);
  }

  void MoveTo(int row, int toCell) {
    at = std::clamp(row, 0, std::max(static_cast<int>(rows.size()) - 1, 0));
    cell = std::clamp(toCell, 0, kBoardCells - 1);
    chosen = rows.empty() ? "" : rows[static_cast<std::size_t>(at)]->name;
    top = std::clamp(top, std::max(at - Room() + 1, 0), at);
  }

  void Draw() {
    DrawHead();
    switch (mode) {
      case EMode::kHelp:
        return DrawText({std::begin(kHelpText), std::end(kHelpText)});
      case EMode::kDetails:
        return DrawText(source.Details(chosen, cell));
      case EMode::kTable:
      case EMode::kFilter:
        return DrawTable();
    }
  }

  void DrawHead() {
    std::string head = fmt::format(" {}  {}", title, view.now == 0 ? "" : IsoTime(view.now).substr(0, 19));
    head += isPaused ? "  [paused]" : "";
    head += filter.empty() ? "" : "  [/" + filter + "]";
    head.resize(static_cast<std::size_t>(COLS), ' ');
    Put(0, 0, head, A_REVERSE);
    std::string foot = "Enter channel  / filter  p pause  ? help  q quit";
    if (mode == EMode::kFilter) {
      foot = "only trunks with: " + filter + "_";
    } else if (mode != EMode::kTable) {
      foot = "Enter back  arrows scroll";
    } else if (!view.remark.empty()) {
      foot = view.remark;
    }
    Put(LINES - 1, 0, foot, A_BOLD);
  }

  void DrawTable() {
    Put(1, 0, fmt::format("{:<13}{:<4}{:<5}channels", "trunk", "L1", "L2"), A_UNDERLINE);
    int x = kCellsAt + kBoardCells;
    for (const SBoardColumn& column : kBoardColumns) {
      x += column.width;
      if (x <= COLS) {
        Put(1, x - column.width, fmt::format("{:>{}}", column.name, column.width), A_UNDERLINE);
      }
    }
    for (int i = top; i < std::min(static_cast<int>(rows.size()), top + Room()); ++i) {
      DrawRow(2 + i - top, *rows[static_cast<std::size_t>(i)], i == at);
    }
    if (rows.empty()) {
      Put(3, 2, view.rows.empty() ? "No card has said anything yet." : "No trunk is as the filter wants it.");
    }
  }

  void DrawRow(int y, const SBoardRow& row, bool isChosen) const {
    const attr_t how = isChosen ? A_BOLD : A_NORMAL;
    Put(y, 0, fmt::format("{:<13}", row.name), how);
    Put(y, 13, row.layer1, how | terminal.Colour(row.layer1 == "out" ? 'x' : '.'));
    Put(y, 17, row.layer2, how | terminal.Colour(row.layer2 == "down" || row.layer2 == "lost" ? 'x' : '.'));
    for (int i = 0; i < static_cast<int>(row.cells.size()); ++i) {
      const char letter = row.cells[static_cast<std::size_t>(i)];
      Put(y, kCellsAt + i, std::string(1, letter),
          terminal.Colour(letter) | (isChosen && i == cell ? A_REVERSE : A_NORMAL));
    }
    int x = kCellsAt + kBoardCells;
    for (const SBoardColumn& column : kBoardColumns) {
      x += column.width;
      if (x <= COLS) {
        Put(y, x - column.width, fmt::format("{:>{}}", column.text(row), column.width), how);
      }
    }
  }

  void DrawText(const std::vector<std::string>& text) {
    const int room = LINES - 3;
    scroll = std::clamp(scroll, 0, std::max(static_cast<int>(text.size()) - room, 0));
    for (int i = 0; i < room && scroll + i < static_cast<int>(text.size()); ++i) {
      Put(2 + i, 1, text[static_cast<std::size_t>(scroll) + static_cast<std::size_t>(i)]);
    }
  }

  bool OnKey(int key) {
    switch (mode) {
      case EMode::kFilter:
        return OnFilterKey(key);
      case EMode::kTable:
        return OnTableKey(key);
      case EMode::kDetails:
      case EMode::kHelp:
        return OnTextKey(key);
    }
    return true;
  }

  bool OnTableKey(int key) {
    switch (key) {
      case 'q':
        return false;
      case 'p':
        isPaused = !isPaused;
        break;
      case '?':
      case 'h':
        Open(EMode::kHelp);
        break;
      case '/':
        mode = EMode::kFilter;
        break;
      case '\n':
      case '\r':
      case KEY_ENTER:
        Open(rows.empty() ? EMode::kTable : EMode::kDetails);
        break;
      default:
        OnMove(key);
    }
    return true;
  }

  void OnMove(int key) {
    switch (key) {
      case KEY_UP:
        return MoveTo(at - 1, cell);
      case KEY_DOWN:
        return MoveTo(at + 1, cell);
      case KEY_LEFT:
        return MoveTo(at, cell - 1);
      case KEY_RIGHT:
        return MoveTo(at, cell + 1);
      case KEY_PPAGE:
        return MoveTo(at - Room(), cell);
      case KEY_NPAGE:
        return MoveTo(at + Room(), cell);
      case KEY_HOME:
        return MoveTo(0, 0);
      case KEY_END:
        return MoveTo(static_cast<int>(rows.size()), cell);
      default:
        break;
    }
  }

  bool OnTextKey(int key) {
    switch (key) {
      case KEY_UP:
        --scroll;
        break;
      case KEY_DOWN:
        ++scroll;
        break;
      case 'q':
      case '?':
      case kEscape:
      case '\n':
      case '\r':
      case KEY_ENTER:
        mode = EMode::kTable;
        break;
      default:
        break;
    }
    return true;
  }

  bool OnFilterKey(int key) {
    if (key == '\n' || key == '\r' || key == KEY_ENTER) {
      mode = EMode::kTable;
    } else if (key == kEscape) {
      filter.clear();
      mode = EMode::kTable;
    } else if (key == KEY_BACKSPACE || key == 127 || key == '\b') {
      filter.resize(filter.empty() ? 0 : filter.size() - 1);
    } else if (key >= ' ' && key < 127) {
      filter += static_cast<char>(key);
    }
    return true;
  }

  void Open(EMode what) {
    mode = what;
    scroll = 0;
  }

  IBoardSource& source;
  const std::string title;
  const CTerminal terminal;
  SBoardView view;
  std::vector<const SBoardRow*> rows;
  std::string chosen;  // name of the row that the cursor is in
  int at = 0;
  int cell = 0;
  int top = 0;
  int scroll = 0;
  std::string filter;
  bool isPaused = false;
  EMode mode = EMode::kTable;
};

}  // namespace

void ShowBoard(IBoardSource& source, const std::string& title, const std::function<bool()>& isOver) {
  CBoardScreen screen(source, title);
  while (!isOver() && screen.Turn()) {
  }
}

}  // namespace trace

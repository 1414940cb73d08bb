// SPDX-License-Identifier: GPL-2.0-only
#include "trace/program/board_screen.h"

#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "common/child_process.h"
#include "common/console.h"
#include "common/terminal.h"
#include "trace/core/text.h"

namespace trace {
namespace {

constexpr std::chrono::milliseconds kTurn{500};

std::atomic<bool> isToEnd{false};

void OnEnd(int) {
  isToEnd = true;
}

std::string RowText(const SBoardRow& row) {
  std::string text = fmt::format("{:<13}{:<4}{:<5}{:<{}}", row.name, row.layer1, row.layer2, row.cells, kBoardCells);
  for (const SBoardColumn& column : kBoardColumns) {
    text += fmt::format("{:>{}}", column.text(row), column.width);
  }
  return text;
}

std::vector<std::string> TableOf(const SBoardView& view, const std::string& title) {
  std::vector<std::string> lines = {
      fmt::format("{}  {}", title, view.now == 0 ? "" : IsoTime(view.now).substr(0, 19)),
      fmt::format("{:<13}{:<4}{:<5}{:<{}}", "trunk", "L1", "L2", "channels", kBoardCells)};
  for (const SBoardColumn& column : kBoardColumns) {
    lines.back() += fmt::format("{:>{}}", column.name, column.width);
  }
  for (const SBoardRow& row : view.rows) {
    lines.push_back(RowText(row));
  }
  if (view.rows.empty()) {
    lines.emplace_back("No card has said anything yet.");
  }
  lines.emplace_back(kCellLegend);
  lines.push_back(view.remark.empty() ? "Ctrl-C leaves" : view.remark);
  return lines;
}

}  // namespace

bool ScreenIsPossible() {
  return tool::StdoutIsTerminal();
}

void ShowBoard(IBoardSource& source, const std::string& title, const std::function<bool()>& isOver) {
  tool::OnEndRequest(OnEnd);
  while (!isOver() && !isToEnd) {
    tool::PaintConsole(TableOf(source.Look(), title));
    std::this_thread::sleep_for(kTurn);
  }
}

}  // namespace trace

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "trace/core/board.h"
#include "trace/core/status_page.h"
#include "trace/program/last_calls.h"

namespace trace {

// A trunk as a line of the board. What its source does not tell is left out.
struct SBoardRow {
  std::string name;  // "100001-2"
  std::string layer1;
  std::string layer2;
  Time changed = 0;
  std::uint64_t hdlcErrors = 0;
  std::optional<double> callsAnHour;
  std::optional<double> answeredPercent;
  std::optional<double> delayP50Ms;
  std::optional<double> delayP99Ms;
  std::uint64_t lost = 0;
  std::uint64_t starved = 0;
  std::string cells;  // kBoardCells letters, one a channel
};

// What stands beside the cells, from the left on as far as there is room.
struct SBoardColumn {
  const char* name;
  int width;
  std::string (*text)(const SBoardRow&);
};
extern const std::vector<SBoardColumn> kBoardColumns;

struct SBoardView {
  Time now = 0;
  std::vector<SBoardRow> rows;
  std::string remark;  // such as why nothing moves any more
};

// What a cell's letter means: ". idle" and so on, in one line.
extern const char kCellLegend[];

inline constexpr int kBoardCells = 30;
// Timeslots of the cells of a trunk.
constexpr int TimeslotOfCell(int cell) {
  return cell < 15 ? cell + 1 : cell + 2;
}

// Job: where a board has from what it shows. Thread: one, beside the one that brings it.
class IBoardSource {
 public:
  virtual ~IBoardSource() = default;
  virtual SBoardView Look() = 0;
  // All that is known of the channel at this cell of a trunk, by the line.
  virtual std::vector<std::string> Details(const std::string& trunk, int cell) = 0;
};

// A card whose control connection has been silent for this long is lost: a library waits no longer than a second.
inline constexpr Time kSilentCard = 3 * kSecond;

// `now`: of the clock, for a live capture; 0: the capture's last moment.
SBoardView ViewOf(const CBoard& board, Time now);
SBoardView ViewOf(const SStatusPage& page, Time now);
// The letters of a trunk's channels, kBoardCells of them.
std::string CellsOf(const SBoardTrunk& trunk, Time now);
std::string CardNameOf(const SBoardCard& card);
std::string CardNameOf(const SPageCard& card);
std::vector<std::string> DetailsOf(const CBoard& board, const CLastCalls& calls, const CLevelMeter& levels,
                                   const std::string& trunk, int cell);
std::vector<std::string> DetailsOf(const SStatusPage& page, const std::string& trunk, int cell);

}  // namespace trace

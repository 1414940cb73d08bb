// SPDX-License-Identifier: GPL-2.0-only
#include "trace/program/board_view.h"

#include <fmt/format.h>

#include <algorithm>

#include "trace/core/text.h"
#include "trace/program/ladder.h"

namespace trace {

const char kCellLegend[] =
    ". idle  i ringing in  o dialled  C connected  h connected, no message for an hour  - clearing  x down";

namespace {

// Of a channel of the status page, in the words of the board.
EChannel StateOf(const SPageTrunk& trunk, const SPageChannel& channel) {
  switch (channel.state) {
    case EPageCall::kOffered:
      return EChannel::kRinging;
    case EPageCall::kDialled:
      return EChannel::kDialled;
    case EPageCall::kConnected:
      return EChannel::kConnected;
    case EPageCall::kClearing:
      return EChannel::kClearing;
    case EPageCall::kLost:
      return EChannel::kDown;
    case EPageCall::kNone:
      break;
  }
  return trunk.isUp ? EChannel::kIdle : EChannel::kDown;
}

SBoardRow RowOf(const SBoardCard& card, std::size_t index, double hours) {
  const SBoardTrunk& trunk = card.trunks[index];
  SBoardRow row;
  row.name = CardNameOf(card) + "-" + std::to_string(index + 1);
  row.layer1 = !trunk.status ? "?" : *trunk.status == 0 ? "ok" : "out";
  row.layer2 = !trunk.isUp ? "?" : *trunk.isUp ? "up" : "down";
  row.changed = trunk.changed;
  row.hdlcErrors = trunk.hdlcErrors;
  row.callsAnHour = static_cast<double>(trunk.calls) / hours;
  if (trunk.calls != 0) {
    row.answeredPercent = 100.0 * static_cast<double>(trunk.connected) / static_cast<double>(trunk.calls);
  }
  row.delayP50Ms = card.replies.DelayMs(0.5);
  row.delayP99Ms = card.replies.DelayMs(0.99);
  row.lost = card.replies.Counts().lost;
  row.starved = trunk.starvedBlocks;
  return row;
}

SBoardRow RowOf(const SPageCard& card, std::size_t index) {
  const SPageTrunk& trunk = card.trunks[index];
  SBoardRow row;
  row.name = CardNameOf(card) + "-" + std::to_string(index + 1);
  row.layer1 = trunk.lineStatus == 0 ? "ok" : trunk.lineStatus == 3 ? "?" : "out";
  row.layer2 = trunk.isUp ? "up" : "down";
  row.changed = trunk.changed;
  row.hdlcErrors = trunk.hdlcErrors;
  for (int cell = 0; cell < kBoardCells; ++cell) {
    const SPageChannel& channel = trunk.channels[static_cast<std::size_t>(TimeslotOfCell(cell))];
    row.lost += channel.lostReceived;
    row.starved += channel.lostSent;
    row.cells += LetterOf(StateOf(trunk, channel));
  }
  return row;
}

// "0.000 s" from the call's first message.
std::string Since(const SCall& call, const char* what, Time time) {
  return time == 0 ? ""
                   : fmt::format("  {:<11} {}  (+{:.1f} s)", what, IsoTime(time),
                                 static_cast<double>(time - call.begin) / static_cast<double>(kSecond));
}

void AddCall(std::vector<std::string>& lines, const SLastCall& kept) {
  const SCall& call = kept.call;
  lines.push_back(fmt::format("{} call {}, {}: {} -> {}{}", kept.isOver ? "Last" : "Present", call.number,
                              call.fromLibrary ? "from the library" : "to the library", Printable(call.calling),
                              Printable(call.called),
                              call.redirecting.empty() ? "" : ", redirected by " + Printable(call.redirecting)));
  for (const auto& [what, time] : {std::pair("begun", call.begin), std::pair("alerting", call.alerting),
                                   std::pair("connected", call.connected), std::pair("clearing", call.clearing)}) {
    if (const std::string line = Since(call, what, time); !line.empty()) {
      lines.push_back(line);
    }
  }
  if (call.cause >= 0) {
    lines.push_back(fmt::format("  cause {} {} by {}", call.cause, CauseName(call.cause), ClearedByName(call)));
  }
  lines.emplace_back();
  for (const SMessageLine& message : kept.messages) {
    const double seconds = static_cast<double>(message.time - call.begin) / static_cast<double>(kSecond);
    lines.push_back(fmt::format("{:>10.3f} s  {}", seconds,
                                RungText({message.time, message.isToLibrary, message.name, message.details})));
  }
}

std::string Number(const std::optional<double>& value, const char* format) {
  return value ? fmt::format(fmt::runtime(format), *value) : "-";
}

}  // namespace

const std::vector<SBoardColumn> kBoardColumns = {
    {"HDLC", 6, [](const SBoardRow& row) { return std::to_string(row.hdlcErrors); }},
    {"calls/h", 8, [](const SBoardRow& row) { return Number(row.callsAnHour, "{:.0f}"); }},
    {"answ", 6, [](const SBoardRow& row) { return Number(row.answeredPercent, "{:.0f} %"); }},
    {"changed", 10, [](const SBoardRow& row) { return row.changed == 0 ? "-" : IsoTime(row.changed).substr(11, 8); }},
    {"p50 ms", 8, [](const SBoardRow& row) { return Number(row.delayP50Ms, "{:.2f}"); }},
    {"p99 ms", 8, [](const SBoardRow& row) { return Number(row.delayP99Ms, "{:.2f}"); }},
    {"lost", 8, [](const SBoardRow& row) { return std::to_string(row.lost); }},
    {"starved", 9, [](const SBoardRow& row) { return std::to_string(row.starved); }},
};

std::string CellsOf(const SBoardTrunk& trunk, Time now) {
  std::string cells;
  for (int cell = 0; cell < kBoardCells; ++cell) {
    cells += LetterOf(trunk, TimeslotOfCell(cell), now);
  }
  return cells;
}

std::string CardNameOf(const SBoardCard& card) {
  return card.serial != 0 ? std::to_string(card.serial) : AddressText(card.address);
}

std::string CardNameOf(const SPageCard& card) {
  return card.serial != 0 ? std::to_string(card.serial) : AddressText(card.address);
}

SBoardView ViewOf(const CBoard& board, Time now) {
  const double hours =
      static_cast<double>(std::max<Time>(board.Now() - board.Begin(), 1)) / (3600.0 * static_cast<double>(kSecond));
  SBoardView view;
  view.now = now == 0 ? board.Now() : now;
  for (const auto& [address, card] : board.Cards()) {
    for (std::size_t i = 0; i < card.trunks.size(); ++i) {
      view.rows.push_back(RowOf(card, i, hours));
      SBoardRow& row = view.rows.back();
      row.cells = CellsOf(card.trunks[i], view.now);
      if (card.isConnected && view.now - card.heard > kSilentCard) {
        row.layer1 = "?";
        row.layer2 = "lost";
        row.cells.assign(kBoardCells, LetterOf(EChannel::kDown));
      }
    }
  }
  return view;
}

SBoardView ViewOf(const SStatusPage& page, Time now) {
  SBoardView view;
  view.now = now;
  for (const SPageCard& card : page.cards) {
    for (std::size_t i = 0; i < card.trunks.size(); ++i) {
      view.rows.push_back(RowOf(card, i));
    }
  }
  return view;
}

std::vector<std::string> DetailsOf(const CBoard& board, const CLastCalls& calls, const CLevelMeter& levels,
                                   const std::string& trunk, int cell) {
  const int slot = TimeslotOfCell(cell);
  for (const auto& [address, card] : board.Cards()) {
    for (std::size_t i = 0; i < card.trunks.size(); ++i) {
      if (CardNameOf(card) + "-" + std::to_string(i + 1) != trunk) {
        continue;
      }
      const auto at = static_cast<std::size_t>(slot);
      std::vector<std::string> lines = {
          fmt::format("{} timeslot {}: {}", trunk, slot, ChannelName(card.trunks[i].channels[at])),
          fmt::format("  level from the line {}, to the line {}", levels.Text(EDirection::kToLibrary),
                      levels.Text(EDirection::kFromLibrary))};
      std::string causes;
      for (const int cause : calls.Causes(address, static_cast<int>(i), slot)) {
        causes += fmt::format("{}{} {}", causes.empty() ? "" : ", ", cause, CauseName(cause));
      }
      lines.push_back("  last causes: " + (causes.empty() ? "none seen" : causes));
      if (const SLastCall* call = calls.Find(card.trunks[i].callOn[at], address, static_cast<int>(i), slot)) {
        AddCall(lines, *call);
      }
      return lines;
    }
  }
  return {};
}

std::vector<std::string> DetailsOf(const SStatusPage& page, const std::string& trunk, int cell) {
  const int slot = TimeslotOfCell(cell);
  for (const SPageCard& card : page.cards) {
    for (std::size_t i = 0; i < card.trunks.size(); ++i) {
      if (CardNameOf(card) + "-" + std::to_string(i + 1) != trunk) {
        continue;
      }
      const SPageChannel& channel = card.trunks[i].channels[static_cast<std::size_t>(slot)];
      return {fmt::format("{} timeslot {}: {}, since {}", trunk, slot, ChannelName(StateOf(card.trunks[i], channel)),
                          IsoTime(channel.changed)),
              fmt::format("  channel {}, {}", channel.number ? std::to_string(*channel.number) : "none",
                          channel.isOpen ? "open" : "not open"),
              fmt::format("  calls offered {}, dialled {}, connected {}; last cause {} {}", channel.offered,
                          channel.dialled, channel.connected, channel.cause,
                          CauseName(static_cast<int>(channel.cause & 0x7F))),
              fmt::format("  sound that waits to be played: {:.2f} s", channel.queuedBytes / 8000.0),
              fmt::format("  blocks lost: {} from the line, {} to the line", channel.lostReceived, channel.lostSent)};
    }
  }
  return {};
}

}  // namespace trace

// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "trace/core/board.h"
#include "trace/core/text.h"
#include "trace/program/board_live.h"
#include "trace/program/board_screen.h"
#include "trace/program/board_view.h"
#include "trace/program/commands.h"
#include "trace/program/page_report.h"
#include "trace/program/run.h"

namespace trace {
namespace {

using nlohmann::ordered_json;

std::string Layer1(const SBoardTrunk& trunk) {
  if (!trunk.status) {
    return "?";
  }
  return *trunk.status == 0 ? "ok" : fmt::format("out({})", *trunk.status);
}

std::string Layer2(const SBoardTrunk& trunk) {
  return !trunk.isUp ? "?" : *trunk.isUp ? "up" : "down";
}

std::string Milliseconds(const std::optional<double>& value) {
  return value ? fmt::format("{:.2f}", *value) : "-";
}

double Hours(const CBoard& board) {
  return static_cast<double>(std::max<Time>(board.Now() - board.Begin(), 1)) / (3600.0 * static_cast<double>(kSecond));
}

// Channels are the timeslots but for framing and signalling.
bool IsChannel(int timeslot) {
  return timeslot != 0 && timeslot != tool::kSignallingTimeslot;
}

std::string BoardText(const CBoard& board) {
  std::string text =
      fmt::format("{}\n{:<18} {:<7} {:<5} {:<24} {:>6} {:>7} {:>9} {:>8}  {}\n", IsoTime(board.Now()), "trunk",
                  "layer1", "layer2", "last change", "HDLC", "calls/h", "answered", "starved", "channels");
  for (const auto& [address, card] : board.Cards()) {
    for (std::size_t i = 0; i < card.trunks.size(); ++i) {
      const SBoardTrunk& trunk = card.trunks[i];
      const double share =
          trunk.calls == 0 ? 0 : 100.0 * static_cast<double>(trunk.connected) / static_cast<double>(trunk.calls);
      text += fmt::format("{:<18} {:<7} {:<5} {:<24} {:>6} {:>7.0f} {:>7.0f} % {:>8}  {}\n",
                          CardNameOf(card) + "-" + std::to_string(i + 1), Layer1(trunk), Layer2(trunk),
                          IsoTime(trunk.changed), trunk.hdlcErrors, static_cast<double>(trunk.calls) / Hours(board),
                          share, trunk.starvedBlocks, CellsOf(trunk, board.Now()));
    }
    const SReplyCounts& counts = card.replies.Counts();
    text += fmt::format(
        "card {} at {}, {}: packets {}, lost {}, repeated {}; replies {}, late {}, missing {}, delay p50 {} ms, p99 {} "
        "ms\n",
        CardNameOf(card), AddressText(address), card.isConnected ? "connected" : "not connected", counts.packets,
        counts.lost, counts.repeated, counts.replies, counts.late, counts.missing,
        Milliseconds(card.replies.DelayMs(0.5)), Milliseconds(card.replies.DelayMs(0.99)));
  }
  return text + kCellLegend + "\n";
}

ordered_json JsonOf(const SBoardTrunk& trunk, std::size_t number) {
  ordered_json json{{"trunk", number},
                    {"layer1", trunk.status ? ordered_json(*trunk.status) : ordered_json(nullptr)},
                    {"layer2", Layer2(trunk)},
                    {"changed", IsoTime(trunk.changed)},
                    {"hdlcErrors", trunk.hdlcErrors},
                    {"calls", trunk.calls},
                    {"connected", trunk.connected},
                    {"starvedBlocks", trunk.starvedBlocks},
                    {"causes", ordered_json::object()},
                    {"channels", ordered_json::array()}};
  for (const auto& [cause, count] : trunk.causes) {
    json["causes"][std::to_string(cause)] = count;
  }
  for (int slot = 0; slot < tool::kTimeslots; ++slot) {
    const auto at = static_cast<std::size_t>(slot);
    if (IsChannel(slot)) {
      json["channels"].push_back(
          {{"timeslot", slot},
           {"state", ChannelName(trunk.channels[at])},
           {"call", trunk.callOn[at] == 0 ? ordered_json(nullptr) : ordered_json(trunk.callOn[at])}});
    }
  }
  return json;
}

ordered_json OrNull(const std::optional<double>& value) {
  return value ? ordered_json(*value) : ordered_json(nullptr);
}

std::string BoardJson(const CBoard& board) {
  ordered_json json{{"begin", IsoTime(board.Begin())}, {"now", IsoTime(board.Now())}, {"cards", ordered_json::array()}};
  for (const auto& [address, card] : board.Cards()) {
    const SReplyCounts& counts = card.replies.Counts();
    ordered_json each{{"card", card.serial == 0 ? ordered_json(nullptr) : ordered_json(card.serial)},
                      {"address", AddressText(address)},
                      {"connected", card.isConnected},
                      {"audio",
                       {{"packets", counts.packets},
                        {"lost", counts.lost},
                        {"repeated", counts.repeated},
                        {"replies", counts.replies},
                        {"late", counts.late},
                        {"missing", counts.missing},
                        {"delayP50Ms", OrNull(card.replies.DelayMs(0.5))},
                        {"delayP99Ms", OrNull(card.replies.DelayMs(0.99))}}},
                      {"trunks", ordered_json::array()}};
    for (std::size_t i = 0; i < card.trunks.size(); ++i) {
      each["trunks"].push_back(JsonOf(card.trunks[i], i + 1));
    }
    json["cards"].push_back(each);
  }
  return json.dump(2) + "\n";
}

using TrunkValue = std::optional<std::uint64_t> (*)(const SBoardTrunk&);

std::string TrunkFamily(const CBoard& board, const char* name, const char* type, const char* help, TrunkValue value) {
  std::string lines;
  for (const auto& [address, card] : board.Cards()) {
    for (std::size_t i = 0; i < card.trunks.size(); ++i) {
      if (const std::optional<std::uint64_t> number = value(card.trunks[i])) {
        lines += fmt::format("{}{{card=\"{}\",trunk=\"{}\"}} {}\n", name, CardNameOf(card), i + 1, *number);
      }
    }
  }
  return MetricFamily(name, type, help, lines);
}

using CardValue = std::optional<double> (*)(const SBoardCard&);

std::string CardFamily(const CBoard& board, const char* name, const char* type, const char* help, CardValue value) {
  std::string lines;
  for (const auto& [address, card] : board.Cards()) {
    if (const std::optional<double> number = value(card)) {
      lines += fmt::format("{}{{card=\"{}\"}} {}\n", name, CardNameOf(card), *number);
    }
  }
  return MetricFamily(name, type, help, lines);
}

std::optional<std::uint64_t> Channels(const SBoardTrunk& trunk, EChannel state) {
  std::uint64_t count = 0;
  for (int slot = 0; slot < tool::kTimeslots; ++slot) {
    count += IsChannel(slot) && trunk.channels[static_cast<std::size_t>(slot)] == state ? 1 : 0;
  }
  return count;
}

std::string TrunkMetrics(const CBoard& board) {
  using T = const SBoardTrunk&;
  return TrunkFamily(
             board, "zelk_trunk_in_service", "gauge", "Whether layer 1 of the trunk is in service.",
             [](T trunk) { return trunk.status ? std::optional<std::uint64_t>(*trunk.status == 0) : std::nullopt; }) +
         TrunkFamily(board, "zelk_trunk_up", "gauge", "Whether layer 2 of the trunk is established.",
                     [](T trunk) { return trunk.isUp ? std::optional<std::uint64_t>(*trunk.isUp) : std::nullopt; }) +
         TrunkFamily(board, "zelk_trunk_channels_connected", "gauge", "Channels with a connected call.",
                     [](T trunk) { return Channels(trunk, EChannel::kConnected); }) +
         TrunkFamily(board, "zelk_trunk_channels_idle", "gauge", "Channels without a call.",
                     [](T trunk) { return Channels(trunk, EChannel::kIdle); }) +
         TrunkFamily(board, "zelk_trunk_hdlc_errors_total", "counter", "HDLC errors that the card told.",
                     [](T trunk) { return std::optional(trunk.hdlcErrors); }) +
         TrunkFamily(board, "zelk_trunk_calls_total", "counter", "Calls that have ended.",
                     [](T trunk) { return std::optional(trunk.calls); }) +
         TrunkFamily(board, "zelk_trunk_calls_connected_total", "counter", "Calls of these that were connected.",
                     [](T trunk) { return std::optional(trunk.connected); }) +
         TrunkFamily(board, "zelk_trunk_starved_blocks_total", "counter",
                     "Blocks of 20 ms without sound from the application, on connected channels.",
                     [](T trunk) { return std::optional(trunk.starvedBlocks); });
}

std::string CardMetrics(const CBoard& board) {
  using C = const SBoardCard&;
  return CardFamily(board, "zelk_card_connected", "gauge", "Whether the card has a control connection.",
                    [](C card) { return std::optional(card.isConnected ? 1.0 : 0.0); }) +
         CardFamily(board, "zelk_card_audio_packets_lost_total", "counter",
                    "Audio packets of the card that never came.",
                    [](C card) { return std::optional(static_cast<double>(card.replies.Counts().lost)); }) +
         CardFamily(board, "zelk_card_replies_late_total", "counter", "Replies after more than 200 ms.",
                    [](C card) { return std::optional(static_cast<double>(card.replies.Counts().late)); }) +
         CardFamily(board, "zelk_card_replies_missing_total", "counter", "Replies that never came.",
                    [](C card) { return std::optional(static_cast<double>(card.replies.Counts().missing)); }) +
         CardFamily(board, "zelk_card_reply_delay_p50_seconds", "gauge", "Half of the replies took no longer.",
                    [](C card) {
                      const auto delay = card.replies.DelayMs(0.5);
                      return delay ? std::optional(*delay / 1000) : std::nullopt;
                    }) +
         CardFamily(board, "zelk_card_reply_delay_p99_seconds", "gauge", "99 of 100 replies took no longer.",
                    [](C card) {
                      const auto delay = card.replies.DelayMs(0.99);
                      return delay ? std::optional(*delay / 1000) : std::nullopt;
                    });
}

}  // namespace

namespace {

constexpr int kLookSeconds = 5;  // at an adapter, when it is to be shown once

EExit ReportPage(const SBoardOptions& options) {
  const SPageLook look = LookAtPage(options.status);
  const bool isLive = look.why.empty();
  if (options.form == EBoardForm::kJson) {
    Print(isLive ? PageJson(look.page, look.now) : DeadPageJson(look.page, look.why));
  } else if (options.form == EBoardForm::kMetrics) {
    Print(isLive ? PageMetrics(look.page) : DeadPageMetrics());
  } else if (isLive) {
    Print(PageText(look.page, look.now));
  }
  if (!isLive) {
    FlushOutput();
    throw CTraceError(EExit::kNothingFound, look.why);
  }
  return EExit::kDone;
}

EExit ReportWire(const SBoardOptions& options) {
  SInput input = options.input;
  if (!input.adapter.empty() && input.seconds == 0) {
    input.seconds = kLookSeconds;
  }
  CBoard board;
  const EExit result = Analyse(input, board);
  switch (options.form) {
    case EBoardForm::kJson:
      Print(BoardJson(board));
      break;
    case EBoardForm::kMetrics:
      Print(TrunkMetrics(board) + CardMetrics(board));
      break;
    case EBoardForm::kText:
      Print(BoardText(board));
  }
  return result;
}

}  // namespace

EExit RunBoard(const SBoardOptions& options) {
  const bool hasWire = !options.input.file.empty() || !options.input.adapter.empty();
  if (options.input.file.empty() && !options.once && options.form == EBoardForm::kText && ScreenIsPossible()) {
    return RunLiveBoard(options);
  }
  if (!hasWire) {
    return ReportPage(options);
  }
  const EExit result = ReportWire(options);
  return options.status.empty() ? result : std::max(result, ReportPage(options));
}

}  // namespace trace

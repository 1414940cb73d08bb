// SPDX-License-Identifier: GPL-2.0-only
#include "trace/program/page_report.h"

#include <fmt/format.h>

#include <map>
#include <nlohmann/json.hpp>

#include "trace/core/text.h"

namespace trace {
namespace {

using nlohmann::ordered_json;

ordered_json Moment(Time time) {
  return time == 0 ? ordered_json(nullptr) : ordered_json(IsoTime(time));
}

ordered_json JsonOf(const SPageChannel& channel, int timeslot, char cell) {
  static const std::map<char, const char*> kNames = {{'.', "idle"},      {'i', "ringing"},  {'o', "dialled"},
                                                     {'C', "connected"}, {'-', "clearing"}, {'x', "down"}};
  return {{"timeslot", timeslot},
          {"channel", channel.number ? ordered_json(*channel.number) : ordered_json(nullptr)},
          {"open", channel.isOpen},
          {"state", kNames.at(cell)},
          {"changed", Moment(channel.changed)},
          {"offered", channel.offered},
          {"dialled", channel.dialled},
          {"connected", channel.connected},
          {"cause", channel.cause == 0 ? ordered_json(nullptr) : ordered_json(channel.cause)},
          {"queuedMs", channel.queuedBytes / 8},
          {"lostReceived", channel.lostReceived},
          {"lostSent", channel.lostSent}};
}

ordered_json JsonOf(const SPageTrunk& trunk, std::size_t number, const SBoardRow& row) {
  ordered_json json{{"trunk", number},
                    {"layer1", trunk.lineStatus},
                    {"layer2", row.layer2},
                    {"changed", Moment(trunk.changed)},
                    {"hdlcErrors", trunk.hdlcErrors},
                    {"queueOverflows", trunk.queueOverflows},
                    {"linkResets", trunk.linkResets},
                    {"channels", ordered_json::array()}};
  for (int cell = 0; cell < static_cast<int>(row.cells.size()); ++cell) {
    const int slot = TimeslotOfCell(cell);
    json["channels"].push_back(
        JsonOf(trunk.channels[static_cast<std::size_t>(slot)], slot, row.cells[static_cast<std::size_t>(cell)]));
  }
  return json;
}

ordered_json JsonOf(const SPageCard& card) {
  ordered_json json{{"card", card.serial},
                    {"number", card.number},
                    {"address", AddressText(card.address)},
                    {"state", PageCardStateName(card.state)},
                    {"changed", Moment(card.changed)},
                    {"opens", card.opens},
                    {"threads", ordered_json::object()},
                    {"trunks", ordered_json::array()}};
  for (std::size_t i = 0; i < card.threads.size(); ++i) {
    json["threads"][PageThreadName(i)] = {{"seen", Moment(card.threads[i].seen)},
                                          {"latestMs", card.threads[i].latestMs},
                                          {"latestAt", Moment(card.threads[i].latestAt)}};
  }
  return json;
}

ordered_json Head(const SStatusPage& page, bool isLive) {
  return {{"source", "status page"},
          {"live", isLive},
          {"process", page.process},
          {"started", Moment(page.started)},
          {"heartbeat", Moment(page.heartbeat)}};
}

std::string TrunkLines(const SStatusPage& page, const char* name, std::uint64_t (*value)(const SPageTrunk&)) {
  std::string lines;
  for (const SPageCard& card : page.cards) {
    for (std::size_t i = 0; i < card.trunks.size(); ++i) {
      lines += fmt::format("{}{{card=\"{}\",trunk=\"{}\"}} {}\n", name, CardNameOf(card), i + 1, value(card.trunks[i]));
    }
  }
  return lines;
}

template <class Value>
std::uint64_t Sum(const SPageTrunk& trunk, Value value) {
  std::uint64_t sum = 0;
  for (const SPageChannel& channel : trunk.channels) {
    sum += channel.number ? static_cast<std::uint64_t>(value(channel)) : 0;
  }
  return sum;
}

std::string TrunkMetrics(const SStatusPage& page) {
  using T = const SPageTrunk&;
  using C = const SPageChannel&;
  const auto family = [&](const char* name, const char* type, const char* help, std::uint64_t (*value)(T)) {
    return MetricFamily(name, type, help, TrunkLines(page, name, value));
  };
  return family("zelk_trunk_in_service", "gauge", "Whether layer 1 of the trunk is in service.",
                [](T trunk) -> std::uint64_t { return trunk.lineStatus == 0 ? 1 : 0; }) +
         family("zelk_trunk_up", "gauge", "Whether layer 2 of the trunk is established.",
                [](T trunk) -> std::uint64_t { return trunk.isUp ? 1 : 0; }) +
         family("zelk_trunk_hdlc_errors_total", "counter", "HDLC errors that the card told.",
                [](T trunk) -> std::uint64_t { return trunk.hdlcErrors; }) +
         family("zelk_trunk_channels_open", "gauge", "Channels that the application has open.",
                [](T trunk) { return Sum(trunk, [](C channel) { return channel.isOpen ? 1 : 0; }); }) +
         family("zelk_trunk_channels_connected", "gauge", "Channels with a connected call.",
                [](T trunk) {
                  return Sum(trunk, [](C channel) { return channel.state == EPageCall::kConnected ? 1 : 0; });
                }) +
         family("zelk_trunk_blocks_lost_received_total", "counter",
                "Blocks of 20 ms from the line that the application was too late for.",
                [](T trunk) { return Sum(trunk, [](C channel) { return channel.lostReceived; }); }) +
         family("zelk_trunk_blocks_lost_sent_total", "counter", "Blocks of 20 ms to the line that were not there.",
                [](T trunk) { return Sum(trunk, [](C channel) { return channel.lostSent; }); });
}

}  // namespace

std::string MetricFamily(const char* name, const char* type, const char* help, const std::string& values) {
  return values.empty() ? "" : fmt::format("# HELP {0} {2}\n# TYPE {0} {1}\n{3}", name, type, help, values);
}

std::string PageText(const SStatusPage& page, Time now) {
  const SBoardView view = ViewOf(page, now);
  std::string text = fmt::format(
      "{}  status page of process {}, started {}\n{:<18} {:<6} {:<6} {:>6} {:>6} {:>8}  {}\n", IsoTime(now),
      page.process, IsoTime(page.started), "trunk", "layer1", "layer2", "HDLC", "lost", "starved", "channels");
  for (const SBoardRow& row : view.rows) {
    text += fmt::format("{:<18} {:<6} {:<6} {:>6} {:>6} {:>8}  {}\n", row.name, row.layer1, row.layer2, row.hdlcErrors,
                        row.lost, row.starved, row.cells);
  }
  for (const SPageCard& card : page.cards) {
    text += fmt::format("card {} at {}, {}, opened {} times;", CardNameOf(card), AddressText(card.address),
                        PageCardStateName(card.state), card.opens);
    for (std::size_t i = 0; i < card.threads.size(); ++i) {
      text += fmt::format(" {} at most {} ms late{}", PageThreadName(i), card.threads[i].latestMs,
                          i + 1 < card.threads.size() ? "," : "\n");
    }
  }
  for (std::size_t i = 0; i < page.callbacks.size(); ++i) {
    const SPageCallback& callback = page.callbacks[i];
    text += fmt::format("{} callback: slowest {:.3f} ms (channel {}), over 20 ms: {}\n", PageCallbackName(i),
                        static_cast<double>(callback.slowestUs) / 1000, callback.slowestChannel, callback.overBlock);
  }
  return text + kCellLegend + "\n";
}

std::string PageJson(const SStatusPage& page, Time now) {
  ordered_json json = Head(page, true);
  json["now"] = IsoTime(now);
  json["callbacks"] = ordered_json::object();
  for (std::size_t i = 0; i < page.callbacks.size(); ++i) {
    const SPageCallback& callback = page.callbacks[i];
    json["callbacks"][PageCallbackName(i)] = {{"slowestMs", static_cast<double>(callback.slowestUs) / 1000},
                                              {"slowestAt", Moment(callback.slowestAt)},
                                              {"slowestChannel", callback.slowestChannel},
                                              {"over20Ms", callback.overBlock}};
  }
  json["cards"] = ordered_json::array();
  const SBoardView view = ViewOf(page, now);
  std::size_t row = 0;
  for (const SPageCard& card : page.cards) {
    json["cards"].push_back(JsonOf(card));
    for (std::size_t i = 0; i < card.trunks.size(); ++i) {
      json["cards"].back()["trunks"].push_back(JsonOf(card.trunks[i], i + 1, view.rows[row++]));
    }
  }
  return json.dump(2) + "\n";
}

std::string PageMetrics(const SStatusPage& page) {
  std::string slowest;
  std::string over;
  for (std::size_t i = 0; i < page.callbacks.size(); ++i) {
    slowest += fmt::format("zelk_callback_slowest_seconds{{kind=\"{}\"}} {}\n", PageCallbackName(i),
                           static_cast<double>(page.callbacks[i].slowestUs) / 1e6);
    over +=
        fmt::format("zelk_callback_slow_total{{kind=\"{}\"}} {}\n", PageCallbackName(i), page.callbacks[i].overBlock);
  }
  std::string open;
  std::string late;
  for (const SPageCard& card : page.cards) {
    open += fmt::format("zelk_card_connected{{card=\"{}\"}} {}\n", CardNameOf(card), card.state == 1 ? 1 : 0);
    for (std::size_t i = 0; i < card.threads.size(); ++i) {
      late += fmt::format("zelk_thread_latest_seconds{{card=\"{}\",thread=\"{}\"}} {}\n", CardNameOf(card),
                          PageThreadName(i), card.threads[i].latestMs / 1000.0);
    }
  }
  return MetricFamily("zelk_library_running", "gauge", "Whether the library of the status page runs.",
                      "zelk_library_running 1\n") +
         MetricFamily("zelk_card_connected", "gauge", "Whether the card has a control connection.", open) +
         TrunkMetrics(page) +
         MetricFamily("zelk_callback_slowest_seconds", "gauge", "The longest that a callback of the application took.",
                      slowest) +
         MetricFamily("zelk_callback_slow_total", "counter", "Callbacks that took more than 20 ms.", over) +
         MetricFamily("zelk_thread_latest_seconds", "gauge", "The latest that a thread of the card was.", late);
}

std::string DeadPageJson(const SStatusPage& page, const std::string& why) {
  ordered_json json = Head(page, false);
  json["why"] = why;
  return json.dump(2) + "\n";
}

std::string DeadPageMetrics() {
  return MetricFamily("zelk_library_running", "gauge", "Whether the library of the status page runs.",
                      "zelk_library_running 0\n");
}

}  // namespace trace

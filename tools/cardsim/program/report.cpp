// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/program/report.h"

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace cardsim {
namespace {

using nlohmann::ordered_json;

template <typename... T>
std::string Format(const char* format, T... values) {
  char text[256];
  std::snprintf(text, sizeof(text), format, values...);
  return text;
}

unsigned long long Wide(std::uint64_t value) {
  return value;
}

std::string CausesText(const SCallTotals& totals) {
  std::string text;
  for (const auto& [cause, count] : totals.causes) {
    text += Format("%s%d: %llu", text.empty() ? "" : ", ", cause, Wide(count));
  }
  return text.empty() ? "none" : text;
}

ordered_json CallsJson(const SCallTotals& totals) {
  ordered_json causes = ordered_json::object();
  for (const auto& [cause, count] : totals.causes) {
    causes[std::to_string(cause)] = count;
  }
  return {{"offered", totals.offered},
          {"taken", totals.taken},
          {"connected", totals.connected},
          {"ended", totals.ended},
          {"causes", causes}};
}

ordered_json AudioJson(const SAudioStatistics& audio) {
  return {{"packets", audio.packetsSent},
          {"replies", audio.replies},
          {"late", audio.late},
          {"missing", audio.missing},
          {"cutOff", audio.cutOff},
          {"wrongSize", audio.wrongSize},
          {"sequenceGaps", audio.sequenceGaps},
          {"badMagic", audio.badMagic},
          {"surplus", audio.surplus},
          {"lossesSeen", audio.losses},
          {"oldPacketsSeen", audio.oldPackets},
          {"oldResetsSeen", audio.oldResets},
          {"meanRoundTripMs", audio.meanRoundTripMs},
          {"worstRoundTripMs", audio.worstRoundTripMs}};
}

ordered_json NetworkJson(const CAudioPort& audio) {
  const SAudioFaultCounts counts = audio.FaultCounts();
  return {{"lost", counts.lost},
          {"duplicated", counts.duplicated},
          {"reordered", counts.reordered},
          {"echoSamplesTooLate", audio.EchoesTooLate()}};
}

ordered_json CallJson(const SCallRecord& call) {
  ordered_json json{{"number", call.number},
                    {"card", call.card + 1},
                    {"trunk", call.trunk + 1},
                    {"timeslot", call.timeslot},
                    {"direction", call.fromLibrary ? "from library" : "to library"},
                    {"calling", call.calling},
                    {"called", call.called},
                    {"connected", call.connected},
                    {"setupMs", call.setupMs},
                    {"durationMs", call.durationMs},
                    {"cause", call.cause},
                    {"clearedBy", ClearedByName(call.clearedBy)},
                    {"recordedBytes", call.recordedBytes}};
  if (!call.file.empty()) {
    json["file"] = call.file;
  }
  return json;
}

int TrunksUp(const CCard& card) {
  int up = 0;
  for (int trunk = 0; trunk < card.TrunkCount(); ++trunk) {
    up += card.Seen().IsTrunkUp(trunk) ? 1 : 0;
  }
  return up;
}

}  // namespace

std::string StatusText(const CSimulator& sim, const CTraffic& traffic) {
  int up = 0;
  int trunks = 0;
  std::uint64_t late = 0;
  std::uint64_t missing = 0;
  for (std::size_t i = 0; i < sim.CardCount(); ++i) {
    const SAudioStatistics audio = sim.Card(i).Audio().Statistics();
    up += TrunksUp(sim.Card(i));
    trunks += sim.Card(i).TrunkCount();
    late += audio.late;
    missing += audio.missing;
  }
  const SCallTotals sum = traffic.Sum();
  return Format(
      "trunks up %d/%d, calls now %zu, offered %llu, ended %llu (connected %llu), replies late %llu missing %llu", up,
      trunks, traffic.Active(), Wide(sum.offered), Wide(sum.ended), Wide(sum.connected), Wide(late), Wide(missing));
}

void ShowCards(CSimulator& sim, bool isAnnounced) {
  for (std::size_t i = 0; i < sim.CardCount(); ++i) {
    std::printf("card %zu: %s:%d, serial %u, %d trunks\n", i + 1, sim.Card(i).Address().c_str(), kCardPort,
                sim.Card(i).Serial(), sim.Card(i).TrunkCount());
    if (isAnnounced) {
      sim.Card(i).Announce();
    }
  }
  std::fflush(stdout);
}

std::string SummaryText(const CSimulator& sim, const CTraffic& traffic, double seconds) {
  std::string text = Format("Summary after %.1f s\n", seconds);
  for (std::size_t i = 0; i < sim.CardCount(); ++i) {
    const CCard& card = sim.Card(i);
    const SAudioStatistics audio = card.Audio().Statistics();
    const SCallTotals& calls = traffic.Totals(static_cast<int>(i));
    text += Format("card %zu (%s, serial %u, %d trunks): connections %d\n", i + 1, card.Address().c_str(),
                   card.Serial(), card.TrunkCount(), card.Seen().Connections());
    text += Format("  packets %llu, replies %llu, late %llu, missing %llu, wrong size %llu, gaps %llu, ",
                   Wide(audio.packetsSent), Wide(audio.replies), Wide(audio.late), Wide(audio.missing),
                   Wide(audio.wrongSize), Wide(audio.sequenceGaps));
    text += Format("round trip mean %.2f ms, worst %.2f ms\n", audio.meanRoundTripMs, audio.worstRoundTripMs);
    text += Format("  calls offered %llu, taken %llu, connected %llu, ended %llu; causes: ", Wide(calls.offered),
                   Wide(calls.taken), Wide(calls.connected), Wide(calls.ended));
    text += CausesText(calls) + "\n";
  }
  return text;
}

std::string ReportJson(const CSimulator& sim, const CTraffic& traffic, double seconds) {
  ordered_json report{{"seconds", seconds}, {"totals", CallsJson(traffic.Sum())}};
  report["cards"] = ordered_json::array();
  for (std::size_t i = 0; i < sim.CardCount(); ++i) {
    const CCard& card = sim.Card(i);
    report["cards"].push_back({{"card", i + 1},
                               {"address", card.Address()},
                               {"serial", card.Serial()},
                               {"trunks", card.TrunkCount()},
                               {"connections", card.Seen().Connections()},
                               {"audio", AudioJson(card.Audio().Statistics())},
                               {"network", NetworkJson(card.Audio())},
                               {"calls", CallsJson(traffic.Totals(static_cast<int>(i)))}});
  }
  report["calls"] = ordered_json::array();
  for (const SCallRecord& call : traffic.Records()) {
    report["calls"].push_back(CallJson(call));
  }
  // Numbers come from the line: bytes that are no UTF-8 are replaced, not refused.
  return report.dump(2, ' ', false, ordered_json::error_handler_t::replace);
}

void WriteReport(const std::string& path, const std::string& json) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << json << "\n";
  file.close();
  if (!file) {
    throw std::runtime_error(path + ": the report cannot be written");
  }
}

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include "doctor/core/rules.h"

namespace doctor {
namespace {

constexpr Time kTimeToReply = trace::kSecond;
constexpr Time kTimeToConnect = 3 * trace::kSecond;
constexpr std::uint64_t kManyConnections = 5;
constexpr std::uint64_t kRequestsOfInformation = 3;

double Seconds(Time time) {
  return static_cast<double>(time) / static_cast<double>(trace::kSecond);
}

void CheckDiscovery(const SWireFacts& wire, Findings& findings) {
  std::uint64_t heard = 0;
  for (const auto& [address, card] : wire.cards) {
    heard += card.replies.count + card.connections.count;
  }
  if (wire.probes.count > 0 && heard == 0 && wire.end - wire.probes.last.time >= kTimeToReply) {
    findings.push_back(Find("discovery-no-reply",
                            fmt::format("No card answers; the library asked {}.",
                                        wire.probes.count == 1 ? "once" : std::to_string(wire.probes.count) + " times"),
                            PlacesOf(wire.probes, "probe of the library")));
  }
}

void CheckOpening(const SWireFacts& wire, const SCardFacts& card, Findings& findings) {
  const std::string name = CardName(card);
  if (card.replies.count > 0 && card.connections.count == 0 && wire.end - card.replies.last.time >= kTimeToConnect) {
    findings.push_back(Find("discovery-not-heard",
                            fmt::format("Card {} answers the probes, and the library does not connect to it.", name),
                            PlacesOf(card.replies, "reply of the card")));
  }
  if (card.unanswered.count > 0) {
    findings.push_back(
        Find("connection-no-answer",
             fmt::format("Card {} does not answer when the library connects to its TCP port 5854.", name),
             PlacesOf(card.unanswered, "SYN of the library, nothing came back")));
  }
  if (card.refused.count > 0) {
    findings.push_back(Find("connection-refused", fmt::format("Card {} refuses the control connection.", name),
                            PlacesOf(card.refused, "RST of the card after the library's SYN")));
  }
  if (card.badInformation.count > 0) {
    findings.push_back(Find("card-bad-information",
                            fmt::format("Card {} says of itself what the library does not take.", name),
                            PlacesOf(card.badInformation, "card information")));
  } else if (card.informationRequests.count >= kRequestsOfInformation && card.informationMessages == 0) {
    findings.push_back(Find("card-says-nothing",
                            fmt::format("Card {} takes the control connection and does not say what it is.", name),
                            PlacesOf(card.informationRequests, "the library asks for the card's information")));
  }
}

void CheckLife(const SCardFacts& card, Findings& findings) {
  const std::string name = CardName(card);
  if (card.silences.count > 0) {
    findings.push_back(
        Find("card-silent",
             fmt::format("Card {} said nothing on its control connection for {:.1f} s, and a library takes it as lost "
                         "after 1 s.",
                         name, Seconds(card.longestSilence)),
             PlacesOf(card.silences, "the last bytes before a silence")));
  }
  if (card.endedByCard.count > 0) {
    findings.push_back(Find("connection-ended-by-card", fmt::format("Card {} closed its control connection.", name),
                            PlacesOf(card.endedByCard, "FIN or RST of the card")));
  }
  if (card.connections.count >= kManyConnections) {
    findings.push_back(Find("connections-many",
                            fmt::format("Card {} was connected {} times.", name, card.connections.count),
                            PlacesOf(card.connections, "control connection")));
  }
}

}  // namespace

Findings ConnectionRules(const SWireFacts& wire) {
  Findings findings;
  CheckDiscovery(wire, findings);
  for (const auto& [address, card] : wire.cards) {
    CheckOpening(wire, card, findings);
    CheckLife(card, findings);
  }
  return findings;
}

Findings WireRules(const SWireFacts& wire) {
  Findings findings;
  if (!wire.fault.empty()) {
    findings.push_back(Find("capture-cut", wire.fault + "."));
  }
  if (!wire.emptiness.empty()) {
    findings.push_back(Find("capture-empty", wire.emptiness + "."));
  }
  for (const std::string& note : wire.notes) {
    findings.push_back(Find("capture-note", wire.source + ": " + note + "."));
  }
  Append(findings, ConnectionRules(wire));
  Append(findings, LineRules(wire));
  Append(findings, CallRules(wire));
  Append(findings, AudioRules(wire));
  Append(findings, ClockRules(wire));
  return findings;
}

}  // namespace doctor

// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <cmath>

#include "doctor/core/rules.h"

namespace doctor {
namespace {

constexpr std::uint64_t kFramesAnError = 1000;  // more errors than that are worth a look
constexpr std::uint64_t kFewErrors = 3;
constexpr std::size_t kRegularErrors = 6;
constexpr double kRegular = 0.1;  // deviation of the intervals, as a share of them
constexpr double kSecondsOfFrame = 125e-6;
constexpr std::uint64_t kFlapping = 3;
constexpr std::uint64_t kSabmes = 3;
constexpr int kCrc = 2;
constexpr int kAbort = 3;

std::string HdlcName(int code) {
  switch (code) {
    case kCrc:
      return "CRC";
    case kAbort:
      return "abort";
    case 4:
      return "overrun";
    case 8:
      return "buffer overflow";
    default:
      return "code " + std::to_string(code);
  }
}

double Seconds(Time time) {
  return static_cast<double>(time) / static_cast<double>(trace::kSecond);
}

// Seconds between errors where these are as regular as a clock that slips makes them; else 0.
double RegularInterval(const std::vector<Time>& times) {
  if (times.size() < kRegularErrors) {
    return 0;
  }
  const double count = static_cast<double>(times.size() - 1);
  const double mean = Seconds(times.back() - times.front()) / count;
  double squares = 0;
  for (std::size_t i = 1; i < times.size(); ++i) {
    const double rest = Seconds(times[i] - times[i - 1]) - mean;
    squares += rest * rest;
  }
  return mean > 0.1 && std::sqrt(squares / count) < kRegular * mean ? mean : 0;
}

void CheckLayer1(const STrunkFacts& trunk, const std::string& name, Findings& findings) {
  if (trunk.status.value_or(0) != 0) {
    findings.push_back(Find("layer1-out",
                            fmt::format("Trunk {}: layer 1 is out of service (status {}).", name, *trunk.status),
                            {PlaceText(trunk.statusSince) + ": the card tells it"}));
  } else if (trunk.outages.count > 0) {
    findings.push_back(Find("layer1-flapping",
                            fmt::format("Trunk {}: layer 1 went out of service {}, and is in service now.", name,
                                        trunk.outages.count == 1 ? "once" : Counted(trunk.outages.count, "time")),
                            PlacesOf(trunk.outages, "out of service")));
  }
}

void CheckHdlc(const STrunkFacts& trunk, const std::string& name, Time length, Findings& findings) {
  std::uint64_t line = 0;
  std::uint64_t card = 0;
  std::vector<std::string> evidence;
  std::string kinds;
  for (const auto& [code, tally] : trunk.hdlcErrors) {
    (code == kCrc || code == kAbort ? line : card) += tally.count;
    kinds += fmt::format("{}{} {}", kinds.empty() ? "" : ", ", HdlcName(code), tally.count);
    for (const std::string& place : PlacesOf(tally, HdlcName(code))) {
      evidence.push_back(place);
    }
  }
  if (line + card == 0) {
    return;
  }
  const std::string sums = fmt::format("{} in {:.0f} s beside {} ({})", Counted(line + card, "HDLC error"),
                                       Seconds(length), Counted(trunk.framesFromLine, "good frame"), kinds);
  if (trunk.hdlcResets.count > 0) {
    findings.push_back(Find("hdlc-line-bad", fmt::format("Trunk {}: the line cannot be read: {}.", name, sums),
                            PlacesOf(trunk.hdlcResets, "ten errors without a good frame between them")));
  } else if (const double interval = RegularInterval(trunk.hdlcTimes); interval > 0) {
    findings.push_back(Find("hdlc-slips",
                            fmt::format("Trunk {}: an HDLC error comes every {:.1f} s, as it does where two clocks are "
                                        "{:.1f} ppm apart: {}.",
                                        name, interval, kSecondsOfFrame / interval * 1e6, sums),
                            evidence));
  } else if (card >= kFewErrors && card > line) {
    findings.push_back(Find("hdlc-card", fmt::format("Trunk {}: the card loses frames: {}.", name, sums), evidence));
  } else if (line + card >= kFewErrors && (line + card) * kFramesAnError > trunk.framesFromLine) {
    findings.push_back(Find("hdlc-errors", fmt::format("Trunk {}: the line has errors: {}.", name, sums), evidence));
  } else {
    findings.push_back(Find("hdlc-few", fmt::format("Trunk {}: {}, which layer 2 repairs.", name, sums), evidence));
  }
}

void CheckLayer2(const STrunkFacts& trunk, const std::string& name, Findings& findings) {
  const bool isSameSide = trunk.libraryIsNetwork && trunk.libraryIsNetwork == trunk.lineIsNetwork;
  if (isSameSide && !trunk.wasUp) {
    findings.push_back(
        Find("layer2-same-side",
             fmt::format("Trunk {}: both ends play the {} side of the D-channel, so layer 2 does not come "
                         "up.",
                         name, *trunk.libraryIsNetwork ? "network" : "user"),
             {PlaceText(trunk.sabmeFromLibrary.first) + ": SABME of the library",
              PlaceText(trunk.sabmeFromLine.first) + ": SABME of the exchange"}));
  } else if (!trunk.wasUp && trunk.sabmeFromLibrary.count >= kSabmes && trunk.uaFromLine == 0) {
    findings.push_back(
        Find("layer2-no-answer",
             fmt::format("Trunk {}: the exchange does not answer the library's SABME; {}.", name,
                         trunk.framesFromLine == 0 ? "nothing at all comes from the line"
                                                   : Counted(trunk.framesFromLine, "other frame") + " came"),
             PlacesOf(trunk.sabmeFromLibrary, "SABME of the library")));
  } else if (trunk.drops.count >= kFlapping) {
    findings.push_back(Find("layer2-flapping",
                            fmt::format("Trunk {}: layer 2 went down {} times.", name, trunk.drops.count),
                            PlacesOf(trunk.drops, "layer 2 goes down")));
  } else if (trunk.wasUp && trunk.isUp == false) {
    findings.push_back(Find("layer2-down", fmt::format("Trunk {}: layer 2 went down and did not come up again.", name),
                            PlacesOf(trunk.drops, "layer 2 goes down")));
  }
}

}  // namespace

Findings LineRules(const SWireFacts& wire) {
  Findings findings;
  for (const auto& [address, card] : wire.cards) {
    for (std::size_t i = 0; i < card.trunks.size(); ++i) {
      const std::string name = TrunkName(card, i);
      CheckLayer1(card.trunks[i], name, findings);
      CheckHdlc(card.trunks[i], name, wire.end - wire.begin, findings);
      CheckLayer2(card.trunks[i], name, findings);
    }
  }
  return findings;
}

}  // namespace doctor

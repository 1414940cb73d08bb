// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <cmath>

#include "doctor/core/rules.h"

namespace doctor {
namespace {

constexpr Time kTimeToSound = 3 * trace::kSecond;
constexpr std::uint64_t kEnoughPackets = 100;
// One packet in so many is too much, and so is that part of the time; fewer than a few are chance.
constexpr std::uint64_t kShare = 1000;
constexpr std::uint64_t kFewPackets = 2;
constexpr std::uint64_t kFewStarved = 9;  // blocks of 20 ms
constexpr Time kShareOfTime = 1000;
constexpr Time kLongPause = trace::kSecond;
constexpr double kShortestVerdict = 30;  // seconds of measuring
constexpr double kClockTolerance = 100;  // ppm: 50 of an E1 line and 50 of a machine
constexpr double kSameClock = 1;         // ppm

double Milliseconds(Time time) {
  return static_cast<double>(time) / static_cast<double>(trace::kMillisecond);
}

bool IsMany(std::uint64_t count, std::uint64_t all) {
  return count * kShare >= all && count > kFewPackets;
}

void CheckFlow(const SCardFacts& card, Time end, Findings& findings) {
  const std::string name = CardName(card);
  const bool isWaiting = card.audioPort.time != 0 && card.last - card.audioPort.time >= kTimeToSound;
  if (isWaiting && card.audioFromCard.count == 0) {
    findings.push_back(Find("audio-none", fmt::format("Card {} sends no sound.", name),
                            {PlaceText(card.audioPort) + ": the library tells its audio port"}));
  }
  if (card.audioFromCard.count >= kEnoughPackets && card.audioToCard.count == 0 &&
      end - card.audioFromCard.first.time >= kTimeToSound) {
    findings.push_back(Find("audio-no-replies",
                            fmt::format("Card {} sends sound and the library sends none back.", name),
                            PlacesOf(card.audioFromCard, "sound of the card")));
  }
}

void CheckPackets(const SCardFacts& card, Findings& findings) {
  const std::string name = CardName(card);
  const trace::SReplyCounts& audio = card.audio;
  const std::vector<std::string> evidence = PlacesOf(card.audioFromCard, "sound of the card");
  if (IsMany(audio.lost, audio.packets)) {
    findings.push_back(Find("audio-lost",
                            fmt::format("Card {}: {} of {} of sound did not arrive.", name, audio.lost,
                                        Counted(audio.packets + audio.lost, "packet")),
                            evidence));
  }
  if (IsMany(audio.repeated, audio.packets)) {
    findings.push_back(Find("audio-double",
                            fmt::format("Card {}: {} of {} of sound came twice or behind later ones.", name,
                                        audio.repeated, Counted(audio.packets, "packet")),
                            evidence));
  }
  const Time length = card.audioFromCard.last.time - card.audioFromCard.first.time;
  if (card.longestPause >= kLongPause || (card.pauses.count > 0 && card.allPauses >= length / kShareOfTime)) {
    findings.push_back(Find("audio-late",
                            fmt::format("Card {}: no sound came for {:.0f} ms.", name, Milliseconds(card.longestPause)),
                            PlacesOf(card.pauses, "the first sound after a pause")));
  }
}

void CheckReplies(const SCardFacts& card, Findings& findings) {
  const std::string name = CardName(card);
  const trace::SReplyCounts& audio = card.audio;
  if (card.audioToCard.count == 0) {
    return;
  }
  const std::vector<std::string> evidence = PlacesOf(card.audioToCard, "reply of the library");
  if (IsMany(audio.late, audio.packets)) {
    findings.push_back(Find("replies-late",
                            fmt::format("Card {}: the library answered {} of {} of sound after more than 200 ms.", name,
                                        audio.late, Counted(audio.packets, "packet")),
                            evidence));
  }
  if (IsMany(audio.missing, audio.packets)) {
    findings.push_back(Find(
        "replies-missing",
        fmt::format("Card {}: the library left {} of sound without a reply.", name, Counted(audio.missing, "packet")),
        evidence));
  }
  if (card.delayP50 && card.delayP99) {
    findings.push_back(
        Find("reply-delay", fmt::format("Card {}: the library replies to sound within {:.2f} ms, in 99 of 100 cases "
                                        "within {:.2f} ms.",
                                        name, *card.delayP50, *card.delayP99)));
  }
}

void CheckTrunk(const STrunkFacts& trunk, const std::string& name, Findings& findings) {
  if (trunk.starvedBlocks > kFewStarved && trunk.starvedBlocks * kShare >= trunk.soundBlocks) {
    findings.push_back(Find("lines-starved",
                            fmt::format("Trunk {}: the library had no sound for connected calls in {} of 20 ms.", name,
                                        Counted(trunk.starvedBlocks, "block")),
                            {"54 in place of sound, on connected channels"}));
  }
  if (!trunk.deafCalls.empty()) {
    std::vector<std::string> calls;
    for (const SCallFacts& call : trunk.deafCalls) {
      calls.push_back(
          fmt::format("call {} on timeslot {}, {} s", call.number, call.timeslot, call.length / trace::kSecond));
    }
    findings.push_back(Find("sound-none-from-line",
                            fmt::format("Trunk {}: nothing came from the line in {} to which the library sent sound.",
                                        name, Counted(calls.size(), "connected call")),
                            calls));
  }
}

std::string RateText(const SClockFacts& clock) {
  return fmt::format("{:+.2f} ppm, give or take {:.2f}", clock.ppm, clock.error);
}

void CheckPair(const SCardFacts& one, const SCardFacts& other, Findings& findings) {
  const double apart = one.clock->ppm - other.clock->ppm;
  const double error = std::hypot(one.clock->error, other.clock->error);
  const bool isLong = one.clock->seconds >= kShortestVerdict && other.clock->seconds >= kShortestVerdict;
  if (isLong && std::abs(apart) > kSameClock + 2 * error) {
    findings.push_back(
        Find("clocks-differ",
             fmt::format("The clocks of cards {} and {} are {:.1f} ppm apart, give or take {:.1f}.", CardName(one),
                         CardName(other), std::abs(apart), error),
             {CardName(one) + ": " + RateText(*one.clock), CardName(other) + ": " + RateText(*other.clock)}));
  }
}

}  // namespace

Findings AudioRules(const SWireFacts& wire) {
  Findings findings;
  for (const auto& [address, card] : wire.cards) {
    CheckFlow(card, wire.end, findings);
    CheckPackets(card, findings);
    CheckReplies(card, findings);
    for (std::size_t i = 0; i < card.trunks.size(); ++i) {
      CheckTrunk(card.trunks[i], TrunkName(card, i), findings);
    }
  }
  return findings;
}

Findings ClockRules(const SWireFacts& wire) {
  Findings findings;
  std::vector<const SCardFacts*> measured;
  for (const auto& [address, card] : wire.cards) {
    if (!card.clock) {
      continue;
    }
    const SClockFacts& clock = *card.clock;
    const std::string text = fmt::format("Card {}: its clock runs at {} against this capture's, over {:.0f} s.",
                                         CardName(card), RateText(clock), clock.seconds);
    const bool isWrong = clock.seconds >= kShortestVerdict && std::abs(clock.ppm) - clock.error > kClockTolerance;
    findings.push_back(Find(isWrong ? "clock-wrong" : "clock-rate", text));
    for (const SCardFacts* other : measured) {
      CheckPair(*other, card, findings);
    }
    measured.push_back(&card);
  }
  return findings;
}

}  // namespace doctor

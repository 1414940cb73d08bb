// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "trace/core/q931_text.h"
#include "trace/core/text.h"
#include "trace/program/commands.h"
#include "trace/program/ladder.h"
#include "trace/program/run.h"

namespace trace {
namespace {

bool IsAsked(const SLadderOptions& options, const SCall& call) {
  return std::find(options.calls.begin(), options.calls.end(), call.number) != options.calls.end() ||
         options.trunk == fmt::format("{}-{}", CardName(call), call.trunk + 1);
}

// Job: keeps the messages of the calls that are asked for, and with layer 2 the frames of their D-channels from begin
// to end.
class CRungs : public ITraceSink {
 public:
  explicit CRungs(const SLadderOptions& ladderOptions) : options(ladderOptions) {}

  void OnFrame(const SConnection& connection, const SControl& frame, const tool::SQ921Frame& decoded,
               EVerdict verdict) override {
    if (!options.layer2) {
      return;
    }
    // The frame of the SETUP is here before its call.
    last = Rung(frame, decoded, verdict);
    for (SLadder* const ladder : open) {
      if (connection.number == ladder->call.connection && frame.trunk == ladder->call.trunk) {
        ladder->rungs.push_back(last);
      }
    }
  }
  void OnCallBegins(const SCall& call) override {
    if (!IsAsked(options, call)) {
      return;
    }
    SLadder& ladder = ladders[call.number] = {call, {}};
    open.push_back(&ladder);
    if (options.layer2) {
      ladder.rungs.push_back(last);
    }
  }
  void OnCallMessage(const SCall& call, const SSignal& signal) override {
    const auto found = ladders.find(call.number);
    if (found != ladders.end() && !options.layer2) {
      found->second.rungs.push_back({signal.frame.time, signal.frame.direction == EDirection::kToLibrary,
                                     signal.message.name, ElementsText(signal.message)});
    }
  }
  void OnCallEnds(const SCall& call) override {
    if (const auto found = ladders.find(call.number); found != ladders.end()) {
      found->second.call = call;
      std::erase(open, &found->second);
    }
  }

  const std::map<std::uint64_t, SLadder>& Ladders() const { return ladders; }

 private:
  static SRung Rung(const SControl& frame, const tool::SQ921Frame& decoded, EVerdict verdict) {
    SRung rung{frame.time, frame.direction == EDirection::kToLibrary, FrameText(decoded), {}};
    if (verdict == EVerdict::kBroken) {
      rung.name = frame.isFcsGood ? "broken" : "bad FCS";
    } else if (decoded.message.type != 0) {
      rung.name = decoded.message.name;
      rung.details = fmt::format("[{}, reference {}] {}", FrameText(decoded), decoded.message.callReference,
                                 ElementsText(decoded.message));
    }
    if (verdict == EVerdict::kRepeated) {
      rung.details += " (once more)";
    } else if (verdict == EVerdict::kOutOfSequence) {
      rung.details += " (out of sequence)";
    }
    return rung;
  }

  const SLadderOptions& options;
  SRung last;
  std::map<std::uint64_t, SLadder> ladders;  // by the call's number
  std::vector<SLadder*> open;
};

// Job: prints each message of every call as it comes.
class CFollower : public ITraceSink {
 public:
  explicit CFollower(const SLadderOptions& ladderOptions) : options(ladderOptions) {}

  void OnCallMessage(const SCall& call, const SSignal& signal) override {
    const bool isEvery = options.calls.empty() && options.trunk.empty();
    if (!isEvery && !IsAsked(options, call)) {
      return;
    }
    const bool isToLibrary = signal.frame.direction == EDirection::kToLibrary;
    Print(fmt::format("{}  {:<12} call {:<4} {}\n", IsoTime(signal.frame.time),
                      fmt::format("{}-{} {}", CardName(call), call.trunk + 1,
                                  call.timeslot < 0 ? "?" : std::to_string(call.timeslot)),
                      call.number,
                      RungText({signal.frame.time, isToLibrary, signal.message.name, ElementsText(signal.message)})));
    FlushOutput();
  }

 private:
  const SLadderOptions& options;
};

}  // namespace

EExit RunLadder(const SLadderOptions& options) {
  if (options.follow) {
    CFollower follower(options);
    return Analyse(options.input, follower);
  }
  CRungs rungs(options);
  const EExit result = Analyse(options.input, rungs);
  std::vector<SLadder> ladders;
  for (const auto& [number, ladder] : rungs.Ladders()) {
    ladders.push_back(ladder);
  }
  if (!options.svg.empty() && !ladders.empty()) {
    WriteFile(options.svg, LaddersSvg(ladders));
  }
  for (std::size_t i = 0; options.svg.empty() && i < ladders.size(); ++i) {
    Print((i == 0 ? "" : "\n") + LadderText(ladders[i]));
  }
  const EExit missing = result == EExit::kBadInput ? result : EExit::kNothingFound;
  for (const std::uint64_t call : options.calls) {
    if (!rungs.Ladders().contains(call)) {
      throw CTraceError(missing, fmt::format("{}: has no call {}", options.input.file, call));
    }
  }
  if (ladders.empty()) {
    throw CTraceError(missing,
                      fmt::format("{}: has no call of trunk {}", options.input.file, Printable(options.trunk)));
  }
  return result;
}

}  // namespace trace

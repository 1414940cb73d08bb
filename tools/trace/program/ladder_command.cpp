// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <deque>
#include <optional>

#include "trace/core/q931_text.h"
#include "trace/core/text.h"
#include "trace/program/commands.h"
#include "trace/program/ladder.h"
#include "trace/program/run.h"

namespace trace {
namespace {

// Job: keeps the messages of one call, and with layer 2 the frames of its D-channel from its begin to its end.
class CRungs : public ITraceSink {
 public:
  explicit CRungs(const SLadderOptions& ladderOptions) : options(ladderOptions) {}

  void OnFrame(const SConnection& connection, const SControl& frame, const tool::SQ921Frame& decoded,
               EVerdict verdict) override {
    // The frame of the SETUP is here before its call.
    last = Rung(frame, decoded, verdict);
    const bool isOfCall =
        ladder && !isOver && connection.number == ladder->call.connection && frame.trunk == ladder->call.trunk;
    if (options.layer2 && isOfCall) {
      ladder->rungs.push_back(last);
    }
  }
  void OnCallBegins(const SCall& call) override {
    if (call.number == options.call) {
      ladder = SLadder{call, {}};
      if (options.layer2) {
        ladder->rungs.push_back(last);
      }
    }
  }
  void OnCallMessage(const SCall& call, const SSignal& signal) override {
    if (call.number == options.call && !options.layer2) {
      ladder->rungs.push_back({signal.frame.time, signal.frame.direction == EDirection::kToLibrary, signal.message.name,
                               ElementsText(signal.message)});
    }
  }
  void OnCallEnds(const SCall& call) override {
    if (call.number == options.call) {
      ladder->call = call;
      isOver = true;
    }
  }

  const std::optional<SLadder>& Ladder() const { return ladder; }

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
  std::optional<SLadder> ladder;
  bool isOver = false;
};

// Job: prints each message of every call as it comes.
class CFollower : public ITraceSink {
 public:
  explicit CFollower(const SLadderOptions& ladderOptions) : options(ladderOptions) {}

  void OnCallMessage(const SCall& call, const SSignal& signal) override {
    if (options.call != 0 && call.number != options.call) {
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
  if (!rungs.Ladder()) {
    throw CTraceError(result == EExit::kBadInput ? result : EExit::kNothingFound,
                      fmt::format("{}: has no call {}", options.input.file, options.call));
  }
  if (options.svg.empty()) {
    Print(LadderText(*rungs.Ladder()));
  } else {
    WriteFile(options.svg, LadderSvg(*rungs.Ladder()));
  }
  return result;
}

}  // namespace trace

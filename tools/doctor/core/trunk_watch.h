// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <deque>
#include <map>
#include <string>
#include <utility>

#include "doctor/core/wire_facts.h"
#include "trace/core/analysis.h"

namespace doctor {

// Job: what a trunk's line, data link and calls do. Thread: one. Owns the facts. Nothing fails.
class CTrunkWatch {
 public:
  CTrunkWatch() = default;
  // What the frames are numbered by are lines of this file.
  explicit CTrunkWatch(std::string dChannelFile) : file(std::move(dChannelFile)) {}

  void OnConnected() { isUp.reset(); }
  void OnStatus(std::uint8_t status, const SMark& mark);
  void OnHdlcError(int code, const SMark& mark);
  void OnFrame(const trace::SControl& frame, const tool::SQ921Frame& decoded, trace::EVerdict verdict);
  void OnCallBegins(const trace::SCall& call);
  void OnCallMessage(const trace::SCall& call, const trace::SSignal& signal);
  // `now`: where the capture has come to.
  void OnCallEnds(const trace::SCall& call, Time now);

  STrunkFacts facts;

 private:
  struct SOpenCall {
    trace::SCall call;
    Time heard = 0;
    bool isCauseTaken = false;
  };

  void OnLink(bool isFromLine, const tool::SQ921Frame& decoded, const SMark& mark);
  void SetUp(bool isNowUp, const SMark& mark);
  void OnRestart(const tool::SQ931Message& message, const SMark& mark);
  void OnSetup(const trace::SCall& call, const SMark& mark);

  std::string file;  // empty: a capture
  int errorsInARow = 0;
  std::optional<bool> isUp;
  Time upSince = 0;
  std::map<int, std::deque<Time>> restarts;  // by timeslot
  std::map<std::uint64_t, SOpenCall> calls;
};

}  // namespace doctor

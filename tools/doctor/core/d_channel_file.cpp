// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/d_channel_file.h"

#include "doctor/core/trunk_watch.h"
#include "trace/core/hdlc_file.h"

namespace doctor {
namespace {

constexpr Time kDay = 86'400 * trace::kSecond;

// Job: hears of the calls of one trunk. Thread: one. Nothing fails.
class CDChannelWatch : public trace::ICallSink {
 public:
  CDChannelWatch(const std::string& path, std::uint32_t serialNumber) : calls(*this), watch(path) {
    connection.serial = serialNumber;
  }

  void Take(trace::SControl& frame) {
    now = frame.time;
    if (frame.direction == trace::EDirection::kToLibrary) {
      frame.isAfterGap = true;  // not every frame of the exchange has its line
    } else if (tool::DecodeFrame(frame.body).kind == tool::EFrameKind::kSabme && hasSignals) {
      // The library begins anew, and what it had is gone.
      calls.OnDisconnected(connection, now);
      ++connection.number;
      hasSignals = false;
    }
    calls.OnControl(connection, frame);
  }
  STrunkFacts Finish() {
    calls.Finish();
    return watch.facts;
  }

  void OnFrame(const trace::SConnection&, const trace::SControl& frame, const tool::SQ921Frame& decoded,
               trace::EVerdict verdict) override {
    hasSignals = hasSignals || verdict == trace::EVerdict::kNew;
    watch.OnFrame(frame, decoded, verdict);
  }
  void OnCallBegins(const trace::SCall& call) override { watch.OnCallBegins(call); }
  void OnCallMessage(const trace::SCall& call, const trace::SSignal& signal) override {
    watch.OnCallMessage(call, signal);
  }
  void OnCallEnds(const trace::SCall& call) override { watch.OnCallEnds(call, now); }

 private:
  trace::SConnection connection;
  trace::CCalls calls;
  CTrunkWatch watch;
  Time now = 0;
  bool hasSignals = false;  // since the last SABME
};

Time LastTime(const std::string& path) {
  trace::CHdlcFile file(path);
  Time last = 0;
  for (trace::SControl frame; file.Next(frame);) {
    last = frame.time;
  }
  return last;
}

}  // namespace

SWireFacts ReadDChannelFile(const std::string& path, bool lastDayAlone) {
  SWireFacts wire;
  wire.source = path;
  const Time from = lastDayAlone ? LastTime(path) - kDay : 0;
  trace::CHdlcFile file(path);
  CDChannelWatch watch(path, file.Serial());
  for (trace::SControl frame; file.Next(frame); frame = {}) {
    if (frame.time > from) {
      watch.Take(frame);
    }
  }
  wire.fault = file.Fault();
  SCardFacts& card = wire.cards[0];
  card.serial = file.Serial();
  card.trunks.resize(static_cast<std::size_t>(file.Trunk()) + 1);
  card.trunks.back() = watch.Finish();
  return wire;
}

}  // namespace doctor

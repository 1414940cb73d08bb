// SPDX-License-Identifier: GPL-2.0-only
#include "phone/call_events.h"
#include "phone/commands.h"
#include "phone/snapshot.h"

namespace phone {

namespace {

void RequireReady(int32_t channel) {
  if (InfoNumber(channel, ZELK_INFO_CHANNELSTATE) != ZELK_CHANNEL_READY) {
    throw CPhoneError(EExit::kNoTrunk,
                      "channel " + std::to_string(channel) + " is " + InfoText(channel, ZELK_INFO_CHANNELSTATE));
  }
}

void CheckEnd(const SCallEnd& end) {
  if (end.lost) {
    throw CPhoneError(EExit::kFailed, "the call did not run to its end");
  }
  if (!end.connected) {
    throw CPhoneError(end.gaveUp ? EExit::kNoAnswer : ExitOfCause(end.cause), "not connected: " + CauseText(end.cause));
  }
}

}  // namespace

void RunDial(CReport& report, const SDialOptions& options, int trunkSeconds) {
  CheckScript(options.script);
  CRecorder recorder;
  CSession session(recorder);
  RequireChannel(session, options.channel);
  session.WaitForChannel(options.channel, std::chrono::seconds(trunkSeconds));
  report.Say("snapshot", "", SnapshotJson());
  RequireReady(options.channel);
  ZELK_OpenChannel(options.channel);
  report.Say("dialling", "dialling " + options.number + " on channel " + std::to_string(options.channel),
             {{"channel", options.channel}, {"number", options.number}, {"from", options.from}});
  CCallRun run(session, recorder, report, options.channel, options.script);
  if (!ZELK_Dial(options.channel, options.number.c_str(), options.from.empty() ? nullptr : options.from.c_str())) {
    throw CPhoneError(EExit::kRefused, "the call could not be placed on channel " + std::to_string(options.channel));
  }
  CheckEnd(run.Run(options.answerSeconds));
}

}  // namespace phone

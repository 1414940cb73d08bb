// SPDX-License-Identifier: GPL-2.0-only
#include "phone/commands.h"

namespace phone {

namespace {

// Waits for the one trunk that matters.
void RequireReady(CSession& session, int32_t channel, int trunkSeconds) {
  session.WaitForChannel(channel, std::chrono::seconds(trunkSeconds));
  if (ZELK_GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) != ZELK_CHANNEL_READY) {
    throw CPhoneError("channel " + std::to_string(channel) + " is " + InfoText(channel, ZELK_INFO_CHANNELSTATE));
  }
}

}  // namespace

int RunDial(const SDialOptions& options, int trunkSeconds) {
  CheckScript(options.script);
  CRecorder recorder;
  CProgress progress;
  CSession session(recorder);
  if (options.channel < 0 || options.channel >= session.ChannelCount()) {
    throw CPhoneError("there is no channel " + std::to_string(options.channel) + "; the last is " +
                      std::to_string(session.ChannelCount() - 1));
  }
  RequireReady(session, options.channel, trunkSeconds);
  ZELK_OpenChannel(options.channel);
  progress.Line("dialling " + options.number + " on channel " + std::to_string(options.channel));
  CCallRun run(session, recorder, progress, options.channel, options.script);
  if (!ZELK_Dial(options.channel, options.number.c_str(), options.from.empty() ? nullptr : options.from.c_str())) {
    throw CPhoneError("the call could not be placed on channel " + std::to_string(options.channel));
  }
  const SCallEnd end = run.Run(options.answerSeconds);
  if (!end.connected) {
    throw CPhoneError("not connected: " + CauseText(end.cause));
  }
  if (end.lost) {
    throw CPhoneError("the call did not run to its end");
  }
  return 0;
}

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#include <filesystem>
#include <vector>

#include "phone/commands.h"

namespace phone {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

// call.wav, call-2.wav, call-3.wav ...
std::string NumberedPath(const std::string& path, int call) {
  if (path.empty() || call == 1) {
    return path;
  }
  std::filesystem::path numbered(path);
  numbered.replace_filename(numbered.stem().string() + "-" + std::to_string(call) + numbered.extension().string());
  return numbered.string();
}

void OpenChannels(int wanted) {
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    if (wanted == kAnyChannel || channel == wanted) {
      ZELK_OpenChannel(channel);
    } else {
      ZELK_SetChannelInfo(channel, ZELK_SET_ALLOWINCOMING, 0);
    }
  }
}

// The channel of the next offered call, or kAnyChannel when none came in time.
int32_t AwaitCall(CSession& session, CProgress& progress, int waitSeconds) {
  const auto begin = Clock::now();
  while (!CSession::StopRequested() && (waitSeconds == 0 || Clock::now() - begin < seconds(waitSeconds))) {
    SPhoneEvent event;
    if (session.NextEvent(event, milliseconds(100)) && event.code == ZELK_EVENT_INCOMING_CALL) {
      return event.channel;
    }
    progress.Status("waiting for a call  " + Elapsed(Clock::now() - begin));
  }
  return kAnyChannel;
}

// A caller may give up before the call is answered, or while it is: then there is no call, and the next one is waited
// for.
SCallEnd Serve(CSession& session, CRecorder& recorder, CProgress& progress, int32_t channel,
               const SCallScript& script) {
  progress.Line("incoming call on channel " + std::to_string(channel) + " from " + InfoText(channel, ZELK_INFO_CLI) +
                " to " + InfoText(channel, ZELK_INFO_DLI) + " (" + InfoText(channel, ZELK_INFO_CALLTYPE) + ")");
  if (session.TakeEnd(channel)) {
    return {};
  }
  CCallRun run(session, recorder, progress, channel, script);
  ZELK_Answer(channel);
  constexpr int kConnectSeconds = 10;
  return run.Run(kConnectSeconds);
}

void RequireChannel(const CSession& session, int channel) {
  if (channel >= session.ChannelCount()) {
    throw CPhoneError("there is no channel " + std::to_string(channel) + "; the last is " +
                      std::to_string(session.ChannelCount() - 1));
  }
}

// Serves calls one by one until there have been enough; returns how many did not run to their end.
int ServeCalls(CSession& session, CRecorder& recorder, CProgress& progress, const SAnswerOptions& options) {
  int cut = 0;
  int served = 0;
  while (options.calls == 0 || served < options.calls) {
    const int32_t channel = AwaitCall(session, progress, options.waitSeconds);
    if (channel == kAnyChannel) {
      if (CSession::StopRequested()) {
        return cut;
      }
      throw CPhoneError("no call came in " + std::to_string(options.waitSeconds) + " s");
    }
    SCallScript script = options.script;
    script.recordFile = NumberedPath(options.script.recordFile, served + 1);
    const SCallEnd end = Serve(session, recorder, progress, channel, script);
    if (end.connected) {
      ++served;
      cut += end.lost ? 1 : 0;
    } else {
      progress.Line("no call came about, waiting for the next");
    }
  }
  return cut;
}

}  // namespace

int RunAnswer(const SAnswerOptions& options, int trunkSeconds) {
  CheckScript(options.script);
  CRecorder recorder;
  CProgress progress;
  CSession session(recorder);
  RequireChannel(session, options.channel);
  OpenChannels(options.channel);
  const int32_t usable = session.WaitForTrunks(seconds(trunkSeconds));
  if (usable == 0) {
    throw CPhoneError("no trunk came up in " + std::to_string(trunkSeconds) + " s");
  }
  progress.Line(std::to_string(usable) + " of " + std::to_string(session.ChannelCount()) +
                " channels usable, waiting for a call");
  const int cut = ServeCalls(session, recorder, progress, options);
  if (cut > 0) {
    throw CPhoneError(std::to_string(cut) + " of the calls did not run to their end");
  }
  return 0;
}

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#include <filesystem>
#include <optional>

#include "phone/call_events.h"
#include "phone/commands.h"
#include "phone/snapshot.h"

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

// The next offered call; nothing when none came in time.
std::optional<SPhoneEvent> AwaitCall(CSession& session, CReport& report, int waitSeconds) {
  const auto begin = Clock::now();
  while (!CSession::StopRequested() && (waitSeconds == 0 || Clock::now() - begin < seconds(waitSeconds))) {
    SPhoneEvent event;
    if (session.NextEvent(event, milliseconds(100)) && event.code == ZELK_EVENT_INCOMING_CALL) {
      return event;
    }
    report.Status("waiting for a call  " + Elapsed(Clock::now() - begin));
  }
  return std::nullopt;
}

void Tell(CReport& report, const SPhoneEvent& event) {
  if (event.code == ZELK_EVENT_CHANNEL_STATE) {
    report.Say("lost", "the trunk went down: call lost", {{"channel", event.channel}}, event.time);
    return;
  }
  const SEventLine line = LineOf(event);
  report.Say(line.type, line.text, line.fields, event.time);
}

// A caller may give up before the call is answered, or while it is: then there is no call, and the next one is waited
// for.
SCallEnd Serve(CSession& session, CRecorder& recorder, CReport& report, const SPhoneEvent& offer,
               const SCallScript& script) {
  Tell(report, offer);
  if (const std::optional<SPhoneEvent> end = session.TakeEnd(offer.channel)) {
    Tell(report, *end);
    return {};
  }
  CCallRun run(session, recorder, report, offer.channel, script);
  ZELK_Answer(offer.channel);
  constexpr int kConnectSeconds = 10;
  return run.Run(kConnectSeconds);
}

// Serves calls one by one until there have been enough; returns how many did not run to their end.
int ServeCalls(CSession& session, CRecorder& recorder, CReport& report, const SAnswerOptions& options) {
  int cut = 0;
  int served = 0;
  while (options.calls == 0 || served < options.calls) {
    const std::optional<SPhoneEvent> offer = AwaitCall(session, report, options.waitSeconds);
    if (!offer) {
      if (CSession::StopRequested()) {
        return cut;
      }
      throw CPhoneError(EExit::kNoAnswer, "no call came in " + std::to_string(options.waitSeconds) + " s");
    }
    SCallScript script = options.script;
    script.recordFile = NumberedPath(options.script.recordFile, served + 1);
    const SCallEnd end = Serve(session, recorder, report, *offer, script);
    if (end.connected) {
      ++served;
      cut += end.lost ? 1 : 0;
    } else {
      report.Text("no call came about, waiting for the next");
    }
  }
  return cut;
}

}  // namespace

void RunAnswer(CReport& report, const SAnswerOptions& options, int trunkSeconds) {
  CheckScript(options.script);
  CRecorder recorder;
  CSession session(recorder);
  RequireChannel(session, options.channel);
  OpenChannels(options.channel);
  const int32_t usable = session.WaitForTrunks(seconds(trunkSeconds));
  report.Say("snapshot", "", SnapshotJson());
  if (usable == 0) {
    throw CPhoneError(EExit::kNoTrunk, "no trunk came up in " + std::to_string(trunkSeconds) + " s");
  }
  report.Say(
      "waiting",
      std::to_string(usable) + " of " + std::to_string(session.ChannelCount()) + " channels usable, waiting for a call",
      {{"usable", usable}, {"channels", session.ChannelCount()}});
  const int cut = ServeCalls(session, recorder, report, options);
  if (cut > 0) {
    throw CPhoneError(EExit::kFailed, std::to_string(cut) + " of the calls did not run to their end");
  }
}

}  // namespace phone

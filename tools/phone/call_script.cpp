// SPDX-License-Identifier: GPL-2.0-only
#include "phone/call_script.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "phone/call_events.h"
#include "phone/digits.h"
#include "phone/phone_error.h"
#include "phone/play_error.h"

namespace phone {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

}  // namespace

void RequireChannel(const CSession& session, int channel) {
  if (channel >= session.ChannelCount()) {
    throw CPhoneError(EExit::kUsage, "there is no channel " + std::to_string(channel) + "; the last is " +
                                         std::to_string(session.ChannelCount() - 1));
  }
}

void CheckScript(const SCallScript& script) {
  if (!script.playFile.empty() && !std::ifstream(script.playFile, std::ios::binary)) {
    throw CPhoneError(EExit::kFile, "cannot read " + script.playFile);
  }
  try {
    RenderDigits(script.digits);
  } catch (const std::invalid_argument& error) {
    throw CPhoneError(EExit::kUsage, error.what());
  }
}

CCallRun::CCallRun(CSession& ofSession, CRecorder& toRecorder, CReport& toReport, int32_t onChannel,
                   const SCallScript& withScript)
    : session(ofSession), recorder(toRecorder), report(toReport), channel(onChannel), script(withScript) {
  if (script.recordFile.empty()) {
    recorder.Watch(channel);
  } else {
    recorder.Start(channel, script.recordFile);
  }
}

SCallEnd CCallRun::Run(int connectSeconds) {
  while (!over) {
    SPhoneEvent event;
    if (session.NextEvent(event, milliseconds(100))) {
      Take(event);
    }
    recorder.Flush();
    ShowStatus();
    HangUpWhenDue(connectSeconds);
  }
  // What is left to play would be heard in the channel's next call.
  ZELK_StopPlay(channel);
  FinishRecording();
  return end;
}

void CCallRun::Say(const char* type, const std::string& text, const Json& fields) {
  Json all = {{"channel", channel}};
  all.update(fields);
  report.Say(type, text, all);
}

void CCallRun::FinishRecording() {
  if (recorder.Finish()) {
    Say("recorded", "", {{"file", recorder.Path()}, {"bytes", recorder.BytesRecorded()}});
  }
}

void CCallRun::Take(const SPhoneEvent& event) {
  if (event.channel == channel) {
    Handle(event);
  } else if (event.code == ZELK_EVENT_INCOMING_CALL) {
    report.Say("refused", "channel " + std::to_string(event.channel) + ": another call refused, this telephone is busy",
               LineOf(event).fields, event.time);
    ZELK_Reject(event.channel);
  }
}

void CCallRun::Handle(const SPhoneEvent& event) {
  if (event.code == ZELK_EVENT_CHANNEL_STATE) {
    if (event.param == 0) {
      end.lost = true;
      over = true;
      report.Say("lost", "the trunk went down: call lost", {{"channel", channel}}, event.time);
    }
    return;
  }
  const SEventLine line = LineOf(event);
  report.Say(line.type, line.text, line.fields, event.time);
  if (event.code == ZELK_EVENT_ALERTING) {
    state = "ringing";
  } else if (event.code == ZELK_EVENT_CONNECTED) {
    OnConnected();
  } else if (event.code == ZELK_EVENT_PLAY_DONE) {
    playDone = true;
  } else if (event.code == ZELK_EVENT_DISCONNECTED) {
    end.cause = event.param;
    over = true;
  }
}

void CCallRun::OnConnected() {
  end.connected = true;
  state = "connected";
  connectedAt = Clock::now();
  if (!script.digits.empty()) {
    const std::vector<uint8_t> sound = RenderDigits(script.digits);
    if (!ZELK_PlayBuffer(channel, sound.data(), static_cast<uint32_t>(sound.size()))) {
      Fail("send " + script.digits, PlayErrorText(ZELK_GetLastError(channel)));
    }
    Say("digits", "sending digits " + script.digits, {{"digits", script.digits}});
  }
  if (!script.playFile.empty() && !ZELK_PlayFile(channel, script.playFile.c_str())) {
    Fail("play " + script.playFile, PlayErrorText(ZELK_GetLastError(channel)));
  }
}

void CCallRun::Fail(const std::string& what, const std::string& why) {
  ZELK_Hangup(channel);
  throw CPhoneError(EExit::kFile, "cannot " + what + ": " + why);
}

void CCallRun::HangUp(const char* why) {
  Say("hanging-up", std::string("hanging up: ") + why, {{"why", why}});
  hangUp.Begin(Clock::now());
  state = "clearing";
  ZELK_Hangup(channel);
}

void CCallRun::HangUpWhenDue(int connectSeconds) {
  if (over) {
    return;
  }
  const auto now = Clock::now();
  if (hangUp.HasBegun()) {
    if (hangUp.IsLost(InfoNumber(channel, ZELK_INFO_CHANNELSTATE) == ZELK_CHANNEL_INUSE, now)) {
      end.lost = true;
      over = true;
    }
  } else if (CSession::StopRequested()) {
    end.lost = true;
    HangUp("stopped by the user");
  } else if (!end.connected) {
    if (now - started > seconds(connectSeconds)) {
      end.gaveUp = true;
      HangUp("no answer");
    }
  } else if (script.holdSeconds > 0 && now - connectedAt >= seconds(script.holdSeconds)) {
    HangUp("the time is up");
  } else if (script.hangupAfterPlay && playDone) {
    HangUp("everything is played");
  }
}

void CCallRun::ShowStatus() {
  if (!report.Live() || over) {
    return;
  }
  const auto since = end.connected ? connectedAt : started;
  std::string text = "channel " + std::to_string(channel) + "  " + state + "  " + Elapsed(Clock::now() - since);
  if (end.connected) {
    const double level = recorder.LevelDbm0();
    char numbers[96];
    std::snprintf(numbers, sizeof numbers, "  recorded %llu bytes  left to play %u ms  ",
                  static_cast<unsigned long long>(recorder.BytesRecorded()), ZELK_PlayTimeLeft(channel));
    text += numbers + LevelMeter(level);
    if (level > -99.0) {
      std::snprintf(numbers, sizeof numbers, " %3.0f dBm0", level);
      text += numbers;
    }
  }
  report.Status(text);
}

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#include "phone/call_script.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "phone/digits.h"

namespace phone {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// The network confirms a hang-up in well under a second; past this the call is given up.
constexpr seconds kHangUpLimit{10};

const char* PlayErrorText(uint32_t error) {
  switch (error) {
    case ZELK_ERROR_FILE_OPEN:
      return "it is not a readable WAV file";
    case ZELK_ERROR_FILE_READ:
      return "it is cut short";
    case ZELK_ERROR_BAD_FORMAT:
      return "it is not 8000 Hz mono in a telephone format";
    default:
      return "there is no memory for it";
  }
}

}  // namespace

void CheckScript(const SCallScript& script) {
  if (!script.playFile.empty() && !std::ifstream(script.playFile, std::ios::binary)) {
    throw CPhoneError("cannot read " + script.playFile);
  }
  try {
    RenderDigits(script.digits);
  } catch (const std::invalid_argument& error) {
    throw CPhoneError(error.what());
  }
}

CCallRun::CCallRun(CSession& ofSession, CRecorder& toRecorder, CProgress& toProgress, int32_t onChannel,
                   const SCallScript& withScript)
    : session(ofSession), recorder(toRecorder), progress(toProgress), channel(onChannel), script(withScript) {
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
  recorder.Finish();
  return end;
}

void CCallRun::Take(const SPhoneEvent& event) {
  if (event.channel == channel) {
    Handle(event);
  } else if (event.code == ZELK_EVENT_INCOMING_CALL) {
    progress.Line("channel " + std::to_string(event.channel) + ": another call refused, this telephone is busy");
    ZELK_Reject(event.channel);
  }
}

void CCallRun::Handle(const SPhoneEvent& event) {
  switch (event.code) {
    case ZELK_EVENT_PROCEEDING:
      progress.Line("proceeding");
      break;
    case ZELK_EVENT_PROGRESS:
      progress.Line("progress");
      break;
    case ZELK_EVENT_ALERTING:
      state = "ringing";
      progress.Line("alerting: the far end rings");
      break;
    case ZELK_EVENT_CONNECTED:
      OnConnected();
      break;
    case ZELK_EVENT_PLAY_DONE:
      playDone = true;
      progress.Line("played to the end");
      break;
    case ZELK_EVENT_DTMF:
      progress.Line(std::string("digit ") + static_cast<char>(event.param));
      break;
    case ZELK_EVENT_DISCONNECTED:
      end.cause = event.param;
      over = true;
      progress.Line("disconnected: " + CauseText(event.param));
      break;
    case ZELK_EVENT_CHANNEL_STATE:
      if (event.param == 0) {
        end.lost = true;
        over = true;
        progress.Line("the trunk went down: call lost");
      }
      break;
    default:
      break;
  }
}

void CCallRun::OnConnected() {
  end.connected = true;
  state = "connected";
  connectedAt = Clock::now();
  progress.Line("connected");
  if (!script.digits.empty()) {
    const std::vector<uint8_t> sound = RenderDigits(script.digits);
    if (!ZELK_PlayBuffer(channel, sound.data(), static_cast<uint32_t>(sound.size()))) {
      Fail("send " + script.digits, PlayErrorText(ZELK_GetLastError(channel)));
    }
    progress.Line("sending digits " + script.digits);
  }
  if (!script.playFile.empty() && !ZELK_PlayFile(channel, script.playFile.c_str())) {
    Fail("play " + script.playFile, PlayErrorText(ZELK_GetLastError(channel)));
  }
}

void CCallRun::Fail(const std::string& what, const std::string& why) {
  ZELK_Hangup(channel);
  throw CPhoneError("cannot " + what + ": " + why);
}

void CCallRun::HangUp(const char* why) {
  progress.Line(std::string("hanging up: ") + why);
  hangingUp = true;
  hangUpAt = Clock::now();
  state = "clearing";
  ZELK_Hangup(channel);
}

void CCallRun::HangUpWhenDue(int connectSeconds) {
  if (over) {
    return;
  }
  const auto now = Clock::now();
  if (hangingUp) {
    if (now - hangUpAt > kHangUpLimit || ZELK_GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) != ZELK_CHANNEL_INUSE) {
      // The release may have been handled between two looks; its event is then the next one in the queue.
      SPhoneEvent event;
      while (!over && session.NextEvent(event, milliseconds(0))) {
        Take(event);
      }
      end.lost = !over;
      over = true;
    }
  } else if (CSession::StopRequested()) {
    end.lost = true;
    HangUp("stopped by the user");
  } else if (!end.connected) {
    if (now - started > seconds(connectSeconds)) {
      HangUp("no answer");
    }
  } else if (script.holdSeconds > 0 && now - connectedAt >= seconds(script.holdSeconds)) {
    HangUp("the time is up");
  } else if (script.hangupAfterPlay && playDone) {
    HangUp("everything is played");
  }
}

void CCallRun::ShowStatus() {
  if (!progress.Live() || over) {
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
  progress.Status(text);
}

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#include "phone/served_channels.h"

#include <algorithm>
#include <stdexcept>

#include "phone/call_events.h"
#include "phone/digits.h"
#include "phone/play_error.h"
#include "phone/session.h"
#include "phone/snapshot.h"

namespace phone {

namespace {

// An answer that fails frees the channel without an event, and so may a hang-up; both are over well before this.
constexpr std::chrono::seconds kSilentEnd{10};

[[noreturn]] void Refuse(const char* code, const std::string& text) {
  throw CRequestError(code, text);
}

bool ReadsUsable(int32_t channel) {
  return InfoNumber(channel, ZELK_INFO_CHANNELSTATE) >= ZELK_CHANNEL_READY;
}

}  // namespace

CServedChannels::CServedChannels(CRecorderBank& recorderBank, ISpeaker& toReport)
    : recorders(recorderBank), report(toReport), channels(static_cast<size_t>(ZELK_GetChannelCount())) {
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    At(channel).isUsable = ReadsUsable(channel);
  }
}

const char* CServedChannels::NameOf(EPhase phase) {
  constexpr const char* kNames[] = {"idle", "offered", "answering", "dialling", "connected", "clearing"};
  return kNames[static_cast<size_t>(phase)];
}

void CServedChannels::Enter(int32_t channel, EPhase phase) {
  At(channel).phase = phase;
  At(channel).since = Clock::now();
}

void CServedChannels::Take(const SPhoneEvent& event) {
  if (event.channel < 0 || static_cast<size_t>(event.channel) >= channels.size()) {
    return;
  }
  if (event.code == ZELK_EVENT_CHANNEL_STATE) {
    TakeState(event);
    return;
  }
  const bool isOffer = event.code == ZELK_EVENT_INCOMING_CALL;
  if (isOffer && At(event.channel).phase != EPhase::kIdle) {
    Lose(event.channel, event.time);
  }
  // What comes behind a call that was rejected, or that ended unseen, belongs to none.
  if (isOffer || At(event.channel).phase != EPhase::kIdle) {
    const SEventLine line = LineOf(event);
    report.Say(line.type, line.text, line.fields, event.time);
    OnPhase(event);
  }
}

void CServedChannels::OnPhase(const SPhoneEvent& event) {
  if (event.code == ZELK_EVENT_INCOMING_CALL) {
    Enter(event.channel, EPhase::kOffered);
  } else if (event.code == ZELK_EVENT_CONNECTED) {
    Enter(event.channel, EPhase::kConnected);
  } else if (event.code == ZELK_EVENT_DISCONNECTED) {
    EndCall(event.channel);
  }
}

void CServedChannels::TakeState(const SPhoneEvent& event) {
  const bool isUsable = event.param != 0;
  if (!isUsable && At(event.channel).phase != EPhase::kIdle) {
    Lose(event.channel, event.time);
  }
  if (isUsable != At(event.channel).isUsable) {
    At(event.channel).isUsable = isUsable;
    report.Say("channel", "", LineOf(event).fields, event.time);
  }
}

void CServedChannels::Lose(int32_t channel, UtcTime time) {
  report.Say("lost", "", {{"channel", channel}}, time);
  EndCall(channel);
}

void CServedChannels::EndCall(int32_t channel) {
  // What is left to play would be heard in the channel's next call.
  ZELK_StopPlay(channel);
  FinishRecording(channel);
  Enter(channel, EPhase::kIdle);
}

void CServedChannels::FinishRecording(int32_t channel) {
  CRecorder& recorder = recorders.Of(channel);
  Json fields = {{"channel", channel}, {"file", recorder.Path()}};
  try {
    if (recorder.Finish()) {
      fields["bytes"] = recorder.BytesRecorded();
      report.Say("recorded", "", fields);
    }
  } catch (const CPhoneError& error) {
    fields["message"] = error.what();
    report.Say("recording-failed", "", fields);
  }
}

void CServedChannels::Turn() {
  for (int32_t channel = 0; static_cast<size_t>(channel) < channels.size(); ++channel) {
    SChannel& each = At(channel);
    try {
      recorders.Of(channel).Flush();
    } catch (const CPhoneError& error) {
      report.Say("recording-failed", "",
                 {{"channel", channel}, {"file", recorders.Of(channel).Path()}, {"message", error.what()}});
      recorders.Of(channel).Finish();
    }
    const bool mayBeOver = each.phase == EPhase::kAnswering || each.phase == EPhase::kClearing;
    if (mayBeOver && Clock::now() - each.since > kSilentEnd &&
        InfoNumber(channel, ZELK_INFO_CHANNELSTATE) != ZELK_CHANNEL_INUSE) {
      Lose(channel, std::chrono::system_clock::now());
    }
  }
}

void CServedChannels::EndCalls() {
  for (int32_t channel = 0; static_cast<size_t>(channel) < channels.size(); ++channel) {
    const EPhase phase = At(channel).phase;
    if (phase == EPhase::kOffered) {
      ZELK_Reject(channel);
      EndCall(channel);
    } else if (phase != EPhase::kIdle && phase != EPhase::kClearing) {
      ZELK_Hangup(channel);
      Enter(channel, EPhase::kClearing);
    }
  }
}

bool CServedChannels::HasCalls() const {
  return std::any_of(channels.begin(), channels.end(),
                     [](const SChannel& each) { return each.phase != EPhase::kIdle; });
}

Json CServedChannels::Carry(const SInputLine& line) {
  Json answer = {{"id", nullptr}};
  try {
    if (line.isTooLong) {
      Refuse("too-long", "a line has at most " + std::to_string(CLineSplitter::kLongest) + " bytes");
    }
    const SRequest request = ParseRequest(line.text);
    answer["id"] = request.id;
    Json fields = {{"ok", true}};
    fields.update(Do(request));
    answer.update(fields);
  } catch (const CRequestError& error) {
    if (!error.id.is_null()) {
      answer["id"] = error.id;
    }
    answer.update(Json{{"ok", false}, {"error", error.code}, {"message", error.what()}});
  }
  return answer;
}

Json CServedChannels::Do(const SRequest& request) {
  if (request.channel && static_cast<size_t>(*request.channel) >= channels.size()) {
    Refuse("no-channel", "the last channel is " + std::to_string(channels.size() - 1));
  }
  if (request.what == EDo::kDial) {
    Dial(request, *request.channel);
    return Json::object();
  }
  if (request.what != EDo::kState) {
    return DoOnCall(request, *request.channel);
  }
  Json states = Json::array();
  for (int32_t channel = 0; static_cast<size_t>(channel) < channels.size(); ++channel) {
    if (!request.channel || *request.channel == channel) {
      states.push_back(StateOf(channel));
    }
  }
  return {{"channels", states}};
}

Json CServedChannels::DoOnCall(const SRequest& request, int32_t channel) {
  const EPhase phase = At(channel).phase;
  const bool needsOffer = request.what == EDo::kAnswer || request.what == EDo::kReject;
  if (phase == EPhase::kIdle || (needsOffer && phase != EPhase::kOffered)) {
    Refuse("no-call", std::string(needsOffer ? "no call is offered" : "there is no call") + " on this channel, it is " +
                          NameOf(phase));
  }
  switch (request.what) {
    case EDo::kAnswer:
      Enter(channel, EPhase::kAnswering);
      ZELK_Answer(channel);
      break;
    case EDo::kReject:
      ZELK_Reject(channel);
      EndCall(channel);
      break;
    case EDo::kHangup:
      if (phase != EPhase::kClearing) {
        Enter(channel, EPhase::kClearing);
        ZELK_Hangup(channel);
      }
      break;
    case EDo::kStop:
      if (request.stopsPlay) {
        ZELK_StopPlay(channel);
      }
      if (request.stopsRecord) {
        FinishRecording(channel);
      }
      break;
    case EDo::kRecord:
      Record(channel, request.file);
      break;
    default:
      Play(channel, request);
      break;
  }
  return Json::object();
}

void CServedChannels::Dial(const SRequest& request, int32_t channel) {
  const uint32_t state = InfoNumber(channel, ZELK_INFO_CHANNELSTATE);
  if (At(channel).phase != EPhase::kIdle || state == ZELK_CHANNEL_INUSE) {
    Refuse("busy", "the channel holds a call");
  }
  if (state != ZELK_CHANNEL_READY) {
    Refuse("down", "the channel is " + InfoText(channel, ZELK_INFO_CHANNELSTATE));
  }
  if (!ZELK_Dial(channel, request.number.c_str(), request.from ? request.from->c_str() : nullptr)) {
    ZELK_Reject(channel);  // frees what a refused request may hold
    Refuse("failed", "the call could not be placed");
  }
  Enter(channel, EPhase::kDialling);
}

void CServedChannels::Play(int32_t channel, const SRequest& request) {
  bool isQueued = false;
  if (request.what == EDo::kDigits) {
    try {
      const std::vector<uint8_t> sound = RenderDigits(request.digits);
      isQueued = ZELK_PlayBuffer(channel, sound.data(), static_cast<uint32_t>(sound.size()));
    } catch (const std::invalid_argument& error) {
      Refuse("bad-request", error.what());
    }
  } else {
    isQueued = ZELK_PlayFile(channel, request.file.c_str());
  }
  if (!isQueued) {
    Refuse("file", PlayErrorText(ZELK_GetLastError(channel)));
  }
}

void CServedChannels::Record(int32_t channel, const std::string& file) {
  CRecorder& recorder = recorders.Of(channel);
  if (recorder.IsRecording()) {
    Refuse("busy", "the channel is recorded already, into " + recorder.Path());
  }
  try {
    recorder.Start(channel, file);
  } catch (const CPhoneError& error) {
    Refuse("file", error.what());
  }
}

Json CServedChannels::StateOf(int32_t channel) {
  Json state = ChannelJson(channel);
  state["call"] = NameOf(At(channel).phase);
  state["playLeftMs"] = ZELK_PlayTimeLeft(channel);
  state["recording"] = recorders.Of(channel).IsRecording();
  return state;
}

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
// The calls of the desk's jobs, from the SETUP to the stored result.
#include <algorithm>
#include <array>

#include "node/job_desk.h"

namespace node {

namespace {

using phone::Json;
using std::chrono::milliseconds;

constexpr std::chrono::seconds kDigitsAfterPrompt{10};
constexpr milliseconds kStoreAgain{500};
constexpr milliseconds kNextAttempt{30000};
constexpr milliseconds kNoChannel{500};

// ITU-T Q.850 causes after which another attempt has a chance: busy, no answer, out of channels, out of order.
bool MayPass(const Json& cause) {
  constexpr std::array<int, 8> kPassing{17, 18, 19, 27, 34, 41, 42, 44};
  return cause.is_number() && std::find(kPassing.begin(), kPassing.end(), cause.get<int>()) != kPassing.end();
}

}  // namespace

bool CJobDesk::Carry(const Work& work, Json command) {
  command["id"] = work->job.id;
  command["channel"] = work->channel;
  const Json answer = served.Carry({command.dump(), false});
  if (!answer["ok"].get<bool>()) {
    work->trouble = answer["message"];
  }
  return answer["ok"].get<bool>();
}

void CJobDesk::Note(const Work& work, const char* step, phone::UtcTime time) {
  work->times[step] = phone::IsoTime(lease.ServerTime(time));
}

void CJobDesk::Dial(const Work& work) {
  Json command = {{"do", "dial"}, {"number", work->job.to}};
  if (work->job.from) {
    command["from"] = *work->job.from;
  }
  // A caller may have taken the channel meanwhile, or the trunk may have failed: then any other one does.
  while (work->channel >= 0 && !Carry(work, command)) {
    FreeChannel(work);
    work->channel = FreeChannelFor(work->job);
    if (work->channel >= 0) {
      byChannel[static_cast<size_t>(work->channel)] = work;
    }
  }
  if (work->channel < 0) {
    claims.Update(work, fleet::EClaimState::kFree, [this, work] { Leave(work, kNoChannel); });
    return;
  }
  work->trouble.clear();
  work->step = EStep::kCalling;
  work->giveUpAt = Clock::now() + work->job.giveUpAfter;
  Note(work, "dialled", std::chrono::system_clock::now());
  ++placed;
}

void CJobDesk::Hear(SSaid said) {
  const auto channel = said.fields.find("channel");
  if (channel != said.fields.end() && IsReserved(channel->get<int32_t>())) {
    heard.push_back(std::move(said));
  }
}

void CJobDesk::OnSaid(const SSaid& said) {
  const Work work = byChannel[said.fields["channel"].get<size_t>()];
  if (work == nullptr || work->step != EStep::kCalling) {
    return;
  }
  if (said.type == "proceeding" || said.type == "alerting") {
    Note(work, said.type.c_str(), said.time);
  } else if (said.type == "connected") {
    Note(work, "connected", said.time);
    OnConnected(work);
  } else if (said.type == "played") {
    Note(work, "played", said.time);
    Played(work, Clock::now());
  } else if (said.type == "digit") {
    work->digits += said.fields["digit"].get<std::string>();
    if (work->waitsForDigits && static_cast<int>(work->digits.size()) >= work->job.digits) {
      Hangup(work);
    }
  } else if (said.type == "disconnected" || said.type == "lost") {
    CallOver(work, said);
  }
}

void CJobDesk::OnConnected(const Work& work) {
  work->isConnected = true;
  if (!work->job.record.empty() && Carry(work, {{"do", "record"}, {"file", sounds.FileOf(work->job.record)}})) {
    work->recording = work->job.record;
  }
  Play(work);
}

void CJobDesk::Play(const Work& work) {
  if (work->sound.empty() || !Carry(work, {{"do", "play"}, {"file", work->sound}})) {
    Played(work, Clock::now());
  }
}

void CJobDesk::Played(const Work& work, Clock::time_point now) {
  if (static_cast<int>(work->digits.size()) >= work->job.digits) {
    Hangup(work);
  } else {
    work->waitsForDigits = true;
    work->digitsBy = now + kDigitsAfterPrompt;
  }
}

void CJobDesk::Hangup(const Work& work) {
  work->waitsForDigits = false;
  work->giveUpAt = Clock::time_point::max();
  Carry(work, {{"do", "hangup"}});
}

void CJobDesk::CallOver(const Work& work, const SSaid& said) {
  Note(work, "ended", said.time);
  const char* outcome = work->isConnected ? "connected" : work->gaveUp ? "no-answer" : "not-connected";
  Json result = ResultOf(work, said.type == "lost" ? "line-lost" : outcome, work->trouble);
  result["cause"] = said.fields.value("cause", Json(nullptr));
  result["causeName"] = said.fields.value("causeName", Json(nullptr));
  FreeChannel(work);
  if (WantsAnother(work, result)) {
    work->step = EStep::kStoring;
    claims.Update(work, fleet::EClaimState::kEnded, [this, work] { Leave(work, kNextAttempt); });
  } else {
    Finish(work, result);
  }
}

bool CJobDesk::WantsAnother(const Work& work, const Json& result) const {
  const bool isSettled = work->isConnected || work->attempt >= work->job.attempts;
  return !isSettled && (work->gaveUp || result["outcome"] == "line-lost" || MayPass(result["cause"]));
}

Json CJobDesk::ResultOf(const Work& work, const char* outcome, const std::string& message) const {
  Json result = {{"id", work->job.id}, {"to", work->job.to}, {"outcome", outcome}};
  if (!message.empty()) {
    result["message"] = message;
  }
  result["attempt"] = work->attempt;
  result["node"] = options.node;
  if (work->channel >= 0) {
    result["channel"] = work->channel;
  }
  result["cause"] = nullptr;
  result["causeName"] = nullptr;
  result["times"] = work->times;
  result["digits"] = work->digits;
  if (!work->recording.empty()) {
    result["recording"] = work->recording;
  }
  return result;
}

void CJobDesk::Finish(const Work& work, const Json& result) {
  FreeChannel(work);
  work->step = EStep::kStoring;
  Store(work, result.dump(-1, ' ', true, Json::error_handler_t::replace));
}

// The subject takes one message: whoever comes second, with whatever result, is refused, for ever.
void CJobDesk::Store(const Work& work, const std::string& result) {
  asks.Ask(names.Result(work->job.id), result,
           [this, work, result](const SReply& reply) {
             if (StoredOf(reply).kind == SStored::EKind::kFailed) {
               asks.After(kStoreAgain, [this, work, result] { Store(work, result); });
               return;
             }
             ++stored;
             Acknowledge(work);
           },
           {{"Nats-Msg-Id", work->job.id}, {"Nats-Expected-Last-Subject-Sequence", "0"}});
}

void CJobDesk::Acknowledge(const Work& work) {
  FreeChannel(work);
  link.Publish(work->ackTo, "+ACK");
  works.erase(work->job.id);
}

void CJobDesk::TurnCall(const Work& work, Clock::time_point now) {
  if (work->step != EStep::kCalling) {
    return;
  }
  if (!work->isConnected && now >= work->giveUpAt) {
    work->gaveUp = true;
    Hangup(work);
  } else if (work->waitsForDigits && now >= work->digitsBy) {
    Hangup(work);
  }
}

void CJobDesk::Act() {
  std::vector<SSaid> all;
  all.swap(heard);
  for (const SSaid& said : all) {
    OnSaid(said);
  }
}

void CJobDesk::Turn(Clock::time_point now) {
  for (const auto& [id, work] : works) {
    if (now >= work->nextSign) {
      work->nextSign = now + options.signEvery;
      link.Publish(work->ackTo, "+WPI");
    }
    TurnCall(work, now);
  }
  rate.Return(pulls.TakeMissing());
  const int more = rate.Allowed(now, std::max(0, Capacity() - pulls.Open()));
  rate.Spend(more);
  pulls.Ask(more, now);
}

}  // namespace node

// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/program/traffic.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "cardsim/audio/wav_file.h"

namespace cardsim {
namespace {

using std::chrono::milliseconds;

// The far end's digits begin a little after the answer, when both directions are open for sure.
constexpr int kBeforeDigitsMs = 200;

std::shared_ptr<const Bytes> SoundOf(const SOptions& options) {
  Bytes sound;
  if (!options.digits.empty()) {
    sound = RenderSilence(kBeforeDigitsMs);
    const Bytes digits = RenderDtmf(options.digits, options.digitSignal);
    sound.insert(sound.end(), digits.begin(), digits.end());
  }
  if (!options.play.empty()) {
    const Bytes file = ReadWav(options.play);
    sound.insert(sound.end(), file.begin(), file.end());
  }
  return sound.empty() ? nullptr : std::make_shared<const Bytes>(std::move(sound));
}

}  // namespace

CTraffic::CTraffic(CSimulator& simulator, const SOptions& programOptions)
    : sim(simulator),
      options(programOptions),
      sound(SoundOf(programOptions)),
      nextCall(std::chrono::steady_clock::now()),
      nextPause(std::chrono::steady_clock::now() + milliseconds(programOptions.pauseEvery)),
      totals(simulator.CardCount()) {
  if (!options.record.empty()) {
    std::filesystem::create_directories(options.record);
  }
  if (!options.recordLines.empty()) {
    std::filesystem::create_directories(options.recordLines);
  }
  ListPlaces();
  ListenToTimeslots();
  for (std::size_t i = 0; i < sim.CardCount(); ++i) {
    sim.Card(i).Audio().SetFaults(options.faults);
    sim.Card(i).SetAnswerPlanner([this](const CCall&) { return Plan(); });
    sim.Card(i).OnCallArrived([this](const Call& call) {
      const std::lock_guard guard(lock);
      taken.push_back(call);
    });
    sim.Card(i).OnCallEnded([this](const Call& call) { OnEnded(call); });
  }
}

// Every timeslot of every trunk: the lines between the calls, framing and signalling too.
void CTraffic::ListenToTimeslots() {
  if (options.recordLines.empty() && options.echoDelay < 0) {
    return;
  }
  for (std::size_t card = 0; card < sim.CardCount(); ++card) {
    for (int place = 0; place < sim.Card(card).TrunkCount() * kTimeslots; ++place) {
      const int trunk = place / kTimeslots;
      const int timeslot = place % kTimeslots;
      if (options.echoDelay >= 0) {
        const int frames = static_cast<int>(std::lround(options.echoDelay * kSampleRate / 1000));
        sim.Card(card).Audio().SetEcho(trunk, timeslot, SEchoPath{.delayFrames = frames, .lossDb = options.echoLoss});
      }
      if (!options.recordLines.empty()) {
        timeslots.push_back({static_cast<int>(card), trunk, timeslot, sim.Card(card).RecordTimeslot(trunk, timeslot)});
      }
    }
  }
}

void CTraffic::SaveTimeslots() const {
  for (const SRecordedTimeslot& timeslot : timeslots) {
    char name[96];
    std::snprintf(name, sizeof(name), "card%d-trunk%d-ts%02d.wav", timeslot.card + 1, timeslot.trunk + 1,
                  timeslot.timeslot);
    WriteWav((std::filesystem::path(options.recordLines) / name).string(), timeslot.recorder->Samples());
  }
}

void CTraffic::PauseWhenDue(std::chrono::steady_clock::time_point now) {
  if (options.pauseEvery <= 0 || now < nextPause) {
    return;
  }
  for (std::size_t i = 0; i < sim.CardCount(); ++i) {
    sim.Card(i).Audio().PauseFor(milliseconds(options.pauseLength));
  }
  nextPause = now + milliseconds(options.pauseEvery) + milliseconds(options.pauseLength);
}

// Card by card, then trunk by trunk, then the next timeslot: the load spreads over all cards.
void CTraffic::ListPlaces() {
  for (int timeslot = 1; timeslot < kTimeslots; ++timeslot) {
    for (int trunk = 0; timeslot != kSignallingTimeslot && trunk < kMaxTrunks; ++trunk) {
      for (int card = 0; card < static_cast<int>(sim.CardCount()); ++card) {
        if (trunk < sim.Card(static_cast<std::size_t>(card)).TrunkCount()) {
          places.push_back({card, trunk, timeslot});
        }
      }
    }
  }
}

AudioSource CTraffic::Source() const {
  AudioSource source = sound == nullptr ? nullptr : MakeBytesSource(sound, options.loop);
  if (options.tone.empty()) {
    return source;
  }
  AudioSource tone = MakeToneSource(options.tone, options.toneLevel);
  return source == nullptr ? tone : MakeChain({source, tone});
}

SFarEnd CTraffic::FarEnd() const {
  SFarEnd farEnd;
  farEnd.play = Source();
  farEnd.hangupCause = options.cause;
  if (options.hold > 0) {
    farEnd.hangupAfter = milliseconds(options.hold);
  }
  return farEnd;
}

SAnswerPlan CTraffic::Plan() const {
  if (options.refuse > 0) {
    return SAnswerPlan::Refuse(options.refuse);
  }
  SAnswerPlan plan;
  plan.alertAfter = milliseconds(options.alertAfter);
  plan.answerAfter = milliseconds(std::max(options.answerAfter, options.alertAfter));
  if (options.noAnswer) {
    plan.answerAfter.reset();
  }
  plan.farEnd = FarEnd();
  return plan;
}

void CTraffic::Turn(std::chrono::steady_clock::time_point now) {
  TakeEnded();
  PauseWhenDue(now);
  if (options.callsPerSecond <= 0) {
    return;
  }
  const auto interval = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(1.0 / options.callsPerSecond));
  while (now >= nextCall && (options.calls == 0 || placed < options.calls)) {
    if (!PlaceNext()) {
      nextCall = now;  // no room now: what was missed is not made up for
      return;
    }
    nextCall += interval;
  }
}

bool CTraffic::PlaceNext() {
  if (options.concurrent > 0 && open.size() >= static_cast<std::size_t>(options.concurrent)) {
    return false;
  }
  for (std::size_t tried = 0; tried < places.size(); ++tried) {
    const SPlace place = places[nextPlace];
    nextPlace = (nextPlace + 1) % places.size();
    CCard& card = sim.Card(static_cast<std::size_t>(place.card));
    if (!card.Seen().IsTrunkUp(place.trunk) || !card.IsTimeslotIdle(place.trunk, place.timeslot)) {
      continue;
    }
    SCallRequest request;
    request.trunk = place.trunk;
    request.timeslot = place.timeslot;
    request.calling = options.calling;
    request.called = options.called;
    request.redirecting = options.redirecting;
    request.redirectingReason = options.redirectingReason;
    if (options.giveUpAfter > 0) {
      request.giveUpAfter = milliseconds(options.giveUpAfter);
    }
    request.farEnd = FarEnd();
    const Call call = card.PlaceCall(std::move(request));
    open[call.get()] = call;
    ++placed;
    ++totals[static_cast<std::size_t>(place.card)].offered;
    return true;
  }
  return false;
}

void CTraffic::OnEnded(const Call& call) {
  const std::lock_guard guard(lock);
  ended.push_back(call);
}

void CTraffic::TakeEnded() {
  std::vector<Call> calls;
  {
    const std::lock_guard guard(lock);
    calls.swap(ended);
    std::erase_if(taken, [&](const Call& call) { return std::find(calls.begin(), calls.end(), call) != calls.end(); });
  }
  for (const Call& call : calls) {
    open.erase(call.get());
    Record(call);
  }
}

void CTraffic::Record(const Call& call) {
  SCallRecord record = RecordOf(*call);
  record.number = records.size() + 1;
  const Bytes heard = call->Recorded();
  record.recordedBytes = heard.size();
  if (!options.record.empty() && record.connected) {
    record.file = Save(record, heard);
  }
  SCallTotals& sums = totals[static_cast<std::size_t>(call->card)];
  ++sums.ended;
  sums.taken += record.fromLibrary ? 1 : 0;
  sums.connected += record.connected ? 1 : 0;
  ++sums.causes[record.cause];
  if (options.verbose) {
    std::printf("%s\n", LineOf(record).c_str());
    std::fflush(stdout);
  }
  records.push_back(std::move(record));
}

std::string CTraffic::Save(const SCallRecord& record, const Bytes& samples) const {
  char name[96];
  std::snprintf(name, sizeof(name), "card%d-trunk%d-ts%02d-%06llu.wav", record.card + 1, record.trunk + 1,
                record.timeslot, static_cast<unsigned long long>(record.number));
  std::string path = (std::filesystem::path(options.record) / name).string();
  WriteWav(path, samples);
  return path;
}

bool CTraffic::IsDone() const {
  return options.calls > 0 && !options.stay && placed >= options.calls && Active() == 0;
}

std::size_t CTraffic::Active() const {
  const std::lock_guard guard(lock);
  return open.size() + taken.size();
}

void CTraffic::Finish(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  std::vector<Call> left;
  {
    const std::lock_guard guard(lock);
    left = taken;
  }
  for (const auto& entry : open) {
    left.push_back(entry.second);
  }
  for (const Call& call : left) {
    call->Hangup(options.cause);
  }
  for (const Call& call : left) {
    const auto remaining = deadline - std::chrono::steady_clock::now();
    call->WaitEnded(std::max(milliseconds(0), std::chrono::duration_cast<milliseconds>(remaining)));
  }
  TakeEnded();
}

bool CTraffic::IsInVain() const {
  const bool asked = options.calls > 0 || options.callsPerSecond > 0;
  return asked && std::none_of(records.begin(), records.end(),
                               [](const SCallRecord& call) { return !call.fromLibrary && call.connected; });
}

SCallTotals CTraffic::Sum() const {
  SCallTotals sum;
  for (const SCallTotals& card : totals) {
    sum.offered += card.offered;
    sum.taken += card.taken;
    sum.connected += card.connected;
    sum.ended += card.ended;
    for (const auto& [cause, count] : card.causes) {
      sum.causes[cause] += count;
    }
  }
  return sum;
}

}  // namespace cardsim

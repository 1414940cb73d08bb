// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "cardsim/audio/audio_port.h"
#include "cardsim/base/reactor.h"
#include "cardsim/exchange/call.h"
#include "cardsim/exchange/pri_peer.h"
#include "cardsim/exchange/timeslots.h"

namespace cardsim {

// Job: the calls of one trunk: places them, answers those of the library by plan, follows libpri's rules for clearing
// (DISCONNECT: hang up; RELEASE: hang up to free; acknowledged: nothing), and opens and closes their timeslots' audio.
// Thread: signalling; the ICallControl operations and Place from any (they are posted). Nothing blocks. A call that
// libpri refuses ends at once with cause 41.
class CTrunkCalls : public ICallControl, public std::enable_shared_from_this<CTrunkCalls> {
 public:
  struct SHandlers {
    std::function<SAnswerPlan(const CCall&)> plan;  // for a call from the library
    std::function<void(const Call&)> arrived;       // a call from the library
    std::function<void(const Call&)> ended;         // any call
  };

  CTrunkCalls(int cardIndex, int trunkIndex, IReactor& signallingReactor, CAudioPort& audioPort, CPriPeer& priPeer,
              SHandlers eventHandlers);

  Call Place(SCallRequest request);
  void OnEvent(const SPriEvent& event);
  // A message of the library; true when it is of a call that is known.
  bool OnMessage(const SQ931Message& message);
  // Behind each frame: libpri frees a call that it released (causes 6, 7 and 26) without an event.
  void EndForgotten();
  // Any thread: a voice timeslot without a call, as of now.
  bool IsIdle(int timeslot) const { return timeslots.IsIdle(timeslot); }
  // The calls that have not ended. Signalling thread only.
  std::size_t Count() const { return calls.size(); }
  // Every call is lost; nothing is sent.
  void LoseAll();

  void Alert(Call call) override;
  void Answer(Call call) override;
  void Progress(Call call, int cause) override;
  void Hangup(Call call, int cause) override;
  void SendMessage(Call call, std::uint8_t type, Bytes elements) override;

 private:
  using Action = std::function<void(const Call&)>;

  void Send(const Call& call, const SCallRequest& request);
  void OnRing(const SPriEvent& event);
  void Follow(const Call& call, const SPriEvent& event);
  void OnConnected(const Call& call);
  void OnCleared(const Call& call, const SPriEvent& event);
  void FollowPlan(const Call& call, const SAnswerPlan& plan);
  void Later(const Call& call, std::chrono::milliseconds delay, Action action);
  void PostFor(Call call, Action action);
  void Disconnect(const Call& call, int cause);
  bool ReleasesAtOnce(const Call& call);
  void End(const Call& call);

  bool TakeTimeslot(const Call& call, int timeslot);
  void OpenAudio(const Call& call, EAudioFrom point);
  void CloseAudio(const Call& call);
  void Keep(const Call& call);
  Call Find(q931_call* handle) const;

  const int card;
  const int trunk;
  IReactor& reactor;
  CAudioPort& audio;
  CPriPeer& peer;
  const SHandlers handlers;
  std::vector<Call> calls;  // in the order in which they came
  CTimeslots timeslots;
};

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cardsim/audio/audio_port.h"
#include "cardsim/base/config.h"
#include "cardsim/base/history.h"
#include "cardsim/base/reactor.h"
#include "cardsim/exchange/call.h"
#include "cardsim/exchange/pri_event.h"

namespace cardsim {

class CControlLink;
class CTrunk;

// Job: one simulated card with the exchange behind its trunks: control connection, D-channels, calls, audio, faults.
// Thread: any for the public methods; what they ask for is done on the signalling thread, and methods marked (waits)
// return when it has been done. Owned by CSimulator; references to it live as long as that.
class CCard {
 public:
  CCard(int cardIndex, const SCardConfig& cardConfig, std::string broadcastAddress, bool keepHistory,
        IReactor& signallingReactor, IReactor& audioReactor);
  ~CCard();

  int Index() const { return index; }
  int TrunkCount() const { return config.identity.trunks; }
  std::uint32_t Serial() const { return config.identity.serial; }
  std::string Address() const;

  // What came and went; waits for it (WaitMessage, WaitTrunk, WaitQ931 ...).
  const CHistory& Seen() const { return history; }
  void ClearSeen() { history.Clear(); }
  // All trunks' D-channels up.
  bool WaitUp(std::chrono::milliseconds timeout) const;

  // ---- calls ----
  Call PlaceCall(SCallRequest request);  // throws std::out_of_range for a trunk that the card does not have
  // A voice timeslot with no call on it, as of now.
  bool IsTimeslotIdle(int trunk, int timeslot) const;
  // What becomes of calls from the library; the default plan alerts and answers at once.
  void SetAnswerPlan(const SAnswerPlan& plan);  // its farEnd.play serves one call
  void SetAnswerPlanner(AnswerPlanner planner);
  // The next call from the library that was not handed out before; null on time-out. Needs keepHistory.
  Call WaitCall(std::chrono::milliseconds timeout);
  // (waits) The calls that the exchange holds on a trunk, in whatever state.
  std::size_t CallCount(int trunk);
  std::vector<SHeldCall> HeldCalls(int trunk);  // (waits) those of them that libpri has
  // Called on the signalling thread for every call from the library, and at the end of every call. Must not block.
  void OnCallArrived(std::function<void(const Call&)> observer);
  void OnCallEnded(std::function<void(const Call&)> observer);

  // ---- audio ----
  CAudioPort& Audio() { return audio; }
  const CAudioPort& Audio() const { return audio; }
  // Hears a timeslot from now on, calls or not, until StopRecording.
  Recorder RecordTimeslot(int trunk, int timeslot);
  void StopRecording(int trunk, int timeslot, const Recorder& recorder);

  // ---- what the card reports ----
  void SetTrunkStatus(int trunk, std::uint8_t status);  // 0: in service; sent when changed
  void SendHdlcError(int trunk, std::uint8_t code);
  void SendHdlcErrors(int trunk, std::uint8_t code, int count);  // in one piece
  void SendRegisterValue(int trunk, std::uint16_t number, std::uint8_t value);
  void Announce();

  // ---- faults ----
  void DropControl();       // (waits) closes the TCP connection
  void ResetControl();      // (waits) the same with a RST
  void HalfCloseControl();  // (waits) ends the card's side of it; what the library sends is still taken
  // (waits) Closes the connection, listens anew (at another address if one is given) and announces itself.
  void Restart(const std::optional<std::string>& newAddress = std::nullopt);
  void SetListening(bool on);          // (waits) off: connections are refused
  void SetControlSilent(bool silent);  // nothing is sent on the control connection any more
  // No write on the control connection carries more than this many bytes (0: whole messages); `pause` between writes.
  void SetControlPieces(std::size_t bytes, std::chrono::milliseconds pause);
  void HoldControl(bool on);  // on: what is sent collects; off: it goes out in one write
  void SetAnswerInformation(bool answer);
  void SetAnswerDelay(std::chrono::milliseconds delay);  // time from an information request to its answer
  void SetInformation(std::optional<Bytes> message);     // sent in the place of the card information message
  void SetAnswerProbes(bool answer);
  void SetDiscoveryReply(std::optional<Bytes> datagram);
  void SendControl(Bytes bytes);
  void SendDatagram(Bytes bytes, const std::string& to, std::uint16_t port) {
    audio.SendTo(std::move(bytes), to, port);
  }
  void Broadcast(Bytes bytes) { audio.SendTo(std::move(bytes), broadcast, kCardPort); }
  void CutLine(int trunk, bool cut);  // a cut line loses every D-channel frame
  void SendFrame(int trunk, Bytes frameWithoutFcs);
  // The library's frames wait at the card: what the exchange sends meanwhile crosses them.
  void HoldFromLibrary(int trunk, bool hold);
  void TakeLayer2Down(int trunk);  // sends a DISC: layer 2 goes down, and up again by libpri's own doing
  void LoseLayer2(int trunk);  // the same and cuts the line after it: layer 2 stays down until CutLine(trunk, false)
  void RestartTimeslot(int trunk, int timeslot);  // sends a RESTART
  void RestartInterface(int trunk);               // sends a RESTART of all channels
  // Sends Q.931 bytes, well-formed or not, in a frame of their own in sequence.
  void SendQ931(int trunk, Bytes message);

 private:
  friend class CSimulator;

  void Open();  // throws std::system_error
  void Close();
  void Tick();
  void OnProbe(const std::string& from);

  void OnConnected(const std::string& peer);
  void OnDisconnected();
  void OnMessage(SControlMessage&& message);
  void AnswerInformation();
  void OnAudioPort(std::uint16_t port);
  void TakeCall(const Call& call);
  SAnswerPlan PlanFor(const CCall& call);
  void EndOfCall(const Call& call);
  void LinesUpLater();
  void LinesDown();
  void Send(Bytes bytes);
  void SendStatus();
  void Post(std::function<void()> work);
  void OnTrunk(int trunk, std::function<void(CTrunk&)> work);
  CTrunk& Trunk(int trunk) const;

  const int index;
  const SCardConfig config;
  const std::string broadcast;
  IReactor& reactor;
  CHistory history;
  CAudioPort audio;

  // Signalling thread only.
  std::unique_ptr<CControlLink> link;
  std::vector<std::unique_ptr<CTrunk>> trunks;
  Bytes status;
  std::chrono::steady_clock::time_point nextStatus;
  std::string library;
  std::uint64_t connection = 0;
  bool connected = false;
  bool started = false;
  bool silent = false;
  bool answerInformation = true;
  bool answerProbes = true;
  std::chrono::milliseconds answerDelay{0};
  std::optional<Bytes> information;
  std::optional<Bytes> discoveryReply;

  mutable std::mutex lock;
  std::condition_variable arrived;
  std::string address;                               // guarded by lock
  std::deque<Call> waitingCalls;                     // guarded by lock
  AnswerPlanner planner;                             // guarded by lock
  std::function<void(const Call&)> arrivalObserver;  // guarded by lock
  std::function<void(const Call&)> endObserver;      // guarded by lock
};

}  // namespace cardsim

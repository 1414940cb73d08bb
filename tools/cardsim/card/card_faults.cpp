// SPDX-License-Identifier: GPL-2.0-only

// The part of CCard by which a test makes it report something or misbehave.
#include "cardsim/card/card.h"
#include "cardsim/card/control_link.h"
#include "cardsim/exchange/trunk.h"

namespace cardsim {

void CCard::Post(std::function<void()> work) {
  reactor.Post(std::move(work));
}

void CCard::OnTrunk(int trunk, std::function<void(CTrunk&)> work) {
  CTrunk& target = Trunk(trunk);
  Post([&target, work = std::move(work)] { work(target); });
}

void CCard::SetTrunkStatus(int trunk, std::uint8_t value) {
  Trunk(trunk);  // an unknown trunk is the caller's mistake, told here
  Post([this, trunk, value] {
    std::uint8_t& current = status[static_cast<std::size_t>(trunk)];
    if (current != value) {
      current = value;
      SendStatus();
    }
  });
}

void CCard::SendHdlcError(int trunk, std::uint8_t code) {
  SendControl(BuildHdlcError(static_cast<std::uint8_t>(trunk), code));
}

void CCard::SendHdlcErrors(int trunk, std::uint8_t code, int count) {
  Bytes burst;
  for (int i = 0; i < count; ++i) {
    const Bytes one = BuildHdlcError(static_cast<std::uint8_t>(trunk), code);
    burst.insert(burst.end(), one.begin(), one.end());
  }
  SendControl(std::move(burst));
}

void CCard::SendRegisterValue(int trunk, std::uint16_t number, std::uint8_t value) {
  SendControl(BuildRegisterValue(static_cast<std::uint8_t>(trunk), number, value));
}

void CCard::Announce() {
  Broadcast(BuildAnnouncement(config.identity.serial));
}

void CCard::DropControl() {
  reactor.Call([this] { link->Drop(); });
}

void CCard::ResetControl() {
  reactor.Call([this] { link->Reset(); });
}

void CCard::HalfCloseControl() {
  reactor.Call([this] { link->HalfClose(); });
}

void CCard::SetControlPieces(std::size_t bytes, std::chrono::milliseconds pause) {
  Post([this, bytes, pause] { link->SetPieces(bytes, pause); });
}

void CCard::HoldControl(bool on) {
  Post([this, on] { link->Hold(on); });
}

void CCard::Restart(const std::optional<std::string>& newAddress) {
  reactor.Call([&] {
    link->StopListening();
    link->Drop();
    const std::string next = newAddress.value_or(Address());
    if (newAddress) {
      audio.Open(next);
      const std::lock_guard guard(lock);
      address = next;
    }
    link->Listen(next);
    Announce();
  });
}

void CCard::SetListening(bool on) {
  reactor.Call([&] {
    link->StopListening();
    if (on) {
      link->Listen(Address());
    }
  });
}

void CCard::SetControlSilent(bool value) {
  Post([this, value] { silent = value; });
}

void CCard::SetAnswerInformation(bool answer) {
  Post([this, answer] { answerInformation = answer; });
}

void CCard::SetAnswerDelay(std::chrono::milliseconds delay) {
  Post([this, delay] { answerDelay = delay; });
}

void CCard::AnswerInformation() {
  const auto answer = [this, current = connection] {
    if (connected && connection == current) {
      Send(information.value_or(BuildInformation(config.identity)));
      SendStatus();
    }
  };
  if (answerDelay.count() == 0) {
    answer();
  } else {
    reactor.After(answerDelay, answer);
  }
}

void CCard::SetInformation(std::optional<Bytes> message) {
  Post([this, message = std::move(message)] { information = message; });
}

void CCard::SetAnswerProbes(bool answer) {
  Post([this, answer] { answerProbes = answer; });
}

void CCard::SetDiscoveryReply(std::optional<Bytes> datagram) {
  Post([this, datagram = std::move(datagram)] { discoveryReply = datagram; });
}

void CCard::SendControl(Bytes bytes) {
  Post([this, bytes = std::move(bytes)] { Send(bytes); });
}

void CCard::CutLine(int trunk, bool cut) {
  OnTrunk(trunk, [cut](CTrunk& target) { target.SetCut(cut); });
}

void CCard::SendFrame(int trunk, Bytes frameWithoutFcs) {
  OnTrunk(trunk, [frame = std::move(frameWithoutFcs)](CTrunk& target) { target.SendRawFrame(frame); });
}

void CCard::TakeLayer2Down(int trunk) {
  const auto role = config.roles.find(trunk);
  const bool userSide = role != config.roles.end() && role->second.userSide;
  // A command's C/R bit is 1 from the network and 0 from the user; DISC with the poll bit.
  SendFrame(trunk, {static_cast<std::uint8_t>(userSide ? 0x00 : 0x02), 0x01, 0x53});
}

void CCard::LoseLayer2(int trunk) {
  TakeLayer2Down(trunk);
  CutLine(trunk, true);
}

void CCard::HoldFromLibrary(int trunk, bool hold) {
  OnTrunk(trunk, [hold](CTrunk& target) { target.SetHold(hold); });
}

void CCard::RestartTimeslot(int trunk, int timeslot) {
  OnTrunk(trunk, [timeslot](CTrunk& target) { target.Peer().RestartTimeslot(timeslot); });
}

void CCard::RestartInterface(int trunk) {
  constexpr std::uint8_t kRestart = 0x46;
  constexpr std::uint8_t kRestartIndicator = 0x79;
  constexpr std::uint8_t kAllInterfaces = 0x87;
  SendQ931(trunk, {0x08, 0x02, 0x00, 0x00, kRestart, kRestartIndicator, 1, kAllInterfaces});
}

void CCard::SendQ931(int trunk, Bytes message) {
  OnTrunk(trunk, [message = std::move(message)](CTrunk& target) { target.Peer().SendQ931(message); });
}

}  // namespace cardsim

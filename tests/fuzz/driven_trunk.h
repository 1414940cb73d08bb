// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>

#include "call/channel_handlers.h"
#include "call/channel_table.h"
#include "card/card.h"
#include "fuzz/target.h"
#include "support/memory_trunk.h"
#include "zelk/ZelkApi.h"

namespace zelk::fuzz {

// One trunk of a card that is not opened, with its 30 channels and an application. Nothing is sent anywhere: what the
// library writes is read here, by the other side's layer 2, so that an input need not count frames.
// Thread: one. libpri's clock moves with Elapse alone in a fuzz build; elsewhere it is the system's.
class CDrivenTrunk {
 public:
  // What the application does with a call in its callback.
  enum class EReaction : uint8_t { kNone, kAnswer, kHangup, kReject };
  struct SSetUp {
    int32_t switchType;
    bool isNetwork;      // our side
    bool answersLayer2;  // the other side, by itself
    EReaction reaction;
  };

  explicit CDrivenTrunk(const SSetUp& trunkSetUp);
  ~CDrivenTrunk();
  CDrivenTrunk(const CDrivenTrunk&) = delete;
  CDrivenTrunk& operator=(const CDrivenTrunk&) = delete;

  // A layer 3 message in the next information frame.
  void Message(const Bytes& message);
  // The same with the reference of the call that was set up last, by either side.
  void MessageOfCall(const Bytes& typeAndElements);
  // A frame with its FCS.
  void Frame(const Bytes& frame);
  void Elapse(int64_t ms);
  void Application(uint8_t what, uint8_t channel);
  void LoseCard(bool comesBack);
  void ReopenCard();

 private:
  static void ZELK_CALL OnEvent(int32_t channel, uint32_t event, int32_t param);

  void React(int32_t channel, uint32_t event);
  void AddChannels();
  void MakeController();
  uint8_t PeerAddress(bool isCommand) const;
  void AnswerLayer2();
  void AnswerFrame(const Bytes& frame);
  void AnswerUnnumbered(const Bytes& frame);
  void ReadInformation(CDevice& device) const;

  const SSetUp setUp;
  int64_t nowMs;
  uint8_t sent = 0;      // N(S) of the other side's next frame
  uint8_t received = 0;  // its N(R)
  bool isAcknowledgeDue = false;
  std::array<uint8_t, 2> reference = {0, 1};
  CCard card{0};
  CChannelTable table;
  CChannelHandlers handlers;
  CUnopenedTrunk trunk;
};

}  // namespace zelk::fuzz

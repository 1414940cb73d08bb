// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "card/card_handlers.h"
#include "card/card_information.h"
#include "card/control_link.h"
#include "card/trunk.h"
#include "card/trunk_lock.h"
#include "stream/audio_stream.h"

namespace zelk {

// What the threads of a card share: trunks, control connection, audio, handlers and facts. A thread that outlives its
// join keeps it alive; CCard is the only one that opens and closes it.
// Thread: any. OnPriFrame runs under the trunk's lock; OnAudioNotice on the receive thread.
class CCardCore : public IPriWriter, public IAudioNotice {
 public:
  CCardCore(CCard& card, uint32_t cardNumber) : owner(card), number(cardNumber), audio(*this, cardNumber) {}

  void SendTrunkConfiguration(uint32_t trunk);
  void SendRegisterRead(uint32_t trunk, uint16_t registerNumber);
  bool SendDchannelFrame(uint32_t trunk, const uint8_t* frame, size_t length);
  void ReportCardUp();
  void ReportCardDown(const CStopFlag& caller);

  // Reports that a trunk's D-channel came up before there were handlers to tell. Thread: control.
  void ReportEarlyDchannels(const CStopFlag& caller);
  // Both work under the trunks' locks. A trunk whose lock stays taken for the whole time, by a callback that does not
  // return, is left to its control thread; the result is then false.
  bool ReleaseControllers(const SLockPatience& patience);
  bool CloseCaptures(const SLockPatience& patience);
  // What the two above had to leave of a generation: of one trunk, as soon as a control thread that has been given up
  // is back from its callback and before it lets the trunk's lock go; of all, as its last act.
  static void ReleaseLeftover(CTrunk& trunk, uint32_t generation) ZELK_REQUIRES(trunk.lock);
  void ReleaseLeftovers(uint32_t generation);

  // A thread that did not end in time may still report to the core: from here on it stays for good. Thread: opener.
  static void KeepForever(const std::shared_ptr<CCardCore>& core);

  // A frame goes to the capture and to the card without its FCS, which the card makes itself.
  int OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) override;
  void OnTimersMoved(uint32_t trunk, bool isBacklogged) override;
  uint32_t MessageCard() const override;
  void OnAudioNotice(const char* text) override;

  CCard& owner;  // handed to the handlers, not used; gone when handlers is null after a close
  const uint32_t number;
  std::array<CTrunk, kMaxTrunks> trunks;
  CControlLink link;
  CCardFacts facts;
  std::atomic<ICardHandlers*> handlers{nullptr};
  std::atomic<bool> controllersRunning{false};
  std::atomic<uint32_t> crc4{0};  // of the trunk configured last
  CAudioStream audio;             // last, so that its threads end before the rest goes

 private:
  template <class Action>
  bool ForEachTrunkWithin(const SLockPatience& patience, Action action);

  std::shared_ptr<CCardCore> kept;
  CCardCore* nextKept = nullptr;
};

}  // namespace zelk

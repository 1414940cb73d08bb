// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "card/card_handlers.h"
#include "card/trunk.h"
#include "platform/ipv4_address.h"
#include "platform/mutex.h"
#include "platform/thread.h"
#include "runtime/stop_flag.h"
#include "stream/audio_stream.h"

namespace zelk {

class CCardCore;
class CControlThread;

// One card: opens and closes the control connection, the trunks' controllers, the audio and the three threads.
// Thread: opener (start-up, shut-down or the announcement listener, one at a time: the lifecycle lock sees to it) for
// Open, Close and Reopen, which block for seconds in the worst case; any for the rest, which do not block. A failed
// Open, also for want of memory, returns false and leaves the card closed. Application threads find a closed card's
// controllers null. No callback of the application runs while the lifecycle lock is held.
class CCard {
 public:
  explicit CCard(uint32_t cardNumber);
  ~CCard();  // Closes.
  CCard(const CCard&) = delete;
  CCard& operator=(const CCard&) = delete;

  // Defaults of all 8 trunk positions, before the first open.
  void SetTrunkDefaults(int32_t switchType, int32_t clientType, int32_t numberType);
  // The port is accepted and not used: a card listens on kCardPort.
  // The serial number of a card that could not be opened is 0: no announcement is its own.
  bool Open(SIpv4Address cardAddress, uint16_t port, SIpv4Address localAddress);
  // Safe on a card that is partly open or closed. Waits up to 3 s for all the trunks' locks and for each of the card's
  // three threads; on a closed card for nothing.
  void Close();
  // A restarted card: closes it if it is open, opens it again, keeps its serial number when that fails. The handlers
  // hear of it after the controllers are gone and before anything else is closed; the card may be closed and opened
  // meanwhile. A caller that is given up ends the open early, and after a callback that it comes back from too late it
  // touches nothing: this object may be gone.
  bool Reopen(SIpv4Address cardAddress, SIpv4Address localAddress, const CStopFlag& caller);
  // Also takes the media hook. A D-channel that came up since the open is reported by the card's control thread soon.
  void SetHandlers(ICardHandlers* handlers);

  uint32_t Number() const;
  uint32_t TrunkCount() const;
  uint32_t SerialNumber() const;
  void RestoreSerialNumber(uint32_t serialNumber);
  uint32_t FeatureFlags() const;
  uint8_t FirmwareVersion() const;
  std::string FirmwareDate() const;
  std::string BurnDate() const;
  bool ControllersRunning() const;

  CTrunk& Trunk(uint32_t trunk);  // trunk below kMaxTrunks
  CAudioStream& Audio();

  // Messages to the card; silently nothing when the control connection is closed. trunk counted from 0 (and -1 for the
  // configuration that a link reset of trunk 0 sends).
  void SendTrunkConfiguration(uint32_t trunk);
  void SendRegisterRead(uint32_t trunk, uint16_t registerNumber);
  // False when the frame is longer than a message holds; true without sending on a closed card.
  bool SendDchannelFrame(uint32_t trunk, const uint8_t* frame, size_t length);

 private:
  bool BeginReopen(const CStopFlag& caller, uint32_t& serialNumber);
  void TellReopening(const CStopFlag& caller);
  bool FinishReopen(SIpv4Address cardAddress, SIpv4Address localAddress, const CStopFlag& caller,
                    uint32_t serialNumber);
  bool OpenLocked(SIpv4Address cardAddress, SIpv4Address localAddress, const CStopFlag& caller)
      ZELK_REQUIRES(lifecycle);
  void CloseLocked(const CStopFlag& caller) ZELK_REQUIRES(lifecycle);
  bool TryOpen(SIpv4Address cardAddress, SIpv4Address localAddress, const CStopFlag& caller) ZELK_REQUIRES(lifecycle);
  bool ResetForOpen(const CStopFlag& caller);
  bool StartControl() ZELK_REQUIRES(lifecycle);
  bool AwaitInformation(const CStopFlag& caller);
  bool StartAudio(SIpv4Address localAddress, SIpv4Address cardAddress);
  void StopControllers(const CStopFlag& caller) ZELK_REQUIRES(lifecycle);
  void StopThreads() ZELK_REQUIRES(lifecycle);

  const std::shared_ptr<CCardCore> core;
  CMutex lifecycle;                                    // held through an open or a close; above every other lock
  uint32_t generation ZELK_GUARDED_BY(lifecycle) = 0;  // how often the card has been opened
  // What a close has left to do.
  bool hasControllers ZELK_GUARDED_BY(lifecycle) = false;
  bool isBegun ZELK_GUARDED_BY(lifecycle) = false;
  std::shared_ptr<CControlThread> control ZELK_GUARDED_BY(lifecycle);
  CThread controlThread ZELK_GUARDED_BY(lifecycle);
};

}  // namespace zelk

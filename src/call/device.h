// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "call/call_state.h"
#include "call/call_type.h"
#include "card/card.h"
#include "platform/mutex.h"
#include "playback/dword_queue.h"
#include "playback/wave.h"
#include "runtime/status_layout.h"

namespace zelk {

constexpr uint32_t kDwordQueueCapacity = 40;
constexpr size_t kMessageBytes = 513;

// Where a channel stands: the index of its card, the trunk and timeslot on it, and its place in the channel table.
struct SDevicePlace {
  int32_t cardIndex = 0;
  int32_t trunkIndex = 0;  // from 0
  uint32_t timeslot = 0;   // 1..15 or 17..31, which is libpri's B-channel number too
  uint32_t channelNumber = 0;
};

// One voice channel: its place, the state of its call, the texts that the application reads, and its play queue.
// Thread: any. The record itself does nothing; what happens to it stands in channel_info, call_events, call_operations
// and trunk_status. The channel table owns it; the card must outlive it. Lock order: trunk lock, callLock, infoLock.
class CDevice : public IWaveOwner, public IEchoSwitch {
 public:
  // Copies the card's serial number and firmware texts, as they are after its open. direction: see CCallState.
  CDevice(CCard& card, const SDevicePlace& place, int32_t direction = 0);
  ~CDevice() override;
  CDevice(const CDevice&) = delete;
  CDevice& operator=(const CDevice&) = delete;

  // Opens the channel and its play queue; nothing when it is open.
  void Open();
  // Reads "DOWN" from here until the trunk next comes up; a call goes on. Nothing when it is not open.
  void Close();
  bool IsOpen() const { return isOpen; }

  // Taken out of the table while an export may still be inside; it does nothing more to its trunk. Keeps the next of a
  // list. Thread: initialising; IsRetired any.
  void Retire(std::unique_ptr<CDevice> nextRetired) {
    next = std::move(nextRetired);
    isRetired = true;
  }
  std::unique_ptr<CDevice> TakeNext() { return std::move(next); }
  bool IsRetired() const { return isRetired; }

  CTrunk& Trunk() const;
  int32_t CardIndex() const { return place.cardIndex; }
  int32_t TrunkIndex() const { return place.trunkIndex; }
  uint32_t Timeslot() const { return place.timeslot; }
  uint32_t ChannelNumber() const { return place.channelNumber; }
  const std::string& Name() const { return name; }
  const std::string& SerialText() const { return serialText; }
  uint32_t FeatureFlags() const { return featureFlags; }
  const std::string& FirmwareDate() const { return firmwareDate; }
  const std::string& BurnDate() const { return burnDate; }
  uint8_t FirmwareVersion() const { return firmwareVersion; }

  CCallState& Call() { return call; }
  const CCallState& Call() const { return call; }
  CWave& Wave() { return *wave; }
  const CWave& Wave() const { return *wave; }
  CDwordQueue& StartQueue() { return startQueue; }
  CDwordQueue& EndQueue() { return endQueue; }

  uint32_t LastError() const { return lastError; }
  void SetLastError(uint32_t error) { lastError = error; }
  bool AllowsIncoming() const { return allowIncoming; }
  void AllowIncoming(bool allow) { allowIncoming = allow; }

  // ---- information, each under infoLock ----

  void ClearMessage();
  void SetMessage(const char* text);  // at most 512 characters are kept
  std::string Message() const;

  void SetDialCli(const char* number);
  // Texts of a call that the application makes. Returns the calling number.
  std::string NoteDialled(const char* number);
  // Texts of a call that the network offers.
  void NoteOffered(const SPriEvent& ring, const char* type);
  // Those that libpri knows by the time of the answer; what is not valid keeps its text.
  void NoteParties(const SPriParties& parties);

  std::string DialCli() const;
  std::string Cli() const;
  std::string Dli() const;
  std::string Rli() const;
  std::string CallType() const;
  std::string InputType() const;
  int32_t LastCause() const;

  // Keeps what an information request found; the result lives until the next one.
  const char* KeepInfo(const std::string& text);

  // First half of every call end: the cause is kept, numbers and call type are emptied. The second is CCallState::End.
  void ClearCallInfo(int32_t cause);
  // Both, for a call of which libpri has nothing left to hang up.
  void EndCall(int32_t cause);

  void SwitchEcho(bool on) override;
  void SilenceTransmit() override;
  int32_t LogChannel() const override;

 private:
  void ShowOpen(uint32_t open) const;

  CCard& card;
  const SDevicePlace place;
  const std::string serialText;
  const uint32_t featureFlags;
  const std::string firmwareDate;
  const std::string burnDate;
  const uint8_t firmwareVersion;

  std::unique_ptr<CDevice> next;
  std::atomic<bool> isRetired{false};
  std::atomic<bool> isOpen{false};
  std::atomic<uint32_t> lastError{0};
  std::atomic<bool> allowIncoming{true};
  CCallState call;
  SStatusChannel* const shown;  // null without a status page

  mutable CMutex infoLock;
  std::string dialCli ZELK_GUARDED_BY(infoLock);
  std::string infoResult ZELK_GUARDED_BY(infoLock);  // what the last information request returned
  std::string cli ZELK_GUARDED_BY(infoLock);
  std::string dli ZELK_GUARDED_BY(infoLock);
  std::string rli ZELK_GUARDED_BY(infoLock);
  const char* callType ZELK_GUARDED_BY(infoLock) = kCallTypeNone;
  const char* inputType ZELK_GUARDED_BY(infoLock) = "";

  // Kept, never read by the library.
  const std::string name;
  int32_t lastCause ZELK_GUARDED_BY(infoLock) = 0;
  std::array<char, kMessageBytes> message ZELK_GUARDED_BY(infoLock) = {};
  CDwordQueue endQueue;
  CDwordQueue startQueue;

  const std::unique_ptr<CWave> wave;  // last: it is destroyed first and still calls up to this channel
};

}  // namespace zelk

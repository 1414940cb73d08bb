#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "card/card.h"
#include "platform/mutex.h"
#include "playback/dword_queue.h"
#include "playback/wave.h"

namespace zelk {

constexpr uint32_t kDwordQueueCapacity = 40;
constexpr size_t kMessageBytes = 513;

// Where a channel stands: its card's slot, the trunk and timeslot on it, and its place in the channel table.
struct SDevicePlace {
  int32_t cardIndex = 0;
  int32_t trunkIndex = 0;  // from 0
  uint32_t timeslot = 0;   // 1..15 or 17..31, which is libpri's B-channel number too
  uint32_t channelNumber = 0;
};

// One voice channel: its place, the state of its call, the texts that the application reads, and its play queue.
// Thread: any. The record itself does nothing; what happens to it stands in channel_info, call_events, call_operations
// and trunk_status. The channel table owns it; the card must outlive it. Lock order: trunk lock, callLock, infoLock.
class CDevice : public IWaveOwner {
 public:
  // Copies the card's serial number and firmware texts, as they are after its open.
  CDevice(CCard& card, const SDevicePlace& place);
  ~CDevice() override;
  CDevice(const CDevice&) = delete;
  CDevice& operator=(const CDevice&) = delete;

  // Opens the channel and its play queue; nothing when it is open.
  void Open();
  // Reads "DOWN" from here until the trunk next comes up; a call goes on. Nothing when it is not open.
  void Close();

  CTrunk& Trunk() const;
  // The switch of the whole trunk: the audio of its other channels follows it too.
  void SwitchEcho(bool on) const;

  void ClearMessage();
  void SetMessage(const char* text);  // at most 512 characters are kept

  // First half of every call end: the cause is kept, numbers and call type are emptied.
  void ClearCallInfo(int32_t cause);
  // Second half: no call, not connected, echo cancelling off.
  void ForgetCall();
  // A call that the network offers. Whatever the channel was left with, it is not connected.
  void TakeOffer(PriCall call);

  // A call lost with its trunk or card lives on in libpri until it is cleared there; what libpri still says of it must
  // not reach a newer call on this channel. RememberLost keeps the current call as one of these.
  void RememberLostCall();
  bool IsLostCall(PriCall call);
  // libpri has cleared it.
  void ForgetLostCall(PriCall call);
  void ForgetLostCalls();

  void SilenceTransmit() override;
  uint32_t FlushCount() const override;
  int32_t LogChannel() const override;

  CCard& card;
  const int32_t cardIndex;
  const int32_t trunkIndex;
  const uint32_t timeslot;
  const uint32_t channelNumber;
  const std::string name;
  const std::string serialText;
  const uint32_t featureFlags;
  const std::string firmwareDate;
  const std::string burnDate;
  const uint8_t firmwareVersion;

  std::atomic<bool> isOpen{false};
  std::atomic<int32_t> linkState{-1};  // -1 trunk down, 1 trunk up
  // Below 1 outgoing. Nothing ever sets another value, so every call reads as outgoing: applications rely on it.
  std::atomic<int32_t> direction{0};
  std::atomic<uint32_t> lastError{0};
  std::atomic<bool> connected{false};
  std::atomic<bool> allowIncoming{true};
  // Written under callLock.
  std::atomic<PriCall> callHandle{nullptr};
  CMutex callLock;

  CMutex infoLock;
  int32_t lastCause ZELK_GUARDED_BY(infoLock) = 0;
  std::string dialCli ZELK_GUARDED_BY(infoLock);
  std::string infoResult ZELK_GUARDED_BY(infoLock);  // what the last information request returned
  std::string cli ZELK_GUARDED_BY(infoLock);
  std::string dli ZELK_GUARDED_BY(infoLock);
  std::string rli ZELK_GUARDED_BY(infoLock);
  const char* callType ZELK_GUARDED_BY(infoLock) = "";
  const char* inputType ZELK_GUARDED_BY(infoLock) = "";
  std::array<char, kMessageBytes> message ZELK_GUARDED_BY(infoLock) = {};

  CDwordQueue endQueue;
  CDwordQueue startQueue;

 private:
  std::vector<PriCall> lostCalls ZELK_GUARDED_BY(callLock);

 public:
  CWave wave;  // last: it is destroyed first and still calls up to this channel
};

}  // namespace zelk

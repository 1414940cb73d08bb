// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <span>

#include "platform/simulated/net/lines.h"
#include "platform/simulated/net/machine.h"

namespace zelk::sim {

// A stream between a socket of the library and the outside: each way a queue of messages that arrive in order.
// The socket and the outside hold it; it goes when both are done and nothing is under way.
// Thread: tasks and acts of the world.
class CConnection : public CStream, public std::enable_shared_from_this<CConnection> {
 public:
  // What happens to the library's request to connect, when it has arrived.
  enum class EAnswer { kAccept, kRefuse, kSilence };
  using Asked = std::function<EAnswer(CConnection&)>;

  CConnection(CWorld& owner, CLines& lines, SSocket& libraryEnd, SIpv4Endpoint remote, Asked atArrival);

  // The library's end. Negative results are error numbers.
  void Connect();
  int64_t Send(std::span<const uint8_t> data);
  int64_t Receive(std::span<uint8_t> room);
  int TakeError();
  bool IsReadable() const;
  bool IsWritable() const;
  bool IsUnderWay() const { return stage == EStage::kConnecting; }
  void CloseLibraryEnd();

  // The outside's.
  void Accept() { Push(toLibrary, EKind::kAccept); }
  SIpv4Endpoint Local() const override { return outsideAt; }
  SIpv4Endpoint Peer() const override { return libraryAt; }
  void OnData(std::function<void(std::span<const uint8_t>)> handler) override;
  void OnEnd(std::function<void()> handler) override;
  void OnReset(std::function<void()> handler) override;
  void Write(std::span<const uint8_t> data) override;
  size_t Unsent() const override;
  void StopReading(bool on) override;
  void HalfClose() override;
  void Close() override;
  void Reset() override;
  void Vanish(bool isBack) override;

  // Handlers may hold the stream itself.
  void DropHandlers() { handlers = std::make_shared<SHandlers>(); }

 private:
  enum class EStage { kConnecting, kOpen, kGone };
  using EKind = SWireMessage::EKind;
  struct SMessage {
    EKind kind;
    Bytes data;
    int64_t dueUs;
  };
  struct SWay {
    std::deque<SMessage> queue;
    bool isScheduled = false;
    bool isHeld = false;  // the receiver has no room for the first one
    uint32_t failures = 0;
    int64_t failingSinceUs = 0;
  };
  struct SHandlers {
    std::function<void(std::span<const uint8_t>)> onData;
    std::function<void()> onEnd;
    std::function<void()> onReset;
  };

  SLine& LineOf(const SWay& way);
  void Push(SWay& way, EKind kind, std::span<const uint8_t> data = {});
  void Schedule(SWay& way, int64_t dueUs);
  void Pump(SWay& way);
  void Arrive(SWay& way);
  void FailToArrive(SWay& way);
  void GiveUp(SWay& way);
  bool TakeAtOutside(SMessage& message);
  bool TakeAtLibrary(SMessage& message);
  void Ask();
  void TakeHeld();
  void LoseOutside();
  void LoseLibrary(int withError);
  void WakeLibrary();
  void Show(EKind kind, bool isToLibrary, std::span<const uint8_t> data) const;
  template <class Change>
  void ChangeHandlers(Change change);

  CWorld& world;
  CLines& lines;
  const SIpv4Endpoint libraryAt;
  const SIpv4Endpoint outsideAt;
  const Asked asked;

  SWay toOutside;
  SWay toLibrary;

  SSocket* socket;  // null once the library has closed it
  EStage stage = EStage::kConnecting;
  int error = 0;
  bool hasPeerEnded = false;
  std::deque<uint8_t> received;
  size_t outstanding = 0;  // sent by the library, and not yet in the outside's hands

  std::shared_ptr<SHandlers> handlers = std::make_shared<SHandlers>();
  std::deque<uint8_t> held;  // while the outside does not read
  bool isStopped = false;
  bool isEndHeld = false;
  bool isOutsideClosed = false;
  bool hasOutsideEnded = false;
  bool hasVanished = false;
  bool isBack = false;
};

}  // namespace zelk::sim

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "trace/core/control_decoder.h"

namespace trace {

// A control connection, as far as the capture has told yet.
struct SConnection {
  int number = 0;          // in the capture, from 0
  std::uint32_t card = 0;  // address
  SEndpoint library;
  std::uint32_t serial = 0;  // 0: not known
  int trunks = 0;            // 0: not known
  bool isBegunBefore = false;
  Time begin = 0;
  std::uint16_t audioPort = 0;  // of the library; 0: not known
};

// What a card is called: its serial number, or its address where that is not known.
std::string CardName(const SConnection& connection);

enum class EDatagram { kProbe, kReply, kAnnouncement };

struct SDiscovery {
  EDatagram kind = EDatagram::kProbe;
  Time time = 0;
  std::uint64_t packet = 0;
  std::uint32_t from = 0;
  std::uint32_t serial = 0;  // of an announcement
};

struct SAudio {
  EDirection direction = EDirection::kToLibrary;
  Time time = 0;
  std::uint64_t packet = 0;
  std::uint32_t card = 0;  // address
  std::uint32_t sequence = 0;
  std::uint8_t hint = 0;
  ByteView samples;  // of all frames and trunks
};

// Hears what cards and library say to each other, in the order of the capture.
class ITrafficSink {
 public:
  virtual ~ITrafficSink() = default;
  virtual void OnPacket(Time) {}  // before each that is looked at
  virtual void OnDiscovery(const SDiscovery&) {}
  virtual void OnConnected(const SConnection&) {}
  virtual void OnControl(const SConnection&, const SControl&) {}
  virtual void OnDisconnected(const SConnection&, Time) {}
  virtual void OnAudio(const SAudio&) {}
};

struct STrafficCounts {
  std::uint64_t control = 0;    // segments
  std::uint64_t discovery = 0;  // datagrams
  std::uint64_t audio = 0;
  std::uint64_t connections = 0;
  std::uint64_t begunBefore = 0;        // connections whose begin is not in the capture
  std::uint64_t withoutTrunkCount = 0;  // connections of which the card's side could not be read
  std::uint64_t oneSided = 0;           // connections with data of which only one direction is in the capture
  std::uint64_t afterTheEnd = 0;        // segments of connections that have ended
  STcpCounts tcp;
  SControlCounts messages;
  bool IsEmpty() const { return messages.messages + discovery + audio == 0; }
};

// Job: tells packets of cards from others and takes them apart: discovery, control connections, audio. A connection
// ends with a reset, with both sides' ends, or when its card is connected anew, at this address or another. A capture
// may have the two directions out of order: a segment that acknowledges what is not here yet waits for that, kPatience
// at most; what has waited behind a gap comes in the order of the packets, both directions together. Thread: one. Owns
// the connections. Nothing fails.
class CTraffic {
 public:
  static constexpr Time kPatience = kSecond / 5;

  // `trunkCount`: for cards of which the capture does not tell it; 0 for none.
  CTraffic(ITrafficSink& trafficSink, int trunkCount);

  ~CTraffic();
  CTraffic(const CTraffic&) = delete;
  CTraffic& operator=(const CTraffic&) = delete;

  void OnPacket(const SPacket& packet);
  // The capture is over: connections end with it.
  void Finish();
  STrafficCounts Counts() const;

 private:
  struct SLive;

  void OnSegment(const SPacket& packet);
  void OnDatagram(const SPacket& packet);
  void Process(SLive& live, const SPacket& packet);
  void ProcessDeferred(SLive& live, bool isAll);
  SLive* Find(const SPacket& packet, EDirection direction);
  SLive& Begin(const SPacket& packet, EDirection direction);
  void OnPiece(SLive& live, EDirection direction, const SPiece& piece);
  void Deliver(SLive& live);
  void OnMessage(SLive& live, SControl&& message);
  void Tell(SLive& live, const SControl& message);
  void Drain(SLive& live);
  void End(SLive& live, Time time);
  void EndOthersOf(const SLive& live, Time time);

  ITrafficSink& sink;
  const int trunksToAssume;
  STrafficCounts counts;
  // By card and the library's end.
  std::map<std::pair<std::uint32_t, SEndpoint>, std::unique_ptr<SLive>> connections;
  std::map<std::uint32_t, SConnection> lastOfCard;  // by address
  Time last = 0;                                    // the latest, since the clock of the capture was last set back
};

}  // namespace trace

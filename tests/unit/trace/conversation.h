// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "common/wire.h"
#include "trace/core/analysis.h"

namespace trace::test {

inline constexpr std::uint32_t kCard = 0x7F000101;     // 127.0.1.1
inline constexpr std::uint32_t kLibrary = 0x7F000001;  // 127.0.0.1
inline constexpr std::uint16_t kLibraryPort = 40000;
inline constexpr std::uint32_t kSerial = 100001;
inline constexpr std::uint8_t kSetup = 0x05;
inline constexpr std::uint8_t kConnect = 0x07;
inline constexpr std::uint8_t kDisconnect = 0x45;
inline constexpr Time kBegin = 1'700'000'000 * kSecond;

// A packet of a capture: when, and its bytes from the Ethernet header on.
struct SFrameOnWire {
  Time time = 0;
  Bytes bytes;
};
using Wire = std::vector<SFrameOnWire>;

Bytes Text(const std::string& text);
Bytes Join(const std::vector<Bytes>& parts);

// Ethernet, IPv4 and TCP or UDP around a payload.
Bytes TcpPacket(bool fromLibrary, std::uint32_t sequence, std::uint32_t acknowledged, std::uint8_t flags,
                const Bytes& payload, std::uint16_t libraryPort = kLibraryPort, std::uint32_t card = kCard);
Bytes UdpPacket(bool fromLibrary, std::uint16_t libraryPort, std::uint16_t cardPort, const Bytes& payload);

// A pcap file of Ethernet, or of another link type.
Bytes PcapFile(const Wire& wire, std::uint32_t linkType = 1);
// A stream from which the bytes are read.
std::FILE* Stream(const Bytes& bytes);

// Frames of layer 2 for a library on the user side, without FCS.
Bytes Sabme(bool fromLibrary);
Bytes Ua(bool fromLibrary);
Bytes Information(bool fromLibrary, int sendNumber, int receiveNumber, const Bytes& message);
// A Q.931 message; `isAnswer`: to the side that chose the reference.
Bytes Message(int reference, bool isAnswer, std::uint8_t type, const Bytes& elements = {});
Bytes NumberElement(std::uint8_t id, const std::string& digits);
Bytes ChannelElement(int timeslot);
Bytes CauseElement(int cause);
// As they stand in the control stream; trunks count from 0.
Bytes ToLibrary(int trunk, const Bytes& frame);
Bytes FromLibrary(int trunk, const Bytes& frame);

// Job: writes a control connection and audio down as the packets that a capture would hold, each a millisecond after
// the one before. Every message is acknowledged at once.
class CConversation {
 public:
  explicit CConversation(std::uint16_t port = kLibraryPort, std::uint32_t cardAddress = kCard,
                         std::uint32_t cardSerial = kSerial)
      : libraryPort(port), card(cardAddress), serial(cardSerial) {}

  void Open();
  void SetUp(int trunks);
  void Send(bool fromLibrary, const Bytes& bytes);
  // An information frame in its turn.
  void Signal(bool fromLibrary, int trunk, const Bytes& message);
  // A call to the library from its SETUP to its end.
  void Call(int reference, int timeslot, const std::string& calling, int cause);
  void Close();
  void Reset();  // by the card; the library may open it anew
  void Wait(Time time) { now += time; }

  Wire wire;

 private:
  void Add(Bytes packet);

  const std::uint16_t libraryPort;
  const std::uint32_t card;
  const std::uint32_t serial;
  Time now = kBegin;
  std::uint32_t librarySequence = 1000;
  std::uint32_t cardSequence = 0xFFFFFF00;  // soon at its end
  int sent[8][2] = {};                      // information frames by trunk and side
};

// Four calls on the first trunk of a card with two.
CConversation FourCalls();
// What Short makes of them.
extern const std::vector<std::string> kFourCalls;

// Job: what an analysis told, for tests to look at.
class CHeard : public ITraceSink {
 public:
  void OnFrame(const SConnection& connection, const SControl& frame, const tool::SQ921Frame& decoded,
               EVerdict verdict) override;
  void OnCallEnds(const SCall& call) override { calls.push_back(call); }
  void OnControl(const SConnection& connection, const SControl& message) override;
  void OnDiscovery(const SDiscovery& datagram) override { discovery.push_back(datagram); }
  void OnConnected(const SConnection& connection) override { connections.push_back(connection); }
  void OnDisconnected(const SConnection&, Time) override { ++disconnections; }
  void OnAudio(const SAudio& heard) override { audio.push_back(heard.sequence); }

  std::vector<SCall> calls;  // in the order of their ends
  std::vector<EControl> controls;
  std::vector<SDiscovery> discovery;
  std::vector<SConnection> connections;
  std::vector<std::uint32_t> audio;
  std::vector<EVerdict> verdicts;
  SConnection last;
  int disconnections = 0;
};

// Reads the bytes as a file; what it throws is the caller's.
struct SOutcome {
  CHeard heard;
  std::vector<std::string> notes;
  std::string emptiness;
  std::string fault;
  STrafficCounts traffic;
  SPacketCounts packets;
};
SOutcome Analyse(const Bytes& file, int trunks = 0);

// The calls in short: "0305551234 1 17" is the calling number, the timeslot and the cause.
std::vector<std::string> Short(const std::vector<SCall>& calls);

}  // namespace trace::test

// SPDX-License-Identifier: GPL-2.0-only
#include "conversation.h"

#include <algorithm>

#include "common/fcs.h"

namespace trace::test {
namespace {

constexpr std::uint8_t kSynFlag = 0x02;
constexpr std::uint8_t kFinAck = 0x11;
constexpr std::uint8_t kResetAck = 0x14;
constexpr std::uint8_t kAckFlag = 0x10;
constexpr std::uint8_t kPushAck = 0x18;

void PutBig(Bytes& out, std::uint32_t value, int count) {
  for (int i = count - 1; i >= 0; --i) {
    out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
}

void PutLittle(Bytes& out, std::uint32_t value, int count) {
  for (int i = 0; i < count; ++i) {
    out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
}

Bytes Ip(bool fromLibrary, std::uint32_t card, std::uint8_t protocol, const Bytes& payload) {
  Bytes out(12, 0);
  PutBig(out, 0x0800, 2);
  PutBig(out, 0x4500, 2);
  PutBig(out, static_cast<std::uint32_t>(20 + payload.size()), 2);
  PutBig(out, 0x00004000, 4);
  PutBig(out, 0x4000U | protocol, 2);
  PutBig(out, 0, 2);
  PutBig(out, fromLibrary ? kLibrary : card, 4);
  PutBig(out, fromLibrary ? card : kLibrary, 4);
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

}  // namespace

Bytes Text(const std::string& text) {
  return {text.begin(), text.end()};
}

Bytes Join(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

Bytes TcpPacket(bool fromLibrary, std::uint32_t sequence, std::uint32_t acknowledged, std::uint8_t flags,
                const Bytes& payload, std::uint16_t libraryPort, std::uint32_t card) {
  Bytes tcp;
  PutBig(tcp, fromLibrary ? libraryPort : tool::kCardPort, 2);
  PutBig(tcp, fromLibrary ? tool::kCardPort : libraryPort, 2);
  PutBig(tcp, sequence, 4);
  PutBig(tcp, acknowledged, 4);
  PutBig(tcp, 0x5000U | flags, 2);
  PutBig(tcp, 0xFFFF, 2);
  PutBig(tcp, 0, 4);
  return Ip(fromLibrary, card, 6, Join({tcp, payload}));
}

Bytes UdpPacket(bool fromLibrary, std::uint16_t libraryPort, std::uint16_t cardPort, const Bytes& payload) {
  Bytes udp;
  PutBig(udp, fromLibrary ? libraryPort : cardPort, 2);
  PutBig(udp, fromLibrary ? cardPort : libraryPort, 2);
  PutBig(udp, static_cast<std::uint32_t>(8 + payload.size()), 2);
  PutBig(udp, 0, 2);
  return Ip(fromLibrary, kCard, 17, Join({udp, payload}));
}

Bytes PcapFile(const Wire& wire, std::uint32_t linkType) {
  Bytes out;
  PutLittle(out, 0xA1B2C3D4, 4);
  PutLittle(out, 0x00040002, 4);
  PutLittle(out, 0, 4);
  PutLittle(out, 0, 4);
  PutLittle(out, 65535, 4);
  PutLittle(out, linkType, 4);
  for (const SFrameOnWire& frame : wire) {
    PutLittle(out, static_cast<std::uint32_t>(frame.time / kSecond), 4);
    PutLittle(out, static_cast<std::uint32_t>(frame.time % kSecond / 1000), 4);
    PutLittle(out, static_cast<std::uint32_t>(frame.bytes.size()), 4);
    PutLittle(out, static_cast<std::uint32_t>(frame.bytes.size()), 4);
    out.insert(out.end(), frame.bytes.begin(), frame.bytes.end());
  }
  return out;
}

std::FILE* Stream(const Bytes& bytes) {
  std::FILE* stream = std::tmpfile();
  if (stream != nullptr) {
    std::fwrite(bytes.data(), 1, bytes.size(), stream);
    std::rewind(stream);
  }
  return stream;
}

// Commands of the network have the C/R bit set, responses of the user too.
Bytes Sabme(bool fromLibrary) {
  return {static_cast<std::uint8_t>(fromLibrary ? 0x00 : 0x02), 0x01, 0x7F};
}

Bytes Ua(bool fromLibrary) {
  return {static_cast<std::uint8_t>(fromLibrary ? 0x02 : 0x00), 0x01, 0x73};
}

Bytes Information(bool fromLibrary, int sendNumber, int receiveNumber, const Bytes& message) {
  return Join({{static_cast<std::uint8_t>(fromLibrary ? 0x00 : 0x02), 0x01, static_cast<std::uint8_t>(sendNumber << 1),
                static_cast<std::uint8_t>(receiveNumber << 1)},
               message});
}

Bytes Message(int reference, bool isAnswer, std::uint8_t type, const Bytes& elements) {
  const auto high = static_cast<std::uint8_t>((isAnswer ? 0x80 : 0) | reference >> 8);
  return Join({{0x08, 0x02, high, static_cast<std::uint8_t>(reference), type}, elements});
}

Bytes NumberElement(std::uint8_t id, const std::string& digits) {
  return Join({{id, static_cast<std::uint8_t>(digits.size() + 1), 0xA1}, Text(digits)});
}

Bytes ChannelElement(int timeslot) {
  return {0x18, 0x03, 0xA9, 0x83, static_cast<std::uint8_t>(0x80 | timeslot)};
}

Bytes CauseElement(int cause) {
  return {0x08, 0x02, 0x81, static_cast<std::uint8_t>(0x80 | cause)};
}

Bytes ToLibrary(int trunk, const Bytes& frame) {
  return tool::BuildFrameMessage(trunk, frame);
}

Bytes FromLibrary(int trunk, const Bytes& frame) {
  Bytes out{0xFF, 0x10, static_cast<std::uint8_t>(trunk + 1)};
  PutLittle(out, static_cast<std::uint32_t>(frame.size()), 2);
  return Join({out, frame, {0xFF}});
}

void CConversation::Add(Bytes packet) {
  wire.push_back({now, std::move(packet)});
  now += kMillisecond;
}

void CConversation::Open() {
  Add(TcpPacket(true, librarySequence++, 0, kSynFlag, {}, libraryPort, card));
  Add(TcpPacket(false, cardSequence++, librarySequence, kSynFlag | kAckFlag, {}, libraryPort, card));
  Add(TcpPacket(true, librarySequence, cardSequence, kAckFlag, {}, libraryPort, card));
}

void CConversation::SetUp(int trunks) {
  Send(true, {0xFF, 0x01});
  Send(false, tool::BuildInformation({.trunks = static_cast<std::uint8_t>(trunks), .serial = serial}));
  Send(true, {0xFF, 0x04});
  Send(false, tool::BuildTrunkStatus(Bytes(static_cast<std::size_t>(trunks), 0)));
  for (int trunk = 0; trunk < trunks; ++trunk) {
    Send(true, FromLibrary(trunk, Sabme(true)));
    Send(false, ToLibrary(trunk, Ua(false)));
  }
}

void CConversation::Send(bool fromLibrary, const Bytes& bytes) {
  std::uint32_t& own = fromLibrary ? librarySequence : cardSequence;
  const std::uint32_t other = fromLibrary ? cardSequence : librarySequence;
  Add(TcpPacket(fromLibrary, own, other, kPushAck, bytes, libraryPort, card));
  own += static_cast<std::uint32_t>(bytes.size());
  Add(TcpPacket(!fromLibrary, other, own, kAckFlag, {}, libraryPort, card));
}

void CConversation::Signal(bool fromLibrary, int trunk, const Bytes& message) {
  int& own = sent[trunk][fromLibrary ? 1 : 0];
  const int other = sent[trunk][fromLibrary ? 0 : 1];
  const Bytes frame = Information(fromLibrary, own % 128, other % 128, message);
  Send(fromLibrary, fromLibrary ? FromLibrary(trunk, frame) : ToLibrary(trunk, frame));
  ++own;
}

void CConversation::Call(int reference, int timeslot, const std::string& calling, int cause) {
  Signal(false, 0,
         Message(reference, false, 0x05,
                 Join({ChannelElement(timeslot), NumberElement(0x6C, calling), NumberElement(0x70, "4567")})));
  Signal(true, 0, Message(reference, true, 0x02, ChannelElement(timeslot)));
  Signal(true, 0, Message(reference, true, 0x01));
  Signal(true, 0, Message(reference, true, 0x07));
  Signal(false, 0, Message(reference, false, 0x0F));
  Signal(false, 0, Message(reference, false, 0x45, CauseElement(cause)));
  Signal(true, 0, Message(reference, true, 0x4D));
  Signal(false, 0, Message(reference, false, 0x5A));
}

void CConversation::Close() {
  Add(TcpPacket(true, librarySequence++, cardSequence, kFinAck, {}, libraryPort, card));
  Add(TcpPacket(false, cardSequence++, librarySequence, kFinAck, {}, libraryPort, card));
}

void CConversation::Reset() {
  Add(TcpPacket(false, cardSequence, librarySequence, kResetAck, {}, libraryPort, card));
  librarySequence += 100'000;
  cardSequence += 200'000;
  for (auto& trunk : sent) {
    trunk[0] = trunk[1] = 0;
  }
}

CConversation FourCalls() {
  CConversation talk;
  talk.Open();
  talk.SetUp(2);
  talk.Call(1, 1, "0301", 16);
  talk.Call(2, 2, "0302", 17);
  talk.Wait(kSecond);
  talk.Send(false, tool::BuildTrunkStatus(Bytes{0, 0}));
  talk.Send(false, tool::BuildTrunkStatus(Bytes{0, 0}));
  talk.Call(3, 3, "0303", 31);
  talk.Call(4, 4, "0304", 127);
  return talk;
}

const std::vector<std::string> kFourCalls{"0301 1 16", "0302 2 17", "0303 3 31", "0304 4 127"};

void CHeard::OnFrame(const SConnection&, const SControl&, const tool::SQ921Frame&, EVerdict verdict) {
  verdicts.push_back(verdict);
}

void CHeard::OnControl(const SConnection& connection, const SControl& message) {
  controls.push_back(message.kind);
  last = connection;
}

SOutcome Analyse(const Bytes& bytes, int trunks) {
  SOutcome outcome;
  CCaptureFile file(Stream(bytes), "test.pcap");
  CAnalysis analysis(outcome.heard, trunks);
  analysis.Run(file);
  outcome.notes = analysis.Notes();
  outcome.emptiness = analysis.Emptiness(file);
  outcome.fault = file.Fault();
  outcome.traffic = analysis.TrafficCounts();
  outcome.packets = analysis.PacketCounts();
  return outcome;
}

std::vector<std::string> Short(const std::vector<SCall>& calls) {
  std::vector<std::string> lines;
  for (const SCall& call : calls) {
    lines.push_back(call.calling + " " + std::to_string(call.timeslot) + " " + std::to_string(call.cause));
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

}  // namespace trace::test

// SPDX-License-Identifier: GPL-2.0-only

// A capture of the network, from whoever may have made it, and all that zelk-trace's core makes of it. An input is
//
//   even  trunks (1), then a pcap or pcapng file
//   odd   trunks (1), then TCP segments of one connection, until the input ends:
//           flags (1): 1 from the library, 2 SYN, 4 FIN, 8 reset, 16 acknowledges all, 32 a second later
//           place (1): how far it is ahead of the byte that comes next; above 128 behind
//           length (1), that many bytes

#include <cstdio>

#include "common/fcs.h"
#include "common/wire.h"
#include "fuzz/target.h"
#include "trace/core/analysis.h"
#include "trace/core/anonymiser.h"
#include "trace/core/q931_text.h"
#include "trace/core/text.h"
#include "trace/core/trace_error.h"

namespace zelk::fuzz {
namespace {

using trace::SPacket;

// Looks at everything that is told, and holds it against what was promised.
class CWitness : public trace::ITraceSink {
 public:
  void OnFrame(const trace::SConnection&, const trace::SControl& frame, const tool::SQ921Frame& decoded,
               trace::EVerdict) override {
    text += trace::FrameText(decoded);
    const Bytes other = anonymiser.Anonymise(frame.body);
    Require(other.size() <= frame.body.size(), "what is left out makes nothing longer");
    Require(frame.trunk >= 0 && frame.trunk < tool::kMaxTrunks, "a frame has a trunk");
  }
  void OnCallBegins(const trace::SCall& call) override {
    Require(call.number == ++begun, "calls are numbered as they begin");
  }
  void OnCallMessage(const trace::SCall& call, const trace::SSignal& signal) override {
    text += trace::ElementsText(signal.message);
    Require(call.timeslot < 128, "a timeslot has seven bits");
  }
  void OnCallEnds(const trace::SCall& call) override {
    ++ended;
    text += trace::Printable(call.calling) + trace::IsoTime(call.begin);
  }
  void Check() const {
    Require(begun == ended, "each call ends once");
    for (const char letter : text) {
      Require(letter >= ' ' && letter <= '~', "what is shown is harmless to a terminal");
    }
  }

 private:
  std::uint64_t begun = 0;
  std::uint64_t ended = 0;
  std::string text;
  trace::CAnonymiser anonymiser;
};

void RunFile(const Bytes& file, int trunks) {
  std::FILE* stream = fmemopen(const_cast<uint8_t*>(file.data()), file.size(), "rb");
  if (stream == nullptr) {
    return;
  }
  CWitness witness;
  try {
    trace::CCaptureFile capture(stream, "fuzz");
    trace::CAnalysis analysis(witness, trunks);
    analysis.Run(capture);
    analysis.Notes();
  } catch (const trace::CTraceError&) {
    return;
  }
  witness.Check();
}

void RunSegments(CInput& input, int trunks) {
  CWitness witness;
  trace::CAnalysis analysis(witness, trunks);
  std::uint32_t next[2] = {0, 0};
  trace::Time now = trace::kSecond;
  while (!input.IsEmpty()) {
    const uint8_t flags = input.Byte();
    const bool fromLibrary = (flags & 1U) != 0;
    std::uint32_t& own = next[fromLibrary ? 1 : 0];
    SPacket packet;
    packet.isTcp = true;
    packet.time = now += (flags & 32U) != 0 ? trace::kSecond : trace::kMillisecond;
    packet.from = {fromLibrary ? 1U : 2U, static_cast<std::uint16_t>(fromLibrary ? 9999 : tool::kCardPort)};
    packet.to = {fromLibrary ? 2U : 1U, static_cast<std::uint16_t>(fromLibrary ? tool::kCardPort : 9999)};
    packet.isSyn = (flags & 2U) != 0;
    packet.isFin = (flags & 4U) != 0;
    packet.isReset = (flags & 8U) != 0;
    packet.isAck = (flags & 16U) != 0;
    packet.acknowledged = next[fromLibrary ? 0 : 1];
    const auto place = static_cast<std::int8_t>(input.Byte());
    packet.sequence = own + static_cast<std::uint32_t>(place);
    const Bytes payload = input.Take(input.Byte());
    packet.payload = payload;
    own += place == 0 ? static_cast<std::uint32_t>(payload.size()) + (packet.isSyn ? 1 : 0) : 0;
    analysis.TakePacket(packet);
  }
  analysis.Finish();
  witness.Check();
}

void Run(const uint8_t* bytes, size_t length) {
  CInput input(bytes, length);
  const uint8_t kind = input.Byte();
  const int trunks = input.Byte() % (tool::kMaxTrunks + 1);
  if (kind % 2 == 0) {
    RunFile(input.Rest(), trunks);
  } else {
    RunSegments(input, trunks);
  }
}

Bytes Segment(uint8_t flags, const Bytes& payload) {
  return Join({{flags, 0, static_cast<uint8_t>(payload.size())}, payload});
}

Bytes ToLibrary(const Bytes& frame) {
  return tool::BuildFrameMessage(0, frame);
}

std::vector<Bytes> Seeds() {
  const Bytes setup = {0x02, 0x01, 0x00, 0x00, 0x08, 0x02, 0x00, 0x01, 0x05, 0x18, 0x03, 0xA9,
                       0x83, 0x81, 0x6C, 0x03, 0xA1, '1',  '2',  0x70, 0x02, 0xA1, '3'};
  const Bytes refusal = {0xFF, 0x10, 0x01, 0x0D, 0x00, 0x00, 0x01, 0x00, 0x02, 0x08,
                         0x02, 0x80, 0x01, 0x5A, 0x08, 0x02, 0x81, 0x95, 0xFF};
  const Bytes status = tool::BuildTrunkStatus(Bytes{0});
  const Bytes call =
      Join({Segment(16, ToLibrary({0x02, 0x01, 0x7F})), Segment(16, ToLibrary(setup)), Segment(17, refusal)});
  const Bytes information = tool::BuildInformation({.trunks = 1, .serial = 7});
  const Bytes pcapHead = {0xD4, 0xC3, 0xB2, 0xA1, 2, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 0, 101, 0, 0, 0};
  const Bytes probe = {0x45, 0, 0, 34,   0,    0,    0x40, 0, 64, 17, 0, 0,   127, 0,   0,   1,   127,
                       0,    1, 1, 0x16, 0xDE, 0x16, 0xDE, 0, 14, 0,  0, 'Z', 'E', 'L', 'K', ' ', 'D'};
  const Bytes record = Join({{1, 0, 0, 0, 2, 0, 0, 0, 34, 0, 0, 0, 34, 0, 0, 0}, probe});
  return {Join({{1, 0}, Segment(3, {}), Segment(18, {}), Segment(16, information), call, Segment(12, {})}),
          Join({{1, 0}, call, Segment(16, status), Segment(16, status), call}),
          Join({{1, 1}, call, {16, 50, 4}, status, {0xFF}, Segment(48, status), Segment(17, refusal)}),
          Join({{0, 0}, pcapHead, record, record}),
          {0, 1}};
}

const SRegistered kRegistered({"capture_trace", &Run, &Seeds});

}  // namespace
}  // namespace zelk::fuzz

// SPDX-License-Identifier: GPL-2.0-only

// D-channel frames as a card sends them, through libpri up to the application, which calls, answers and hangs up
// between them. An input is a trunk and what happens on it:
//
//   switch type (4 bits), network side (1), layer 2 answers by itself (1), in a callback (2): nothing, answer, hang up,
//   refuse; then operations, a byte each with their arguments:
//     0 a layer 3 message: length (1), that many bytes
//     1 the same for the call that was set up last: length (1), message type and information elements
//     2 a frame with its FCS: length (2), that many bytes
//     3 time goes by: tenths of a second (1); timers run
//     4 the application does something: what (1), on which channel (1)
//     5 the card is lost, or closed and opened again (1)

#include <cstring>

#include "card/control_parser.h"
#include "fuzz/driven_trunk.h"
#include "runtime/config.h"
#include "runtime/log.h"

extern "C" {
#include <libpri.h>
}

namespace zelk::fuzz {
namespace {

constexpr size_t kMaxOperations = 64;

// libpri's lines go nowhere, but are read to their end.
void ReadMessage(pri*, char* text) {
  Require(std::strlen(text) < 65536, "a message line ends");
}

// The log keeps its lines until somebody takes them.
void DropLog() {
  static int runs = 0;
  if (++runs % 256 == 0) {
    Log().Start("/dev/null");
    Log().Stop();
  }
}

CDrivenTrunk::SSetUp SetUpOf(uint8_t choice) {
  return {choice & 15, (choice & 16U) != 0, (choice & 32U) != 0, static_cast<CDrivenTrunk::EReaction>(choice / 64)};
}

void ChangeCard(CDrivenTrunk& trunk, uint8_t what) {
  if (what % 2 == 0) {
    trunk.LoseCard(what / 2 % 2 != 0);
  } else {
    trunk.ReopenCard();
  }
}

void Operate(CDrivenTrunk& trunk, CInput& input) {
  switch (input.Byte() % 6) {
    case 0:
      return trunk.Message(input.Take(input.Byte()));
    case 1:
      return trunk.MessageOfCall(input.Take(input.Byte()));
    case 2:
      return trunk.Frame(input.Take(input.Number(2) % kFrameLimit));
    case 3:
      return trunk.Elapse(int64_t{input.Byte()} * 100);
    case 4: {
      const uint8_t what = input.Byte();
      return trunk.Application(what, input.Byte());
    }
    default:
      return ChangeCard(trunk, input.Byte());
  }
}

void Run(const uint8_t* bytes, size_t length) {
  pri_set_message(&ReadMessage);
  pri_set_error(&ReadMessage);
  Config().level = 0;
  {
    CInput input(bytes, length);
    CDrivenTrunk trunk(SetUpOf(input.Byte()));
    for (size_t i = 0; i < kMaxOperations && !input.IsEmpty(); ++i) {
      Operate(trunk, input);
    }
  }
  Config().level = 2;
  DropLog();
}

// Operations with their arguments.
Bytes Sized(uint8_t operation, const Bytes& content) {
  return Join({{operation, static_cast<uint8_t>(content.size())}, content});
}
Bytes OfCall(const Bytes& content) {
  return Sized(1, content);
}
Bytes Frame(const Bytes& content) {
  return Join({{2, static_cast<uint8_t>(content.size()), static_cast<uint8_t>(content.size() >> 8)}, content});
}
// An offered call, the way Q.931 writes it.
Bytes Setup(uint8_t channel) {
  return Sized(0, Join({{0x08, 0x02, 0x00, 0x05, 0x05, 0x04, 0x03, 0x80, 0x90, 0xA3, 0x18, 0x03, 0xA9, 0x83, channel},
                        {0x1E, 0x02, 0x80, 0x83, 0x6C, 0x0B, 0x21, 0x81},
                        Text("030123456"),
                        {0x70, 0x05, 0xA1},
                        Text("4711"),
                        {0x74, 0x06, 0x21, 0x81, 0x82},
                        Text("800")}));
}
// A facility element with a supplementary-service request in ROSE.
Bytes Facility() {
  return OfCall(
      {0x62, 0x1C, 0x0F, 0x91, 0xA1, 0x0C, 0x02, 0x01, 0x01, 0x02, 0x01, 0x0A, 0x30, 0x04, 0xA1, 0x02, 0x82, 0x00});
}

std::vector<Bytes> Seeds() {
  const Bytes cause = {0x08, 0x02, 0x80, 0x90};
  const Bytes release = OfCall(Join({{0x4D}, cause}));
  const Bytes complete = OfCall(Join({{0x5A}, cause}));
  const Bytes display = {0x28, 0x05, 'h', 'e', 'l', 'l', 'o'};
  const Bytes user = {0x25};       // Euro-ISDN, user side, layer 2 answers
  const Bytes network = {0x35};    // the network's side
  const Bytes answering = {0x65};  // every call is answered
  const Bytes refusing = {0xE5};   // every call is refused
  const Bytes dial = {4, 0, 2};    // on channel 2
  const Bytes answer = {4, 2, 0};  // on channel 0
  const Bytes hangup = {4, 3, 2};  // on channel 2
  const Bytes connectAck = OfCall({0x0F});
  const Bytes channel = {0x18, 0x03, 0xA9, 0x83, 0x83};
  const Bytes proceeding = OfCall(Join({{0x02}, channel}));
  const Bytes alerting = OfCall({0x01, 0x1E, 0x02, 0x82, 0x88});
  const Bytes connect = OfCall(Join({{0x07}, display}));
  const Bytes disconnect = OfCall(Join({{0x45}, cause}));
  const Bytes restart = Sized(0, {0x08, 0x02, 0x00, 0x00, 0x46, 0x18, 0x03, 0xA9, 0x83, 0x81, 0x79, 0x01, 0x80});
  const Bytes status = OfCall({0x7D, 0x08, 0x02, 0x80, 0x9E, 0x14, 0x01, 0x0A});
  const Bytes sabme = Frame({0x02, 0x01, 0x7F, 0xAA, 0x55});
  const Bytes disc = Frame({0x02, 0x01, 0x53, 0xAA, 0x55});
  const Bytes wait = {3, 50};
  std::vector<Bytes> seeds = {
      Join({user, Setup(0x81), answer, connectAck, disconnect, complete}),
      Join({answering, Setup(0x81), connectAck, Setup(0x85), release}),
      Join({refusing, Setup(0x9F), complete, {4, 7, 0}}),
      Join({user, dial, proceeding, alerting, connect, hangup, release}),
      Join({user, dial, OfCall(Join({{0x03}, channel, {0x1E, 0x02, 0x82, 0x88}})), disconnect, wait, wait}),
      Join({network, dial, alerting, connect, Facility(), hangup, wait, complete}),
      Join({network, Setup(0x83), {4, 2, 2}, OfCall({0x7B, 0x70, 0x02, 0x80, '9'}), connectAck, status}),
      Join({user, restart, dial, {5, 1}, Setup(0x81), {5, 0}, {3, 255}}),
      Join({user, sabme, disc, sabme, wait, Frame({0x00, 0x01, 0x01, 0x01, 0xAA, 0x55}), {3, 255}, {3, 255}}),
      Join({user, dial, connect, Facility(), OfCall({0x6E, 0x27, 0x01, 0xF9}), OfCall({0x24}), OfCall({0x26})})};
  // The same life of a call under the rules of the other switch types.
  for (const uint8_t type : Bytes{0x21, 0x22, 0x23, 0x24, 0x26, 0x27, 0x2A}) {
    seeds.push_back(Join({{type}, dial, proceeding, connect, Facility(), Setup(0x81), answer, disconnect}));
  }
  return seeds;
}

const SRegistered kRegistered({"d_channel", &Run, &Seeds});

}  // namespace
}  // namespace zelk::fuzz

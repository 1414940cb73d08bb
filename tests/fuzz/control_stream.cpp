// SPDX-License-Identifier: GPL-2.0-only

// The byte stream of a card's control connection. An input is a stream and how it comes in pieces:
//
//   trunk count of the card, number of cuts n, n piece lengths, the stream

#include "card/card.h"
#include "card/card_core.h"
#include "card/control_parser.h"
#include "card/control_thread.h"
#include "fuzz/target.h"

namespace zelk::fuzz {
namespace {

// Writes the messages down, one after the other, and checks what the parser promises of them.
class CRecorder : public IControlSink {
 public:
  explicit CRecorder(uint32_t trunks) : trunkCount(trunks) {}

  void OnInformation(const uint8_t (&body)[kCardInformationBytes]) override { Note('I', 0, body, sizeof body); }
  uint32_t StatusTrunkCount() const override { return trunkCount; }
  void OnLineStatus(uint32_t trunk, uint8_t status) override {
    Require(trunk < kMaxTrunks, "a line status is one of eight trunks");
    Note('L', trunk, &status, 1);
  }
  void OnRegister(uint8_t trunk, uint16_t registerNumber, uint8_t value) override {
    const uint8_t body[] = {static_cast<uint8_t>(registerNumber), static_cast<uint8_t>(registerNumber >> 8), value};
    Note('R', trunk, body, sizeof body);
  }
  void OnFrame(uint32_t trunk, const uint8_t* frame, size_t length) override {
    Require(trunk < kMaxTrunks, "a frame is one of eight trunks");
    Require(length > 0 && length < kFrameLimit, "a frame has 1 to 299 bytes");
    Note('F', trunk, frame, length);
  }
  void OnHdlcError(uint8_t trunk, uint8_t code) override { Note('H', trunk, &code, 1); }

  Bytes notes;

 private:
  void Note(char kind, uint32_t trunk, const uint8_t* body, size_t length) {
    const uint8_t head[] = {static_cast<uint8_t>(kind), static_cast<uint8_t>(trunk), static_cast<uint8_t>(length),
                            static_cast<uint8_t>(length >> 8)};
    notes.insert(notes.end(), head, head + sizeof head);
    notes.insert(notes.end(), body, body + length);
  }

  const uint32_t trunkCount;
};

// A card's handlers that look at what they are told.
class CHandlers : public ICardHandlers {
 public:
  void OnCardUp() override {}
  void OnCardDown(const CStopFlag&) override {}
  void OnNotice(const char*) override {}
  void OnCardReopening(const CStopFlag&) override {}
  void OnDchannelUp(uint32_t trunk, const CStopFlag&) override { RequireTrunk(trunk); }
  void OnDchannelDown(uint32_t trunk, const CStopFlag&) override { RequireTrunk(trunk); }
  void OnConfigError(uint32_t trunk) override { RequireTrunk(trunk); }
  void OnCallEvent(CCard&, uint16_t, uint16_t, ECallEvent, const SPriEvent&) override {
    Require(false, "no call without a controller");
  }
  void OnLineStatus(uint32_t trunk, uint8_t) override { RequireTrunk(trunk); }
  void OnQueueOverflow(uint32_t trunk, uint32_t) override { RequireTrunk(trunk); }
  void OnHdlcError(uint32_t trunk, uint8_t) override { RequireTrunk(trunk); }
  void OnLinkReset(CCard&, uint32_t trunk, uint8_t) override { RequireTrunk(trunk); }
  void OnRegister(uint32_t, uint16_t, uint8_t) override {}
  uint32_t FirstGlobalTrunk() const override { return 0; }
  void FillBlock(uint32_t, uint32_t, SBlockFill&) override {}
  bool EndsPlay(uint32_t, uint32_t) override { return false; }
  void OnMarkSent(uint32_t, uint32_t) override {}
  bool OnBlockReceived(uint32_t, uint32_t, AudioBlock) override { return false; }
  void OnDigit(uint32_t, uint32_t, char) override {}

 private:
  static void RequireTrunk(uint32_t trunk) { Require(trunk < kMaxTrunks, "a status is one of eight trunks"); }
};

void FeedInPieces(CControlParser& parser, const Bytes& pieces, const Bytes& stream) {
  size_t done = 0;
  for (const uint8_t piece : pieces) {
    const Bytes part = CInput(stream.data() + done, stream.size() - done).Take(piece);
    parser.Feed(part.data(), part.size());
    done += part.size();
  }
  const Bytes rest(stream.begin() + static_cast<ptrdiff_t>(done), stream.end());
  parser.Feed(rest.data(), rest.size());
}

// The messages' own receiver: how many trunks a status has is what the stream's card information said last.
void FeedCard(const Bytes& stream) {
  static CCard owner(0);
  static CHandlers handlers;
  static const auto core = std::make_shared<CCardCore>(owner, 0);
  core->handlers = &handlers;
  core->controllersRunning = true;
  core->facts.BeginOpen();
  core->facts.Forget();
  core->facts.trunkCount = 0;
  for (CTrunk& trunk : core->trunks) {
    trunk.lineStatus = 3;
  }
  CControlThread thread(core, std::make_shared<CSocket>(), 1);
  CControlParser parser(thread);
  parser.Feed(stream.data(), stream.size());
  Require(core->facts.trunkCount <= kMaxTrunks, "a card has at most eight trunks");
}

void Run(const uint8_t* bytes, size_t length) {
  CInput input(bytes, length);
  const uint32_t trunks = input.Byte();
  const Bytes pieces = input.Take(input.Byte());
  const Bytes stream = input.Rest();

  CRecorder whole(trunks);
  CControlParser(whole).Feed(stream.data(), stream.size());
  CRecorder pieced(trunks);
  CControlParser parser(pieced);
  FeedInPieces(parser, pieces, stream);
  Require(whole.notes == pieced.notes, "the messages are the same however the stream is cut");
  FeedCard(stream);
}

Bytes Information(uint8_t trunks) {
  return Join({{0xFF, 0x01}, Text("ZELK "), {3, trunks, 1, 0, 0, 0, 0xD2, 4, 0, 0, 20, 13, 5, 9, 20, 12, 1}});
}

Bytes Frame(uint8_t trunk, size_t length) {
  Bytes frame = {0xFF, 0x10, trunk, static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8)};
  for (size_t i = 0; i < length; ++i) {
    frame.push_back(static_cast<uint8_t>(i + 2));
  }
  return frame;
}

std::vector<Bytes> Seeds() {
  const Bytes status = {0xFF, 0x07, 0, 3};
  const Bytes registers = {0xFF, 0x02, 1, 6, 16, 0xAB, 0x02, 2, 7, 16, 0xCD, 0x07, 0, 0};
  const Bytes hdlc = {0xFF, 0x11, 1, 2};
  const Bytes head = {2, 0};
  const Bytes cut = {2, 3, 1, 5, 9};
  return {Join({head, Information(2), status, registers}),
          Join({cut, Information(2), Frame(1, 5), hdlc, Frame(2, 299), hdlc}),
          Join({{8, 0}, Information(8), {0xFF, 0x07, 0, 0, 0, 0, 0, 0, 0, 0}, Frame(8, 40)}),
          Join({cut, Frame(9, 10), Frame(1, 0), Frame(1, 300), Information(0), status})};
}

const SRegistered kRegistered({"control_stream", &Run, &Seeds});

}  // namespace
}  // namespace zelk::fuzz

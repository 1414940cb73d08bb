// SPDX-License-Identifier: GPL-2.0-only

// A capture that zelk-replay is given, from whoever may have made it: it is refused in a sentence, or lived through to
// the end or to a difference, twice in the same way. An input is
//
//   even  settings (1), then a pcap or pcapng file
//   odd   settings (1), then what happened on the trunk, until the input ends: what (1), the time since the one before
//         (1, kPauses), and
//           0 the trunk is opened and comes up; also before all others
//           1 a message received: length (1), that many bytes      2 the same, sent by the library
//           3 RECEIVE READY received: 1 for the poll/final bit, 2 for a command, four times how many frames it leaves
//             unacknowledged (1)   4 the same, sent
//           5 a frame received: length (1), that many bytes        6 the same, sent
//           7 something else: 0 an HDLC error, 1 a line status, 2 the end of the connection, 3 the card is lost (1);
//             its code (1)
//
//   settings: trunk (3 bits), network side (1), given rather than by the capture (1), level of the log (2), JSON (1)

#include "replay/replay.h"

#include <cstdio>
#include <cstdlib>

#include "fuzz/target.h"
#include "runtime/config.h"
#include "runtime/log.h"
#include "trace/core/trace_error.h"

namespace zelk::fuzz {
namespace {

using ::replay::EItem;
using ::replay::SRecording;
using trace::kMillisecond;
using trace::kSecond;
using trace::Time;

constexpr size_t kMostItems = 400;
constexpr Time kBegin = 1'700'000'000 * kSecond;
constexpr Time kPauses[] = {0,
                            kMillisecond,
                            10 * kMillisecond,
                            100 * kMillisecond,
                            190 * kMillisecond,
                            kSecond,
                            4 * kSecond,
                            10 * kSecond,
                            11 * kSecond,
                            60 * kSecond,
                            300 * kSecond,
                            3600 * kSecond,
                            -kMillisecond,
                            -kSecond,
                            1000 * kMillisecond + 1,
                            Time{1} << 58};

struct SSettings {
  explicit SSettings(uint8_t byte)
      : trunk(byte & 7),
        isNetwork((byte & 8U) != 0),
        isGiven((byte & 16U) != 0),
        level(byte / 32 % 4),
        asJson(byte > 127) {}
  int trunk;
  bool isNetwork;
  bool isGiven;
  int level;
  bool asJson;
};

// What a replay prints, in memory.
class CPrinted {
 public:
  CPrinted() : stream(open_memstream(&text, &length)) { Require(stream != nullptr, "there is memory for the output"); }
  ~CPrinted() {
    std::fclose(stream);
    std::free(text);
  }
  CPrinted(const CPrinted&) = delete;
  CPrinted& operator=(const CPrinted&) = delete;

  std::FILE* Stream() { return stream; }
  std::string Text() {
    std::fflush(stream);
    return std::string(text, length);
  }

 private:
  char* text = nullptr;
  size_t length = 0;
  std::FILE* stream;
};

std::string Lived(const SRecording& recording, const SSettings& settings) {
  CPrinted printed;
  std::optional<STrunkSettings> given;
  if (settings.isGiven) {
    given.emplace();
    given->clientType = settings.isNetwork ? kNetworkSide : kUserSide;
    given->hangupOnAlerting = true;
  }
  ::replay::CReport report(settings.asJson, printed.Stream());
  ::replay::StartAt(recording.items.front().time);
  const bool isSame = ::replay::CReplay(recording, given, report).Run();
  return printed.Text() + (isSame ? "same" : "different");
}

void LiveTwice(const SRecording& recording, const SSettings& settings) {
  const std::string text = Lived(recording, settings);
  Require(text == Lived(recording, settings), "two replays of one recording are the same");
  for (const char letter : text) {
    Require((letter >= ' ' && letter <= '~') || letter == '\n', "what is shown is harmless to a terminal");
  }
}

void RunFile(const Bytes& file, const SSettings& settings) {
  std::FILE* stream = fmemopen(const_cast<uint8_t*>(file.data()), file.size(), "rb");
  if (stream == nullptr) {
    return;
  }
  try {
    trace::CCaptureFile capture(stream, "a file");
    LiveTwice(::replay::ReadRecording(capture, "100001-" + std::to_string(settings.trunk + 1), 1), settings);
  } catch (const trace::CTraceError& error) {
    const std::string sentence = error.what();
    Require(sentence.starts_with("a file: ") && sentence.find('\n') == std::string::npos, "a refusal is a sentence");
  }
}

// Job: makes a recording of what an input says. It counts the frames of layer 2, so that an input need not.
class CMaker {
 public:
  explicit CMaker(const SSettings& settings) : isNetwork(settings.isNetwork) {
    recording.serial = 100001;
    recording.trunk = settings.trunk;
    recording.isLibraryNetwork = isNetwork;
  }

  void Take(CInput& input) {
    const uint8_t what = recording.items.empty() ? 0 : input.Byte() % 8;
    now += kPauses[input.Byte() % std::size(kPauses)];
    now = std::clamp(now, Time{0}, Time{1} << 62);
    switch (what) {
      case 0:
        return Open();
      case 1:
      case 2:
        return Message(what == 2, input.Take(input.Byte()));
      case 3:
      case 4:
        return ReceiveReady(what == 4, input.Byte());
      case 5:
      case 6:
        Add(what == 6 ? EItem::kSent : EItem::kReceived, input.Take(input.Byte()));
        recording.items.back().isNew = what == 5;
        return;
      default:
        constexpr EItem kOthers[] = {EItem::kHdlcError, EItem::kLineStatus, EItem::kClosed, EItem::kCardDown};
        Add(kOthers[input.Byte() % 4], {});
        recording.items.back().value = input.Byte();
    }
  }
  SRecording recording;

 private:
  void Add(EItem kind, const Bytes& frame) {
    recording.items.push_back(
        {.kind = kind, .time = now, .packet = recording.items.size(), .opening = openings, .frame = frame});
  }
  uint8_t Address(bool isSent, bool isCommand) const { return (isSent == isNetwork) == isCommand ? 0x02 : 0x00; }

  void Open() {
    ++openings;
    counts[0] = counts[1] = 0;
    Add(EItem::kOpen, {});
    Add(EItem::kSent, {Address(true, true), 0x01, 0x7F});
    Add(EItem::kReceived, {Address(false, false), 0x01, 0x73});
  }
  void Message(bool isSent, const Bytes& message) {
    const uint8_t sendNumber = counts[isSent ? 1 : 0]++;
    const Bytes header = {Address(isSent, true), 0x01, static_cast<uint8_t>(sendNumber << 1),
                          static_cast<uint8_t>(counts[isSent ? 0 : 1] << 1)};
    Add(isSent ? EItem::kSent : EItem::kReceived, Join({header, message}));
    recording.items.back().isNew = !isSent;
  }
  void ReceiveReady(bool isSent, uint8_t how) {
    Add(isSent ? EItem::kSent : EItem::kReceived,
        {Address(isSent, (how & 2U) != 0), 0x01, 0x01,
         static_cast<uint8_t>((counts[isSent ? 0 : 1] - how / 4 % 16) << 1 | (how & 1))});
  }

  const bool isNetwork;
  Time now = kBegin;
  int openings = 0;
  uint8_t counts[2] = {0, 0};  // information frames received, sent
};

// The log keeps its lines until somebody takes them, where they do not go to the report.
void DropLog() {
  static int runs = 0;
  if (++runs % 256 == 0) {
    Log().Start("/dev/null");
    Log().Stop();
  }
}

void Run(const uint8_t* bytes, size_t length) {
  InstallPriMessageHook();
  CInput input(bytes, length);
  const uint8_t kind = input.Byte();
  const SSettings settings(input.Byte());
  Config().level = settings.level;
  if (kind % 2 == 0) {
    RunFile(input.Rest(), settings);
  } else {
    CMaker maker(settings);
    do {
      maker.Take(input);
    } while (!input.IsEmpty() && maker.recording.items.size() < kMostItems);
    LiveTwice(maker.recording, settings);
  }
  Config().level = 2;
  DropLog();
}

// What happened, with its arguments.
Bytes Said(uint8_t what, const Bytes& message) {
  return Join({{what, 1, static_cast<uint8_t>(message.size())}, message});
}

// A call that is answered by the application and cleared by the far end.
Bytes AnsweredCall() {
  const Bytes setup = Join({{0x08, 0x02, 0x00, 0x05, 0x05, 0x04, 0x03, 0x80, 0x90, 0xA3},
                            {0x18, 0x03, 0xA9, 0x83, 0x81, 0x6C, 0x03, 0x21, 0x81, '3', 0x70, 0x02, 0xA1, '4'}});
  const Bytes channel = {0x18, 0x03, 0xA9, 0x83, 0x81};
  const Bytes own = {0x08, 0x02, 0x80, 0x05};
  const Bytes cause = {0x08, 0x02, 0x80, 0x90};
  const Bytes theirs = {0x08, 0x02, 0x00, 0x05};
  const Bytes read = {4, 0, 0};
  return Join({Said(1, setup), read, Said(2, Join({own, {0x02}, channel})), Said(2, Join({own, {0x01}})),
               Said(2, Join({own, {0x07}, channel, {0x1E, 0x02, 0x81, 0x82}})), Said(1, Join({theirs, {0x0F}})), read,
               Said(1, Join({theirs, {0x45}, cause})), read, Said(2, Join({own, {0x4D, 0x08, 0x02, 0x81, 0x90}})),
               Said(1, Join({theirs, {0x5A}, cause})), read});
}

std::vector<Bytes> Seeds() {
  const Bytes call = AnsweredCall();
  const Bytes poll = {4, 8, 3, 3, 1, 1};
  const Bytes pcapHead = {0xD4, 0xC3, 0xB2, 0xA1, 2, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 0, 177, 0, 0, 0};
  const Bytes export_ = Join({pcapHead,
                              {1, 0, 0, 0, 2, 0, 0, 0, 19, 0, 0, 0, 19, 0, 0, 0},
                              {0, 4, 0, 0, 0, 0, 0, 1, 0x00, 0x01, 0x86, 0xA1, 0, 0, 0x00, 0x30},
                              {0x00, 0x01, 0x7F}});
  return {Join({{1, 0, 0}, call}),
          Join({{1, 0x40, 0}, call, poll, call, {7, 1, 0, 2, 7, 1, 1, 1, 7, 5, 2, 0, 7, 5, 3, 0, 0, 9}, call}),
          Join({{1, 0x98, 0}, call}),
          Join({{0, 0}, export_}),
          {1, 0}};
}

const SRegistered kRegistered({"replay", &Run, &Seeds});

}  // namespace
}  // namespace zelk::fuzz

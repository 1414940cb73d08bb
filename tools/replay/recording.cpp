// SPDX-License-Identifier: GPL-2.0-only
#include "replay/recording.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <utility>

#include "common/wire.h"
#include "trace/core/analysis.h"
#include "trace/core/hdlc_file.h"
#include "trace/core/trace_error.h"

namespace replay {
namespace {

using tool::EFrameKind;
using tool::SQ921Frame;
using trace::CTraceError;
using trace::EControl;
using trace::EDirection;
using trace::EExit;
using trace::EVerdict;
using trace::SConnection;
using trace::SControl;

constexpr Time kSilence = trace::kSecond;  // after which the library takes a card for lost
constexpr int kMostTrunks = 8;
constexpr int kMostTrunksOfAll = 34;  // that have channels in a library

// The form of an export: ITU-T Q.921 with a pseudo-header (packet type, place of the library, trunk, serial number).
constexpr int kExportLinkType = 177;
constexpr std::size_t kPseudoHeader = 16;
constexpr std::uint8_t kSentType = 4;

struct STrunkName {
  std::string card;
  int trunk = 0;  // from 0
};

STrunkName ParseName(const std::string& text) {
  const std::size_t dash = text.rfind('-');
  int number = 0;
  if (dash != std::string::npos) {
    std::from_chars(text.data() + dash + 1, text.data() + text.size(), number);
  }
  if (dash == 0 || number < 1 || number > kMostTrunks) {
    throw CTraceError(EExit::kUsage,
                      "--trunk " + text + ": a trunk is named by its card's serial number and its own, as in 100001-2");
  }
  return {text.substr(0, dash), number - 1};
}

// Job: keeps what belongs to one trunk. Thread: one. Owns the recording that it makes.
class CCollector : public trace::ITraceSink {
 public:
  explicit CCollector(STrunkName wantedTrunk) : wanted(std::move(wantedTrunk)) { recording.trunk = wanted.trunk; }

  void OnConnected(const SConnection& connection) override {
    // One more than a library has, so that a card beyond those is known for one.
    if (cards.size() <= std::size_t{tool::kMaxCards} &&
        std::find(cards.begin(), cards.end(), connection.card) == cards.end()) {
      cards.push_back(connection.card);
    }
  }
  void OnControl(const SConnection& connection, const SControl& message) override {
    trunksOf[connection.card] = connection.trunks;
    SLink& link = links[connection.number];
    link.last = message.time;
    if (message.direction == EDirection::kToLibrary) {
      link.lastFromCard = message.time;
      OnFromCard(connection, message);
    } else {
      link.isListening = link.isListening || message.kind == EControl::kAudioPort;
    }
  }
  void OnFrame(const SConnection& connection, const SControl& message, const SQ921Frame& frame,
               EVerdict verdict) override {
    if (!IsWanted(connection, message.trunk)) {
      return;
    }
    ++framesSeen;
    SLink& link = links[connection.number];
    const bool isSent = message.direction == EDirection::kFromLibrary;
    if (link.opening == 0 && isSent && frame.kind == EFrameKind::kSabme) {
      Begin(link, connection, message, frame);
    }
    if (link.opening == 0) {
      ++framesBefore;
    } else if (isSent || link.isListening || connection.isBegunBefore) {
      SItem item = ItemOf(isSent ? EItem::kSent : EItem::kReceived, message, link);
      item.isNew = verdict == EVerdict::kNew;
      item.frame = message.body;
      recording.items.push_back(std::move(item));
    }
  }
  void OnDisconnected(const SConnection& connection, Time time) override {
    const SLink& link = links[connection.number];
    if (link.opening != 0) {
      recording.items.push_back({.kind = EItem::kClosed, .time = link.last, .opening = link.opening});
      if (time - link.lastFromCard >= kSilence) {
        recording.items.push_back(
            {.kind = EItem::kCardDown, .time = link.lastFromCard + kSilence, .opening = link.opening});
      }
    }
  }

  // Throws CTraceError for a recording of nothing.
  SRecording Take(const std::string& name) {
    if (recording.items.empty()) {
      throw CTraceError(EExit::kBadInput, name + ": " + Emptiness());
    }
    if (framesBefore > 0) {
      recording.notes.push_back(std::to_string(framesBefore) +
                                " frames before the library's first SABME are not replayed");
    }
    if (recording.cardsBefore >= tool::kMaxCards || recording.trunksBefore + kMostTrunks > kMostTrunksOfAll) {
      recording.cardsBefore = recording.trunksBefore = 0;
      recording.notes.push_back("more cards were there before this one than a library has; its channels begin at 0");
    }
    return std::move(recording);
  }
  SRecording& Recording() { return recording; }

 private:
  struct SLink {
    int opening = 0;  // 0: not opened yet
    Time last = 0;
    Time lastFromCard = 0;
    bool isListening = false;  // the library takes frames
    std::optional<std::uint8_t> lineStatus;
  };

  bool IsWanted(const SConnection& connection, int trunk) const {
    return trunk == wanted.trunk && CardName(connection) == wanted.card;
  }
  void Begin(SLink& link, const SConnection& connection, const SControl& message, const SQ921Frame& frame) {
    link.opening = ++openings;
    recording.serial = connection.serial;
    recording.trunks = connection.trunks;
    if (openings == 1) {
      CountCardsBefore(connection);
    }
    recording.isLibraryNetwork = frame.commandBit;
    recording.items.push_back(ItemOf(EItem::kOpen, message, link));
  }
  // Cards are opened one after another.
  void CountCardsBefore(const SConnection& connection) {
    for (const std::uint32_t card : cards) {
      if (card == connection.card) {
        return;
      }
      ++recording.cardsBefore;
      recording.trunksBefore += trunksOf[card];
    }
  }
  void OnFromCard(const SConnection& connection, const SControl& message) {
    SLink& link = links[connection.number];
    if (link.opening == 0) {
      return;
    }
    if (message.kind == EControl::kHdlcError && IsWanted(connection, message.trunk)) {
      recording.items.push_back(ItemOf(EItem::kHdlcError, message, link));
      recording.items.back().value = static_cast<std::uint8_t>(message.value);
      return;
    }
    const auto at = static_cast<std::size_t>(wanted.trunk);
    if (message.kind == EControl::kStatus && at < message.body.size() && IsWanted(connection, wanted.trunk) &&
        link.lineStatus != message.body[at]) {
      link.lineStatus = message.body[at];
      recording.items.push_back(ItemOf(EItem::kLineStatus, message, link));
      recording.items.back().value = message.body[at];
    }
  }
  static SItem ItemOf(EItem kind, const SControl& message, const SLink& link) {
    return {.kind = kind, .time = message.time, .packet = message.packet, .opening = link.opening};
  }
  std::string Emptiness() const {
    const std::string trunk = "trunk " + std::to_string(wanted.trunk + 1) + " of card " + wanted.card;
    if (framesSeen == 0) {
      return "no frame of " + trunk + " is in it";
    }
    return "the library sends no SABME on " + trunk + ": the capture begins after the trunk came up";
  }

  const STrunkName wanted;
  SRecording recording;
  std::map<int, SLink> links;        // by connection
  std::vector<std::uint32_t> cards;  // by address, in the order of their first connections
  std::map<std::uint32_t, int> trunksOf;
  int openings = 0;
  std::uint64_t framesSeen = 0;
  std::uint64_t framesBefore = 0;
};

// Frames of an export as a capture of the network would have told them.
void ReadExport(trace::CCaptureFile& file, CCollector& collector) {
  collector.Recording().showsOpenings = false;
  std::map<std::uint64_t, trace::CDataLink> links;
  for (trace::SCaptured packet; file.Next(packet);) {
    if (packet.bytes.size() < kPseudoHeader) {
      continue;
    }
    SConnection connection;
    connection.isBegunBefore = true;
    for (std::size_t i = 8; i < 12; ++i) {
      connection.serial = connection.serial << 8 | packet.bytes[i];
    }
    SControl message;
    message.kind = EControl::kFrame;
    message.direction = packet.bytes[1] == kSentType ? EDirection::kFromLibrary : EDirection::kToLibrary;
    message.time = packet.time;
    message.packet = packet.number;
    message.trunk = packet.bytes[7] - 1;
    message.body.assign(packet.bytes.begin() + kPseudoHeader, packet.bytes.end());
    const SQ921Frame frame = tool::DecodeFrame(message.body);
    const std::uint64_t link = std::uint64_t{connection.serial} << 8 | packet.bytes[7];
    collector.OnFrame(connection, message, frame, links[link].OnFrame(message, frame));
  }
}

}  // namespace

SRecording ReadRecording(const std::string& path, const std::string& trunkName, int trunkCount) {
  ParseName(trunkName);  // a mistake on the command line is told before the file is looked at
  if (trace::CHdlcFile::IsOne(path)) {
    throw CTraceError(
        EExit::kBadInput,
        path + ": a capture by the library lacks most of the received frames; a capture of the network has them");
  }
  trace::CCaptureFile file(path);
  return ReadRecording(file, trunkName, trunkCount);
}

SRecording ReadRecording(trace::CCaptureFile& file, const std::string& trunkName, int trunkCount) {
  CCollector collector(ParseName(trunkName));
  std::vector<std::string> notes;
  if (file.LinkType() == kExportLinkType) {
    ReadExport(file, collector);
  } else {
    trace::CAnalysis analysis(collector, trunkCount);
    analysis.Run(file);
    if (const std::string emptiness = analysis.Emptiness(file); !emptiness.empty()) {
      throw CTraceError(EExit::kBadInput, emptiness);
    }
    notes = analysis.Notes();
  }
  if (!file.Fault().empty()) {
    throw CTraceError(EExit::kBadInput, file.Fault());
  }
  SRecording recording = collector.Take(file.Name());
  recording.notes.insert(recording.notes.begin(), notes.begin(), notes.end());
  return recording;
}

}  // namespace replay

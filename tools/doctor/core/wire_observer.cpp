// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/wire_observer.h"

#include <algorithm>
#include <string_view>

#include "common/wire.h"

namespace doctor {
namespace {

using trace::EControl;
using trace::EDirection;

constexpr Time kLostAfter = trace::kSecond;  // of silence, and the library takes a card as lost
constexpr Time kPause = trace::kSecond / 4;  // without a packet of sound
constexpr Time kAnswerWithin = trace::kSecond;
constexpr std::uint64_t kSamplesOfBlock = 160;

bool IsInformationGood(const tool::Bytes& body) {
  constexpr std::string_view kText = "ZELK ";
  return body.size() == tool::kInformationBytes && std::equal(kText.begin(), kText.end(), body.begin()) &&
         body[6] >= 1 && body[6] <= tool::kMaxTrunks && tool::ReadLe32(&body[11]) != 0;
}

}  // namespace

SWireFacts CWireObserver::Run(trace::CCaptureFile& file, int trunks) {
  trace::CAnalysis analysis(*this, trunks);
  wire.source = file.Name();
  analysis.Run(file, [this](const trace::SPacket& packet) { TakePacket(packet); });
  wire.notes = analysis.Notes();
  wire.emptiness = analysis.Emptiness(file);
  wire.fault = file.Fault();
  const bool isCut = analysis.PacketCounts().cut > 0;
  Finish();
  for (auto& [address, card] : wire.cards) {
    if (isCut) {
      card.clock.reset();  // the number of samples in a packet is not known
    }
  }
  return wire;
}

void CWireObserver::TakePacket(const trace::SPacket& packet) {
  wire.begin = wire.begin == 0 ? packet.time : wire.begin;
  wire.end = std::max(wire.end, packet.time);
  if (packet.isTcp && packet.from.port == tool::kCardPort) {
    OnSegmentOfCard(packet);
  } else if (packet.isTcp && packet.to.port == tool::kCardPort) {
    OnSegmentOfLibrary(packet);
  }
}

void CWireObserver::OnSegmentOfCard(const trace::SPacket& packet) {
  const SMark mark{packet.time, packet.number};
  const auto attempt = attempts.find({packet.from.address, packet.to});
  if (attempt != attempts.end() && !attempt->second.isAnswered) {
    attempt->second.isAnswered = true;
    if (packet.isReset) {
      cards[packet.from.address].facts.refused.Add(mark);
      return;
    }
  }
  const auto found = cards.find(packet.from.address);
  if (found == cards.end()) {
    return;
  }
  SCard& card = found->second;
  if (!packet.payload.empty()) {
    TakeSilence(card, packet.time);
    card.heard = mark;
  }
  if ((packet.isFin || packet.isReset) && card.isConnected && !card.isEndTaken) {
    card.facts.endedByCard.Add(mark);
    card.isEndTaken = true;
  }
}

void CWireObserver::OnSegmentOfLibrary(const trace::SPacket& packet) {
  if (packet.isSyn) {
    const auto attempt = attempts.find({packet.to.address, packet.from});
    if (attempt == attempts.end() || attempt->second.isAnswered) {
      attempts[{packet.to.address, packet.from}] = {{packet.time, packet.number}, false};
    }
    return;
  }
  const auto found = cards.find(packet.to.address);
  if (found != cards.end() && (packet.isFin || packet.isReset) && !found->second.isEndTaken) {
    TakeSilence(found->second, packet.time);
    found->second.isEndTaken = true;
  }
}

void CWireObserver::TakeSilence(SCard& card, Time now) {
  const Time silence = now - card.heard.time;
  if (card.isSetUp && card.isConnected && !card.isEndTaken && silence >= kLostAfter) {
    card.facts.silences.Add(card.heard);
    card.facts.longestSilence = std::max(card.facts.longestSilence, silence);
  }
}

void CWireObserver::OnDiscovery(const trace::SDiscovery& datagram) {
  const SMark mark{datagram.time, datagram.packet};
  if (datagram.kind == trace::EDatagram::kProbe) {
    probes.Add(mark);
    return;
  }
  SCardFacts& card = cards[datagram.from].facts;
  if (datagram.kind == trace::EDatagram::kReply) {
    card.replies.Add(mark);
  } else {
    card.announcements.Add(mark);
    card.serial = datagram.serial;
  }
}

void CWireObserver::OnConnected(const trace::SConnection& connection) {
  board.OnConnected(connection);
  SCard& card = cards[connection.card];
  const auto attempt = attempts.find({connection.card, connection.library});
  card.facts.connections.Add(attempt == attempts.end() ? SMark{connection.begin, 0} : attempt->second.mark);
  card.isConnected = true;
  card.isSetUp = false;
  card.isEndTaken = false;
  card.facts.audioPort = {};
  card.lastAudio = 0;
  card.clock.Restart();
  for (CTrunkWatch& trunk : card.trunks) {
    trunk.OnConnected();
  }
}

void CWireObserver::OnInformation(SCard& card, const trace::SControl& message) {
  if (IsInformationGood(message.body)) {
    ++card.facts.informationMessages;
  } else {
    card.facts.badInformation.Add({message.time, message.packet});
  }
}

void CWireObserver::OnControl(const trace::SConnection& connection, const trace::SControl& message) {
  board.OnControl(connection, message);
  SCard& card = cards[connection.card];
  const SMark mark{message.time, message.packet};
  card.facts.serial = connection.serial != 0 ? connection.serial : card.facts.serial;
  card.facts.messages += message.direction == EDirection::kToLibrary ? 1 : 0;
  card.trunks.resize(std::max(card.trunks.size(), static_cast<std::size_t>(connection.trunks)));
  CTrunkWatch* const trunk = Find(connection.card, message.trunk);
  switch (message.kind) {
    case EControl::kInformationRequest:
      card.facts.informationRequests.Add(mark);
      break;
    case EControl::kInformation:
      OnInformation(card, message);
      break;
    case EControl::kAudioPort:
      card.facts.audioPort = mark;
      break;
    case EControl::kStatus:
      card.heard = card.isSetUp ? card.heard : mark;
      card.isSetUp = true;
      for (std::size_t i = 0; i < std::min(message.body.size(), card.trunks.size()); ++i) {
        card.trunks[i].OnStatus(message.body[i], mark);
      }
      break;
    case EControl::kHdlcError:
      if (trunk != nullptr) {
        trunk->OnHdlcError(message.value, mark);
      }
      break;
    default:
      break;
  }
}

void CWireObserver::OnDisconnected(const trace::SConnection& connection, Time time) {
  board.OnDisconnected(connection, time);
  SCard& card = cards[connection.card];
  card.isConnected = false;
  card.facts.last = time;
}

CTrunkWatch* CWireObserver::Find(std::uint32_t card, int trunk) {
  const auto found = cards.find(card);
  const bool isThere =
      found != cards.end() && trunk >= 0 && static_cast<std::size_t>(trunk) < found->second.trunks.size();
  return isThere ? &found->second.trunks[static_cast<std::size_t>(trunk)] : nullptr;
}

void CWireObserver::OnFrame(const trace::SConnection& connection, const trace::SControl& frame,
                            const tool::SQ921Frame& decoded, trace::EVerdict verdict) {
  board.OnFrame(connection, frame, decoded, verdict);
  if (CTrunkWatch* const trunk = Find(connection.card, frame.trunk)) {
    trunk->OnFrame(frame, decoded, verdict);
  }
}

void CWireObserver::OnCallBegins(const trace::SCall& call) {
  if (CTrunkWatch* const trunk = Find(call.card, call.trunk)) {
    trunk->OnCallBegins(call);
  }
}

void CWireObserver::OnCallMessage(const trace::SCall& call, const trace::SSignal& signal) {
  board.OnCallMessage(call, signal);
  if (CTrunkWatch* const trunk = Find(call.card, call.trunk)) {
    trunk->OnCallMessage(call, signal);
    cards[call.card].sound.OnCall(call);
  }
}

void CWireObserver::OnCallEnds(const trace::SCall& call) {
  board.OnCallEnds(call);
  CTrunkWatch* const trunk = Find(call.card, call.trunk);
  if (trunk == nullptr) {
    return;
  }
  trunk->OnCallEnds(call, wire.end);
  if (const std::optional<SCallFacts> deaf = cards[call.card].sound.OnCallEnds(call, wire.end)) {
    trunk->facts.deafCalls.push_back(*deaf);
  }
}

void CWireObserver::OnAudio(const trace::SAudio& audio) {
  board.OnAudio(audio);
  SCard& card = cards[audio.card];
  const SMark mark{audio.time, audio.packet};
  card.sound.OnAudio(audio, card.trunks.size());
  if (audio.direction == EDirection::kFromLibrary) {
    card.facts.audioToCard.Add(mark);
    return;
  }
  card.facts.audioFromCard.Add(mark);
  if (card.lastAudio != 0 && audio.time - card.lastAudio > kPause) {
    card.facts.pauses.Add(mark);
    card.facts.longestPause = std::max(card.facts.longestPause, audio.time - card.lastAudio);
    card.facts.allPauses += audio.time - card.lastAudio;
  }
  card.lastAudio = audio.time;
  if (!card.trunks.empty()) {
    card.clock.Add(audio.sequence, audio.samples.size() / (card.trunks.size() * tool::kTimeslots), audio.time);
  }
}

void CWireObserver::FinishCard(SCard& card) {
  TakeSilence(card, wire.end);
  card.facts.last = card.isConnected ? wire.end : card.facts.last;
  card.facts.clock = card.clock.Result();
  for (const CTrunkWatch& trunk : card.trunks) {
    card.facts.trunks.push_back(trunk.facts);
    if (!card.isConnected) {
      card.facts.trunks.back().isUp.reset();  // went with the connection
    }
  }
  const auto shown = board.Cards().find(card.facts.address);
  if (shown == board.Cards().end()) {
    return;
  }
  card.facts.audio = shown->second.replies.Counts();
  card.facts.delayP50 = shown->second.replies.DelayMs(0.5);
  card.facts.delayP99 = shown->second.replies.DelayMs(0.99);
  for (std::size_t i = 0; i < std::min(card.facts.trunks.size(), shown->second.trunks.size()); ++i) {
    card.facts.trunks[i].starvedBlocks = shown->second.trunks[i].starvedBlocks;
    card.facts.trunks[i].soundBlocks = shown->second.trunks[i].connectedSamples / kSamplesOfBlock;
  }
}

void CWireObserver::Finish() {
  wire.probes = probes;
  for (const auto& [ends, attempt] : attempts) {
    if (!attempt.isAnswered && wire.end - attempt.mark.time >= kAnswerWithin) {
      cards[ends.first].facts.unanswered.Add(attempt.mark);
    }
  }
  for (auto& [address, card] : cards) {
    card.facts.address = address;
    FinishCard(card);
    wire.cards[address] = card.facts;
  }
}

}  // namespace doctor

// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/traffic.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <list>
#include <optional>
#include <string_view>
#include <utility>

#include "common/wire.h"

namespace trace {
namespace {

constexpr std::size_t kMostDeferred = 1000;
constexpr Time kMostOutOfOrder = kSecond;

bool BeginsWith(ByteView bytes, std::string_view text) {
  return bytes.size() >= text.size() && std::equal(text.begin(), text.end(), bytes.begin());
}

void AddTcp(STcpCounts& sum, const STcpCounts& counts) {
  sum.segments += counts.segments;
  sum.repeated += counts.repeated;
  sum.outOfOrder += counts.outOfOrder;
  sum.gaps += counts.gaps;
  sum.bytesMissing += counts.bytesMissing;
  sum.strays += counts.strays;
}

void AddMessages(SControlCounts& sum, const SControlCounts& counts) {
  sum.messages += counts.messages;
  sum.badFcs += counts.badFcs;
  sum.bytesSkipped += counts.bytesSkipped;
  sum.resyncs += counts.resyncs;
}

// Of each direction they are in order already.
void PutInOrderOfPackets(std::vector<SControl>& messages) {
  std::uint64_t latest[2] = {};
  std::vector<std::pair<std::uint64_t, std::size_t>> places;
  places.reserve(messages.size());
  for (const SControl& message : messages) {
    std::uint64_t& packet = latest[message.direction == EDirection::kToLibrary ? 0 : 1];
    packet = std::max(packet, message.packet);
    places.emplace_back(packet, places.size());
  }
  std::sort(places.begin(), places.end());
  std::vector<SControl> ordered;
  ordered.reserve(messages.size());
  for (const auto& [packet, place] : places) {
    ordered.push_back(std::move(messages[place]));
  }
  messages = std::move(ordered);
}

}  // namespace

std::string CardName(const SConnection& connection) {
  return connection.serial != 0 ? std::to_string(connection.serial) : AddressText(connection.card);
}

// A segment that waits, with its bytes.
struct SDeferred {
  explicit SDeferred(const SPacket& source) : bytes(source.payload.begin(), source.payload.end()), packet(source) {
    packet.payload = bytes;
  }
  Bytes bytes;
  SPacket packet;
};

// A connection with both of its directions.
struct CTraffic::SLive {
  SLive(CTraffic& owner, const SConnection& begun)
      : connection(begun),
        fromCard([&owner, this](const SPiece& piece) { owner.OnPiece(*this, EDirection::kToLibrary, piece); }),
        fromLibrary([&owner, this](const SPiece& piece) { owner.OnPiece(*this, EDirection::kFromLibrary, piece); }),
        cardDecoder(EDirection::kToLibrary, begun.trunks,
                    [this](SControl&& message) { fresh.push_back(std::move(message)); }),
        libraryDecoder(EDirection::kFromLibrary, begun.trunks,
                       [this](SControl&& message) { fresh.push_back(std::move(message)); }) {
    if (begun.isBegunBefore) {
      cardDecoder.LoseSync();
      libraryDecoder.LoseSync();
    }
  }

  SConnection connection;
  CTcpStream fromCard;
  CTcpStream fromLibrary;
  CControlDecoder cardDecoder;
  CControlDecoder libraryDecoder;
  std::list<SDeferred> deferred;
  std::vector<SControl> fresh;  // that the packet at hand has brought
  std::uint64_t gaps = 0;       // of both directions, before it
  std::deque<SControl> waiting;
  std::optional<std::uint32_t> opening;  // the number of the library's SYN
  bool isHeard[2] = {};                  // from the card, from the library
  bool isEnded = false;
  bool hasCardEnded = false;
  bool hasLibraryEnded = false;
};

CTraffic::CTraffic(ITrafficSink& trafficSink, int trunkCount) : sink(trafficSink), trunksToAssume(trunkCount) {}

CTraffic::~CTraffic() = default;

void CTraffic::OnPacket(const SPacket& packet) {
  last = packet.time < last - kMostOutOfOrder ? packet.time : std::max(last, packet.time);
  if (packet.isTcp) {
    OnSegment(packet);
  } else {
    OnDatagram(packet);
  }
}

void CTraffic::OnSegment(const SPacket& packet) {
  const bool isToCard = packet.to.port == tool::kCardPort;
  if (!isToCard && packet.from.port != tool::kCardPort) {
    return;
  }
  ++counts.control;
  sink.OnPacket(packet.time);
  const EDirection direction = isToCard ? EDirection::kFromLibrary : EDirection::kToLibrary;
  SLive* live = Find(packet, direction);
  if (live == nullptr) {
    return;
  }
  live->isHeard[isToCard ? 1 : 0] = true;
  const CTcpStream& other = isToCard ? live->fromCard : live->fromLibrary;
  if (packet.isAck && !packet.isSyn && !other.HasReceived(packet.acknowledged)) {
    live->deferred.emplace_back(packet);
  } else {
    Process(*live, packet);
  }
  ProcessDeferred(*live, false);
  Deliver(*live);
}

void CTraffic::Process(SLive& live, const SPacket& packet) {
  const bool isToCard = packet.to.port == tool::kCardPort;
  CTcpStream& own = isToCard ? live.fromLibrary : live.fromCard;
  CTcpStream& other = isToCard ? live.fromCard : live.fromLibrary;
  own.OnSegment(packet);
  if (packet.isAck) {
    other.OnAcknowledged(packet.acknowledged, last);
  }
  live.hasLibraryEnded = live.hasLibraryEnded || (packet.isFin && isToCard);
  live.hasCardEnded = live.hasCardEnded || (packet.isFin && !isToCard);
  if (!live.isEnded && (packet.isReset || (live.hasCardEnded && live.hasLibraryEnded))) {
    End(live, packet.time);
  }
}

// Those whose time has come, or all.
void CTraffic::ProcessDeferred(SLive& live, bool isAll) {
  for (auto each = live.deferred.begin(); each != live.deferred.end();) {
    const bool isToCard = each->packet.to.port == tool::kCardPort;
    const CTcpStream& other = isToCard ? live.fromCard : live.fromLibrary;
    const bool isDue = isAll || std::abs(last - each->packet.time) >= kPatience ||
                       live.deferred.size() > kMostDeferred || other.HasReceived(each->packet.acknowledged);
    if (!isDue) {
      ++each;
      continue;
    }
    const SDeferred packet = std::move(*each);
    live.deferred.erase(each);
    Process(live, packet.packet);
    each = live.deferred.begin();
  }
}

// The connection of a segment; null for what is none of a connection that lives or begins.
CTraffic::SLive* CTraffic::Find(const SPacket& packet, EDirection direction) {
  const bool isToCard = direction == EDirection::kFromLibrary;
  const SEndpoint& library = isToCard ? packet.from : packet.to;
  const std::uint32_t card = isToCard ? packet.to.address : packet.from.address;
  const auto found = connections.find({card, library});
  const bool isOpening = packet.isSyn && !packet.isAck && isToCard;
  if (isOpening) {
    if (found == connections.end() || found->second->opening != packet.sequence) {
      return &Begin(packet, direction);
    }
    return found->second->isEnded ? nullptr : found->second.get();  // its SYN once more
  }
  if (found == connections.end()) {
    return packet.payload.empty() || packet.isReset ? nullptr : &Begin(packet, direction);
  }
  if (found->second->isEnded) {
    counts.afterTheEnd += packet.payload.empty() ? 0 : 1;
    return nullptr;
  }
  return found->second.get();
}

CTraffic::SLive& CTraffic::Begin(const SPacket& packet, EDirection direction) {
  const bool isToCard = direction == EDirection::kFromLibrary;
  SConnection connection;
  connection.number = static_cast<int>(counts.connections++);
  connection.card = isToCard ? packet.to.address : packet.from.address;
  connection.library = isToCard ? packet.from : packet.to;
  connection.isBegunBefore = !packet.isSyn;
  connection.begin = packet.time;
  counts.begunBefore += connection.isBegunBefore ? 1 : 0;
  for (const auto& [key, live] : connections) {
    if (key.first == connection.card && !live->isEnded) {
      End(*live, packet.time);  // a card has one connection
    }
  }
  const auto known = lastOfCard.find(connection.card);
  if (known != lastOfCard.end()) {
    connection.serial = known->second.serial;
    connection.trunks = connection.isBegunBefore ? known->second.trunks : 0;
  }
  connection.trunks = connection.trunks == 0 ? trunksToAssume : connection.trunks;
  std::unique_ptr<SLive>& place = connections[{connection.card, connection.library}];
  place = std::make_unique<SLive>(*this, connection);
  place->opening = packet.isSyn && isToCard ? std::optional(packet.sequence) : std::nullopt;
  sink.OnConnected(connection);
  return *place;
}

void CTraffic::OnPiece(SLive& live, EDirection direction, const SPiece& piece) {
  CControlDecoder& decoder = direction == EDirection::kToLibrary ? live.cardDecoder : live.libraryDecoder;
  decoder.Feed(piece);
}

void CTraffic::Deliver(SLive& live) {
  std::vector<SControl> messages = std::exchange(live.fresh, {});
  const std::uint64_t gaps = live.fromCard.Counts().gaps + live.fromLibrary.Counts().gaps;
  if (std::exchange(live.gaps, gaps) != gaps) {
    PutInOrderOfPackets(messages);  // both directions have waited
  }
  for (SControl& message : messages) {
    OnMessage(live, std::move(message));
  }
}

// As long as nothing of the card can be read, what the library says waits for its place between.
void CTraffic::OnMessage(SLive& live, SControl&& message) {
  const bool isWaiting = live.connection.isBegunBefore && live.cardDecoder.Trunks() == 0;
  if (isWaiting && message.direction == EDirection::kFromLibrary) {
    live.waiting.push_back(std::move(message));
    return;
  }
  const bool isFromCard = message.direction == EDirection::kToLibrary;
  while (!live.waiting.empty() && (!isFromCard || live.waiting.front().packet < message.packet)) {
    Tell(live, live.waiting.front());
    live.waiting.pop_front();
  }
  Tell(live, message);
}

void CTraffic::Tell(SLive& live, const SControl& message) {
  if (message.kind == EControl::kInformation) {
    live.connection.serial = tool::ReadLe32(&message.body[11]);
    EndOthersOf(live, message.time);
  } else if (message.kind == EControl::kAudioPort) {
    live.connection.audioPort = message.value;
  }
  live.connection.trunks = live.cardDecoder.Trunks();
  lastOfCard[live.connection.card] = live.connection;
  sink.OnControl(live.connection, message);
}

void CTraffic::End(SLive& live, Time time) {
  live.isEnded = true;
  Drain(live);
  sink.OnDisconnected(live.connection, time);
}

// The card has taken another address.
void CTraffic::EndOthersOf(const SLive& live, Time time) {
  for (const auto& [key, other] : connections) {
    if (other.get() != &live && !other->isEnded && live.connection.serial != 0 &&
        other->connection.serial == live.connection.serial) {
      End(*other, time);
    }
  }
}

void CTraffic::Drain(SLive& live) {
  ProcessDeferred(live, true);
  live.fromLibrary.Finish();
  live.fromCard.Finish();
  Deliver(live);
  for (; !live.waiting.empty(); live.waiting.pop_front()) {
    Tell(live, live.waiting.front());
  }
  const bool isUnread = live.cardDecoder.Trunks() == 0 && live.fromCard.Counts().segments > 0;
  const bool hasData = live.fromCard.Counts().segments + live.fromLibrary.Counts().segments > 0;
  counts.oneSided += hasData && live.isHeard[0] != live.isHeard[1] ? 1 : 0;
  counts.withoutTrunkCount += isUnread ? 1 : 0;
  AddTcp(counts.tcp, live.fromLibrary.Counts());
  AddTcp(counts.tcp, live.fromCard.Counts());
  AddMessages(counts.messages, live.libraryDecoder.Counts());
  AddMessages(counts.messages, live.cardDecoder.Counts());
}

void CTraffic::Finish() {
  for (const auto& [key, live] : connections) {
    if (!live->isEnded) {
      live->isEnded = true;
      Drain(*live);
    }
  }
}

STrafficCounts CTraffic::Counts() const {
  return counts;
}

void CTraffic::OnDatagram(const SPacket& packet) {
  const ByteView bytes = packet.payload;
  if (packet.to.port == tool::kCardPort && BeginsWith(bytes, "ZELK ") && bytes.size() >= 6) {
    const char letter = static_cast<char>(bytes[5]);
    if (letter != 'D' && letter != 'R' && letter != 'B') {
      return;
    }
    ++counts.discovery;
    SDiscovery datagram{letter == 'D' ? EDatagram::kProbe : EDatagram::kReply, packet.time, packet.number,
                        packet.from.address, 0};
    if (letter == 'B') {
      datagram.kind = EDatagram::kAnnouncement;
      datagram.serial = bytes.size() >= 22 ? tool::ReadLe32(&bytes[18]) : 0;
    }
    sink.OnPacket(packet.time);
    sink.OnDiscovery(datagram);
    return;
  }
  if (bytes.size() < tool::kAudioHeaderBytes || bytes[0] != 0xFF || bytes[1] != 0x55 ||
      !tool::IsAudioPacketSize(bytes.size() + packet.leftOut)) {
    return;
  }
  ++counts.audio;
  const bool isToCard = packet.to.port == tool::kCardPort;
  sink.OnPacket(packet.time);
  sink.OnAudio({isToCard ? EDirection::kFromLibrary : EDirection::kToLibrary, packet.time, packet.number,
                isToCard ? packet.to.address : packet.from.address, tool::ReadLe32(&bytes[2]), bytes[6],
                bytes.subspan(tool::kAudioHeaderBytes)});
}

}  // namespace trace

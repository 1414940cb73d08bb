// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/traffic.h"

#include <algorithm>
#include <deque>
#include <list>
#include <string_view>
#include <utility>

#include "common/wire.h"

namespace trace {
namespace {

constexpr std::size_t kMostDeferred = 1000;

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
                    [&owner, this](SControl&& message) { owner.OnMessage(*this, std::move(message)); }),
        libraryDecoder(EDirection::kFromLibrary, begun.trunks,
                       [&owner, this](SControl&& message) { owner.OnMessage(*this, std::move(message)); }) {
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
  std::deque<SControl> waiting;
  bool isEnded = false;
  bool hasCardEnded = false;
  bool hasLibraryEnded = false;
};

CTraffic::CTraffic(ITrafficSink& trafficSink, int trunkCount) : sink(trafficSink), trunksToAssume(trunkCount) {}

CTraffic::~CTraffic() = default;

void CTraffic::OnPacket(const SPacket& packet) {
  last = std::max(last, packet.time);
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
  const CTcpStream& other = isToCard ? live->fromCard : live->fromLibrary;
  if (packet.isAck && !packet.isSyn && !other.HasReceived(packet.acknowledged)) {
    live->deferred.emplace_back(packet);
  } else {
    Process(*live, packet);
  }
  ProcessDeferred(*live, false);
}

void CTraffic::Process(SLive& live, const SPacket& packet) {
  const bool isToCard = packet.to.port == tool::kCardPort;
  CTcpStream& own = isToCard ? live.fromLibrary : live.fromCard;
  CTcpStream& other = isToCard ? live.fromCard : live.fromLibrary;
  own.OnSegment(packet);
  if (packet.isAck) {
    other.OnAcknowledged(packet.acknowledged, packet.time);
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
    const bool isDue = isAll || last - each->packet.time >= kPatience || live.deferred.size() > kMostDeferred ||
                       other.HasReceived(each->packet.acknowledged);
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
    if (found != connections.end() && !found->second->isEnded && found->second->fromLibrary.Counts().segments == 0) {
      return found->second.get();  // its SYN once more
    }
    return &Begin(packet, direction);
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
  sink.OnConnected(connection);
  return *place;
}

void CTraffic::OnPiece(SLive& live, EDirection direction, const SPiece& piece) {
  CControlDecoder& decoder = direction == EDirection::kToLibrary ? live.cardDecoder : live.libraryDecoder;
  decoder.Feed(piece);
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

void CTraffic::Drain(SLive& live) {
  ProcessDeferred(live, true);
  live.fromLibrary.Finish();
  live.fromCard.Finish();
  for (; !live.waiting.empty(); live.waiting.pop_front()) {
    Tell(live, live.waiting.front());
  }
  const bool isUnread = live.cardDecoder.Trunks() == 0 && live.fromCard.Counts().segments > 0;
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

// SPDX-License-Identifier: GPL-2.0-only

// Discovery replies and announcements, as they come to UDP port 5854. An input is a row of datagrams:
//
//   sender (4 bytes), length (2 bytes), that many bytes

#include <algorithm>
#include <set>

#include "card/card.h"
#include "card/discovery.h"
#include "fuzz/target.h"

namespace zelk::fuzz {
namespace {

constexpr size_t kShortest = 15;
constexpr size_t kSerialOffset = 18;

bool HasHead(const Bytes& datagram, char kind) {
  const Bytes head = Join({Text("ZELK "), {static_cast<uint8_t>(kind), 1}});
  return datagram.size() >= kShortest && std::equal(head.begin(), head.end(), datagram.begin());
}

// What of a listener outlives a datagram.
struct SListener {
  std::array<uint8_t, kDatagramBytes> buffer{};
  std::vector<SDiscoveredCard> cards;
};

void TakeReply(SListener& listener, const Bytes& datagram, SIpv4Address sender) {
  const bool isReply = IsDiscoveryReply(datagram.data(), datagram.size());
  Require(isReply == HasHead(datagram, 'R'), "a reply is told by length, name and version");
  if (!isReply) {
    return;
  }
  const bool isNew = std::none_of(listener.cards.begin(), listener.cards.end(),
                                  [=](const SDiscoveredCard& card) { return card.cardAddress == sender; });
  const size_t before = listener.cards.size();
  const bool isAdded = AddDiscoveredCard(listener.cards, {sender, SIpv4Address{0x0100007F}});
  Require(isAdded == (!isNew || before < kMaxCards), "a card is refused only when the table is full");
  Require(listener.cards.size() == before + (isNew && isAdded ? 1 : 0), "a card is kept once");
}

void TakeAnnouncement(SListener& listener, const Bytes& datagram) {
  std::copy(datagram.begin(), datagram.end(), listener.buffer.begin());
  uint32_t serialNumber = 0xDEADBEEF;
  const bool isAnnounced = ParseAnnouncement(listener.buffer, datagram.size(), serialNumber);
  Require(isAnnounced == HasHead(datagram, 'B'), "an announcement is told by length, name and version");
  const uint32_t written = CInput(&listener.buffer[kSerialOffset], 4).Number(4);
  Require(serialNumber == (isAnnounced ? written : 0xDEADBEEF), "the serial number is what the buffer holds");
}

void Run(const uint8_t* bytes, size_t length) {
  CInput input(bytes, length);
  SListener listener;
  while (!input.IsEmpty()) {
    const SIpv4Address sender{input.Number(4)};
    const Bytes datagram = input.Take(std::min<size_t>(input.Number(2), kDatagramBytes));
    TakeReply(listener, datagram, sender);
    TakeAnnouncement(listener, datagram);
  }
  uint32_t none = 0;
  Require(!ParseAnnouncement(listener.buffer, kDatagramBytes + 1, none), "no datagram is longer than the buffer");
}

Bytes Datagram(uint32_t sender, char kind, size_t length) {
  Bytes bytes = {
      192, 168, 1, static_cast<uint8_t>(sender), static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8)};
  Bytes body = Join({Text("ZELK "), {static_cast<uint8_t>(kind), 1}});
  for (size_t i = body.size(); i < length; ++i) {
    body.push_back(static_cast<uint8_t>(i));
  }
  return Join({bytes, body});
}

std::vector<Bytes> Seeds() {
  Bytes many;
  for (uint32_t sender = 1; sender < 23; ++sender) {
    many = Join({many, Datagram(sender, 'R', 15)});
  }
  return {Join({Datagram(5, 'R', 40), Datagram(5, 'R', 15), Datagram(6, 'R', 22)}),
          Join({Datagram(5, 'B', 22), Datagram(6, 'B', 15), Datagram(6, 'D', 15)}),
          Join({Datagram(7, 'B', 1500), Datagram(7, 'R', 14)}), many};
}

const SRegistered kRegistered({"datagrams", &Run, &Seeds});

}  // namespace
}  // namespace zelk::fuzz

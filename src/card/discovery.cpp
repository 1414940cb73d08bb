// SPDX-License-Identifier: GPL-2.0-only
#include "card/discovery.h"

#include <algorithm>
#include <cstring>

#include "platform/adapters.h"
#include "platform/bytes.h"
#include "platform/clock.h"
#include "platform/socket.h"
#include "runtime/e1.h"
#include "runtime/log.h"

namespace zelk {

namespace {

constexpr char kProbe[] = "ZELK D";
constexpr char kReply[] = "ZELK R";
constexpr char kAnnouncement[] = "ZELK B";
constexpr size_t kMagicBytes = 6;
constexpr size_t kShortestDatagram = 15;
constexpr uint8_t kVersion = 1;
constexpr size_t kSerialOffset = 18;
constexpr int kReceiveBufferBytes = 65536;
constexpr int kProbes = 3;
constexpr int32_t kQuietMs = 50;
// Someone who never stops sending must not hold the start-up.
constexpr uint32_t kLongestWaitMs = 1000;

bool HasHead(const uint8_t* datagram, size_t length, const char* magic) {
  return length >= kShortestDatagram && std::memcmp(datagram, magic, kMagicBytes) == 0 &&
         datagram[kMagicBytes] == kVersion;
}

// One adapter's probing; cards beyond the table are noticed once.
class CProbe {
 public:
  CProbe(std::vector<SDiscoveredCard>& foundCards, bool& overflowNoted) : cards(foundCards), isNoted(overflowNoted) {}

  void Run(const SAdapter& adapter) {
    CSocket receiver;
    CSocket sender;
    if (!OpenReceiver(receiver, adapter.address) || !sender.OpenUdp() || !sender.SetBroadcast(true)) {
      return;
    }
    const SIpv4Endpoint everyone{BroadcastAddress(adapter.address, adapter.mask), kCardPort};
    for (int i = 0; i < kProbes; ++i) {
      sender.SendTo(kProbe, kMagicBytes, everyone);
      TakeReplies(receiver, adapter.address);
    }
  }

 private:
  static bool OpenReceiver(CSocket& receiver, SIpv4Address address) {
    if (!receiver.OpenUdp()) {
      return false;
    }
    receiver.SetReceiveBuffer(kReceiveBufferBytes);
    receiver.SetSharedPort();
    return receiver.Bind({address, kCardPort});
  }

  void TakeReplies(CSocket& receiver, SIpv4Address localAddress) {
    const uint32_t start = TickMs();
    while (TickMs() - start < kLongestWaitMs && receiver.WaitReadable(kQuietMs) == EWait::kReady) {
      SIpv4Endpoint from;
      const int length = receiver.ReceiveFrom(buffer.data(), buffer.size(), from);
      if (length > 0 && IsDiscoveryReply(buffer.data(), static_cast<size_t>(length))) {
        Add({from.address, localAddress});
      }
    }
  }

  void Add(const SDiscoveredCard& found) {
    if (!AddDiscoveredCard(cards, found) && !isNoted) {
      isNoted = true;
      LogFormat(ELogClass::kStatus, kGeneralLine, "Discovery: more than %u cards answered, the others are ignored",
                kMaxCards);
    }
  }

  std::vector<SDiscoveredCard>& cards;
  bool& isNoted;
  std::array<uint8_t, kDatagramBytes> buffer{};
};

}  // namespace

bool IsDiscoveryReply(const uint8_t* datagram, size_t length) {
  return HasHead(datagram, length, kReply);
}

bool ParseAnnouncement(const std::array<uint8_t, kDatagramBytes>& buffer, size_t length, uint32_t& serialNumber) {
  if (length > buffer.size() || !HasHead(buffer.data(), length, kAnnouncement)) {
    return false;
  }
  serialNumber = ReadLittle32(&buffer[kSerialOffset]);
  return true;
}

SIpv4Address BroadcastAddress(SIpv4Address address, SIpv4Address mask) {
  return {address.networkOrder | ~mask.networkOrder};
}

bool AddDiscoveredCard(std::vector<SDiscoveredCard>& cards, const SDiscoveredCard& found) {
  const bool isKnown = std::any_of(cards.begin(), cards.end(),
                                   [&](const SDiscoveredCard& card) { return card.cardAddress == found.cardAddress; });
  if (isKnown) {
    return true;
  }
  if (cards.size() >= kMaxCards) {
    return false;
  }
  cards.push_back(found);
  return true;
}

int32_t DiscoverCards(std::vector<SDiscoveredCard>& cards) {
  cards.clear();
  std::vector<SAdapter> adapters;
  const int listed = ListAdapters(adapters);
  if (listed != kAdaptersListed) {
    return listed;
  }
  bool isOverflowNoted = false;
  for (const SAdapter& adapter : adapters) {
    if (adapter.address != kAnyAddress) {
      CProbe(cards, isOverflowNoted).Run(adapter);
    }
  }
  return static_cast<int32_t>(cards.size());
}

}  // namespace zelk

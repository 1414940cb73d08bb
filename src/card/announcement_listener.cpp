// SPDX-License-Identifier: GPL-2.0-only
#include "card/announcement_listener.h"

#include <algorithm>
#include <array>
#include <exception>

#include "platform/socket.h"
#include "runtime/log.h"
#include "runtime/status_page.h"
#include "runtime/stop_flag.h"

namespace zelk {

namespace {

constexpr int kReceiveBufferBytes = 65536;
constexpr int32_t kWaitMs = 250;
constexpr uint32_t kListenerJoinMs = 3000;

}  // namespace

// What the thread works on; shared with it, so that a thread that is late to end finds it.
class CAnnouncementListener::CWorker {
 public:
  CWorker(std::vector<CCard*> knownCards, std::vector<SDiscoveredCard> knownAddresses)
      : cards(std::move(knownCards)), discovered(std::move(knownAddresses)) {}

  void Run() {
    if (!OpenSocket()) {
      return;
    }
    while (!stop.IsSet()) {
      StatusPage().Beat();
      if (socket.WaitReadable(kWaitMs) == EWait::kReady) {
        TakeDatagram();
      }
    }
    socket.Close();
  }

  void RequestStop() { stop.Set(); }
  // Of a thread that is late to end: the port is free for the next listener.
  void CloseSocket() { socket.Close(); }

 private:
  bool OpenSocket() {
    if (!socket.OpenUdp()) {
      return false;
    }
    socket.SetReceiveBuffer(kReceiveBufferBytes);
    socket.SetSharedPort();
    return socket.Bind({kAnyAddress, kCardPort});
  }

  void TakeDatagram() {
    SIpv4Endpoint from;
    const int length = socket.ReceiveFrom(buffer.data(), buffer.size(), from);
    uint32_t serialNumber = 0;
    if (length > 0 && ParseAnnouncement(buffer, static_cast<size_t>(length), serialNumber)) {
      ReopenCards(serialNumber, from.address);
    }
  }

  // A card that was never opened has the serial number 0 and cannot be announced.
  void ReopenCards(uint32_t serialNumber, SIpv4Address address) {
    const size_t count = std::min(cards.size(), discovered.size());
    for (size_t i = 0; i < count && !stop.IsSet(); ++i) {
      if (serialNumber != 0 && cards[i]->SerialNumber() == serialNumber) {
        TryReopen(*cards[i], discovered[i], serialNumber, address);
      }
    }
  }

  void TryReopen(CCard& card, const SDiscoveredCard& found, uint32_t serialNumber, SIpv4Address address) {
    try {
      Reopen(card, found, serialNumber, address);
    } catch (const std::exception&) {
      return;  // no memory: the next announcement may have more luck
    }
  }

  void Reopen(CCard& card, const SDiscoveredCard& found, uint32_t serialNumber, SIpv4Address address) {
    LogFormat(ELogClass::kStatus, kGeneralLine, "Broadcast from Card serial no %u", serialNumber);
    const bool isOpen = card.Reopen(address, found.localAddress, stop);
    LogFormat(ELogClass::kStatus, kGeneralLine, "Card reopen has %s", isOpen ? "Succeeded" : "failed");
  }

  const std::vector<CCard*> cards;
  const std::vector<SDiscoveredCard> discovered;
  CStopFlag stop;
  CSocket socket;
  std::array<uint8_t, kDatagramBytes> buffer{};  // zeroed once: see ParseAnnouncement
};

CAnnouncementListener::~CAnnouncementListener() {
  Stop();
}

bool CAnnouncementListener::Start(std::vector<CCard*> cards, std::vector<SDiscoveredCard> discovered) {
  Stop();
  worker = std::make_shared<CWorker>(std::move(cards), std::move(discovered));
  return thread.Start("zelk-listener", [shared = worker] { shared->Run(); });
}

void CAnnouncementListener::Stop() {
  if (worker != nullptr) {
    worker->RequestStop();
    if (!thread.JoinFor(kListenerJoinMs)) {
      worker->CloseSocket();
    }
    worker.reset();
  }
}

}  // namespace zelk

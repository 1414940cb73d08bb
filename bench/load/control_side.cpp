// SPDX-License-Identifier: GPL-2.0-only
#include "load/control_side.h"

#include <chrono>

#include "load/sockets.h"

namespace load {

namespace {

constexpr int kStatusMs = 250;

// 0 while the message is not whole; the lengths of what the library sends.
size_t MessageLength(const std::vector<uint8_t>& stream) {
  if (stream.size() < 2) {
    return 0;
  }
  switch (stream[1]) {
    case 0x02:
      return 6;
    case 0x05:
      return 5;
    case 0x10:
      return stream.size() < 5 ? 0 : static_cast<size_t>(stream[3] | stream[4] << 8) + 6;
    case 0x12:
      return 9;
    default:
      return 2;
  }
}

std::vector<uint8_t> Information(size_t card, uint8_t trunks) {
  const auto serial = static_cast<uint8_t>(card + 1);
  return {0xFF, 0x01, 'Z', 'E', 'L', 'K', ' ', 3, trunks, 0, 0, 0, 0, serial, 0x12, 0, 0, 20, 24, 11, 30, 13, 5, 9};
}

void Send(int stream, const std::vector<uint8_t>& bytes) {
  if (stream >= 0) {
    (void)!send(stream, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
}

}  // namespace

CControlSide::CControlSide(std::vector<SCard> allCards, const std::string& broadcast)
    : cards(std::move(allCards)), probes(OpenSocket(SOCK_DGRAM, broadcast, kCardPort)) {
  for (const SCard& card : cards) {
    SConnection& connection = connections.emplace_back();
    connection.answers = OpenSocket(SOCK_DGRAM, card.address, 0);
    connection.listener = OpenSocket(SOCK_STREAM, card.address, kCardPort);
    if (listen(connection.listener, 1) != 0) {
      Fail("listen");
    }
  }
  worker = std::thread([this] { Run(); });
}

CControlSide::~CControlSide() {
  stopping = true;
  worker.join();
}

void CControlSide::Run() {
  auto lastStatus = std::chrono::steady_clock::now();
  while (!stopping) {
    std::vector<pollfd> polled{{probes, POLLIN, 0}};
    for (const SConnection& each : connections) {
      polled.push_back({each.stream >= 0 ? each.stream : each.listener, POLLIN, 0});
    }
    poll(polled.data(), polled.size(), kStatusMs / 2);
    if (polled[0].revents != 0) {
      AnswerProbe();
    }
    for (size_t card = 0; card < cards.size(); ++card) {
      if (polled[card + 1].revents != 0 && connections[card].stream < 0) {
        Accept(connections[card]);
      } else if (polled[card + 1].revents != 0) {
        Read(card);
      }
    }
    if (std::chrono::steady_clock::now() - lastStatus >= std::chrono::milliseconds(kStatusMs)) {
      lastStatus = std::chrono::steady_clock::now();
      Talk();
    }
  }
}

void CControlSide::AnswerProbe() {
  uint8_t probe[64];
  sockaddr_in library{};
  socklen_t length = sizeof library;
  if (recvfrom(probes, probe, sizeof probe, 0, reinterpret_cast<sockaddr*>(&library), &length) < 6) {
    return;
  }
  library.sin_port = htons(kCardPort);
  const uint8_t reply[15] = {'Z', 'E', 'L', 'K', ' ', 'R', 1};
  for (const SConnection& each : connections) {
    sendto(each.answers, reply, sizeof reply, 0, reinterpret_cast<const sockaddr*>(&library), sizeof library);
  }
}

void CControlSide::Accept(SConnection& connection) {
  connection.stream = accept(connection.listener, nullptr, nullptr);
  connection.unread.clear();
}

void CControlSide::Read(size_t card) {
  SConnection& connection = connections[card];
  uint8_t bytes[4096];
  const ssize_t received = recv(connection.stream, bytes, sizeof bytes, 0);
  if (received <= 0) {
    close(connection.stream);
    connection.stream = -1;
    audioPorts[card] = 0;
    return;
  }
  connection.unread.insert(connection.unread.end(), bytes, bytes + received);
  for (size_t length = MessageLength(connection.unread); length != 0 && connection.unread.size() >= length;
       length = MessageLength(connection.unread)) {
    const auto end = connection.unread.begin() + static_cast<ptrdiff_t>(length);
    Take(card, std::vector<uint8_t>(connection.unread.begin(), end));
    connection.unread.erase(connection.unread.begin(), end);
  }
}

void CControlSide::Take(size_t card, const std::vector<uint8_t>& message) {
  if (message[1] == 0x01) {
    Send(connections[card].stream, Information(card, cards[card].trunks));
  } else if (message[1] == 0x05) {
    audioPorts[card] = static_cast<uint16_t>(message[2] | message[3] << 8U);
  }
}

void CControlSide::Talk() {
  for (size_t card = 0; card < cards.size(); ++card) {
    if (audioPorts[card] != 0) {
      std::vector<uint8_t> status{0xFF, 0x07};
      status.insert(status.end(), cards[card].trunks, 0);
      Send(connections[card].stream, status);
    }
  }
}

}  // namespace load

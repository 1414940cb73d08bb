// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/card/discovery.h"

#include <array>
#include <asio.hpp>

#include "cardsim/base/wire.h"

namespace cardsim {

using asio::ip::udp;

struct CDiscovery::SSocket {
  explicit SSocket(asio::io_context& io) : udpSocket(io) {}
  udp::socket udpSocket;
  udp::endpoint from;
  std::array<std::uint8_t, 2048> buffer{};
};

CDiscovery::CDiscovery(CReactor& signallingReactor, ProbeHandler handler)
    : reactor(signallingReactor),
      onProbe(std::move(handler)),
      socket(std::make_unique<SSocket>(signallingReactor.Io())) {}

CDiscovery::~CDiscovery() = default;

void CDiscovery::Open(const std::string& broadcastAddress) {
  udp::socket& udpSocket = socket->udpSocket;
  udpSocket.open(udp::v4());
  udpSocket.set_option(udp::socket::reuse_address(true));
  asio::error_code failed;
  udpSocket.bind({asio::ip::make_address_v4(broadcastAddress), kCardPort}, failed);
  if (failed) {
    // Systems that bind no broadcast address give broadcasts to the wildcard address.
    udpSocket.bind({asio::ip::address_v4::any(), kCardPort});
  }
  BeginReceive();
}

void CDiscovery::Close() {
  asio::error_code ignored;
  socket->udpSocket.close(ignored);
}

void CDiscovery::BeginReceive() {
  socket->udpSocket.async_receive_from(asio::buffer(socket->buffer), socket->from,
                                       [this](const asio::error_code& error, std::size_t bytes) {
                                         if (error == asio::error::operation_aborted) {
                                           return;
                                         }
                                         if (!error && IsProbe(ByteView(socket->buffer.data(), bytes))) {
                                           onProbe(socket->from.address().to_string());
                                         }
                                         BeginReceive();
                                       });
}

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/audio_socket.h"

#include <array>
#include <asio.hpp>

#include "cardsim/base/wire.h"

namespace cardsim {
namespace {

using asio::ip::udp;

constexpr std::size_t kReceiveBytes = 2048;
constexpr int kSocketBuffer = 4 * 1024 * 1024;

}  // namespace

struct CAudioSocket::SSocket {
  explicit SSocket(asio::io_context& io) : udpSocket(io) {}
  udp::socket udpSocket;
  udp::endpoint library;
  std::array<std::uint8_t, kReceiveBytes> buffer{};
};

CAudioSocket::CAudioSocket(CReactor& audioReactor, ProbeHandler probeHandler, ReplyHandler replyHandler)
    : reactor(audioReactor),
      onProbe(std::move(probeHandler)),
      onReply(std::move(replyHandler)),
      socket(std::make_unique<SSocket>(audioReactor.Io())) {}

CAudioSocket::~CAudioSocket() = default;

void CAudioSocket::Open(const std::string& address) {
  reactor.Call([&] {
    udp::socket fresh(reactor.Io(), udp::v4());
    asio::error_code ignored;  // small buffers are no failure
    fresh.set_option(asio::socket_base::receive_buffer_size(kSocketBuffer), ignored);
    fresh.set_option(asio::socket_base::send_buffer_size(kSocketBuffer), ignored);
    fresh.set_option(asio::socket_base::broadcast(true));
    // The library's own listener for announcements has the wildcard address of the same port.
    fresh.set_option(asio::socket_base::reuse_address(true));
    fresh.bind({asio::ip::make_address_v4(address), kCardPort});
    fresh.non_blocking(true);
    socket->udpSocket = std::move(fresh);
    BeginReceive();
  });
}

void CAudioSocket::Close() {
  reactor.Call([&] {
    asio::error_code ignored;
    socket->udpSocket.close(ignored);
  });
}

void CAudioSocket::SetLibrary(const std::string& address, std::uint16_t port) {
  reactor.Call([&] { socket->library = {asio::ip::make_address_v4(address), port}; });
}

void CAudioSocket::SendToLibrary(ByteView packet) {
  asio::error_code ignored;  // a packet that the system does not take is one the library misses
  socket->udpSocket.send_to(asio::buffer(packet.data(), packet.size()), socket->library, 0, ignored);
}

void CAudioSocket::PostToLibrary(Bytes packet) {
  reactor.Post([this, packet = std::move(packet)] { SendToLibrary(packet); });
}

void CAudioSocket::SendTo(Bytes datagram, const std::string& address, std::uint16_t port) {
  reactor.Post([this, datagram = std::move(datagram), address, port] { Write(datagram, address, port); });
}

void CAudioSocket::Write(ByteView datagram, const std::string& address, std::uint16_t port) {
  asio::error_code ignored;
  const auto to = asio::ip::make_address_v4(address, ignored);
  if (!ignored) {
    socket->udpSocket.send_to(asio::buffer(datagram.data(), datagram.size()), {to, port}, 0, ignored);
  }
}

void CAudioSocket::BeginReceive() {
  socket->udpSocket.async_wait(udp::socket::wait_read, [this](const asio::error_code& error) {
    if (error) {
      return;  // closed, or replaced by another socket
    }
    TakeDatagrams();
    BeginReceive();
  });
}

void CAudioSocket::TakeDatagrams() {
  for (;;) {
    udp::endpoint from;
    asio::error_code error;
    const std::size_t bytes = socket->udpSocket.receive_from(asio::buffer(socket->buffer), from, 0, error);
    // The answer of a library port that has closed concerns an earlier packet of ours.
    if (error == asio::error::connection_refused || error == asio::error::connection_reset) {
      continue;
    }
    if (error) {
      return;
    }
    const ByteView datagram(socket->buffer.data(), bytes);
    if (IsProbe(datagram)) {
      onProbe(from.address().to_string());
    } else if (from.address() == socket->library.address()) {
      onReply(datagram);
    }
  }
}

}  // namespace cardsim

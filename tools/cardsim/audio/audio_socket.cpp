// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/audio_socket.h"

#include "common/wire.h"

namespace cardsim {
namespace {

constexpr std::size_t kSocketBuffer = std::size_t{4} * 1024 * 1024;

}  // namespace

CAudioSocket::CAudioSocket(IReactor& audioReactor, ProbeHandler probeHandler, ReplyHandler replyHandler)
    : reactor(audioReactor), onProbe(std::move(probeHandler)), onReply(std::move(replyHandler)) {}

void CAudioSocket::Open(const std::string& address) {
  reactor.Call([&] {
    const SDatagramOptions options{
        .local = ToEndpoint(address, kCardPort), .broadcast = true, .bufferBytes = kSocketBuffer};
    socket = reactor.OpenDatagrams(options,
                                   [this](ByteView datagram, const SEndpoint& from) { TakeDatagram(datagram, from); });
  });
}

void CAudioSocket::Close() {
  reactor.Call([&] { socket.reset(); });
}

void CAudioSocket::SetLibrary(const std::string& address, std::uint16_t port) {
  reactor.Call([&] { library = ToEndpoint(address, port); });
}

void CAudioSocket::SendToLibrary(ByteView packet) {
  Write(packet, library);
}

void CAudioSocket::PostToLibrary(Bytes packet) {
  reactor.Post([this, packet = std::move(packet)] { SendToLibrary(packet); });
}

void CAudioSocket::SendTo(Bytes datagram, const std::string& address, std::uint16_t port) {
  reactor.Post([this, datagram = std::move(datagram), address, port] {
    if (const auto to = ParseIpv4(address)) {
      Write(datagram, {*to, port});
    }
  });
}

void CAudioSocket::Write(ByteView datagram, const SEndpoint& to) {
  if (socket != nullptr) {
    socket->SendTo(datagram, to);
  }
}

void CAudioSocket::TakeDatagram(ByteView datagram, const SEndpoint& from) {
  if (IsProbe(datagram)) {
    onProbe(FormatIpv4(from.address));
  } else if (from.address == library.address) {
    onReply(datagram);
  }
}

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/base/asio_sockets.h"

#include <array>
#include <utility>

namespace cardsim {
namespace {

using asio::ip::tcp;
using asio::ip::udp;

constexpr std::size_t kDatagramBytes = 2048;
constexpr std::size_t kReadBytes = 8192;

template <class Endpoint>
SEndpoint FromAsio(const Endpoint& endpoint) {
  return {endpoint.address().to_v4().to_uint(), endpoint.port()};
}

template <class Endpoint>
Endpoint ToAsio(const SEndpoint& endpoint) {
  return {asio::ip::address_v4(endpoint.address), endpoint.port};
}

class CAsioDatagrams : public IDatagrams {
 public:
  CAsioDatagrams(asio::io_context& io, const SDatagramOptions& options, Handler handler)
      : state(std::make_shared<SState>(io, std::move(handler))) {
    udp::socket& socket = state->socket;
    if (options.bufferBytes > 0) {
      asio::error_code ignored;  // small buffers are no failure
      const int bytes = static_cast<int>(options.bufferBytes);
      socket.set_option(asio::socket_base::receive_buffer_size(bytes), ignored);
      socket.set_option(asio::socket_base::send_buffer_size(bytes), ignored);
    }
    if (options.broadcast) {
      socket.set_option(asio::socket_base::broadcast(true));
    }
    // The library's own listener for announcements has the wildcard address of the same port.
    socket.set_option(asio::socket_base::reuse_address(true));
    socket.bind(ToAsio<udp::endpoint>(options.local));
    socket.non_blocking(true);
    BeginReceive(state);
  }
  CAsioDatagrams(const CAsioDatagrams&) = delete;
  CAsioDatagrams& operator=(const CAsioDatagrams&) = delete;
  ~CAsioDatagrams() override {
    asio::error_code ignored;
    state->isOpen = false;
    state->socket.close(ignored);
  }

  void SendTo(ByteView datagram, const SEndpoint& to) override {
    asio::error_code ignored;  // a packet that the system does not take is one the library misses
    state->socket.send_to(asio::buffer(datagram.data(), datagram.size()), ToAsio<udp::endpoint>(to), 0, ignored);
  }

 private:
  struct SState {
    SState(asio::io_context& io, Handler datagramHandler)
        : socket(io, udp::v4()), handler(std::move(datagramHandler)) {}
    udp::socket socket;
    const Handler handler;
    bool isOpen = true;
    std::array<std::uint8_t, kDatagramBytes> buffer{};
  };

  static void BeginReceive(const std::shared_ptr<SState>& open) {
    open->socket.async_wait(udp::socket::wait_read, [open](const asio::error_code& error) {
      if (error) {
        return;
      }
      TakeDatagrams(*open);
      if (open->isOpen) {
        BeginReceive(open);
      }
    });
  }

  static void TakeDatagrams(SState& open) {
    while (open.isOpen) {
      udp::endpoint from;
      asio::error_code error;
      const std::size_t bytes = open.socket.receive_from(asio::buffer(open.buffer), from, 0, error);
      // The answer of a library port that has closed concerns an earlier packet of ours.
      if (error == asio::error::connection_refused || error == asio::error::connection_reset) {
        continue;
      }
      if (error) {
        return;
      }
      open.handler(ByteView(open.buffer.data(), bytes), FromAsio(from));
    }
  }

  const std::shared_ptr<SState> state;
};

class CAsioStream : public IStream {
 public:
  explicit CAsioStream(tcp::socket connection) : state(std::make_shared<SState>(std::move(connection))) {}
  CAsioStream(const CAsioStream&) = delete;
  CAsioStream& operator=(const CAsioStream&) = delete;
  ~CAsioStream() override {
    asio::error_code ignored;
    state->isOpen = false;
    state->socket.shutdown(tcp::socket::shutdown_both, ignored);
    state->socket.close(ignored);
  }

  void Read(SHandlers handlers) override {
    state->handlers = std::move(handlers);
    BeginRead(state);
  }

  void Write(Bytes bytes, Written written) override {
    const auto whole = std::make_shared<const Bytes>(std::move(bytes));
    asio::async_write(state->socket, asio::buffer(*whole),
                      [open = state, whole, done = std::move(written)](const asio::error_code& error, std::size_t) {
                        if (open->isOpen) {
                          done(!error);
                        }
                      });
  }

  void HalfClose() override {
    asio::error_code ignored;
    state->socket.shutdown(tcp::socket::shutdown_send, ignored);
  }

  void Reset() override {
    asio::error_code ignored;
    state->isOpen = false;
    state->socket.set_option(tcp::socket::linger(true, 0), ignored);
    state->socket.close(ignored);
  }

 private:
  struct SState {
    explicit SState(tcp::socket connection) : socket(std::move(connection)) {}
    tcp::socket socket;
    SHandlers handlers;
    bool isOpen = true;
    std::array<std::uint8_t, kReadBytes> buffer{};
  };

  static void BeginRead(const std::shared_ptr<SState>& open) {
    open->socket.async_read_some(asio::buffer(open->buffer), [open](const asio::error_code& error, std::size_t bytes) {
      if (!open->isOpen) {
        return;
      }
      if (error) {
        open->handlers.ended();
        return;
      }
      open->handlers.data(ByteView(open->buffer.data(), bytes));
      if (open->isOpen) {
        BeginRead(open);
      }
    });
  }

  const std::shared_ptr<SState> state;
};

class CAsioListener : public IListener {
 public:
  CAsioListener(asio::io_context& io, const SEndpoint& local, Handler handler)
      : state(std::make_shared<SState>(io, std::move(handler))) {
    const auto endpoint = ToAsio<tcp::endpoint>(local);
    state->acceptor.open(endpoint.protocol());
    state->acceptor.set_option(tcp::acceptor::reuse_address(true));
    state->acceptor.bind(endpoint);
    state->acceptor.listen();
    BeginAccept(state);
  }
  CAsioListener(const CAsioListener&) = delete;
  CAsioListener& operator=(const CAsioListener&) = delete;
  ~CAsioListener() override {
    asio::error_code ignored;
    state->isOpen = false;
    state->acceptor.close(ignored);
  }

 private:
  struct SState {
    SState(asio::io_context& io, Handler acceptHandler) : acceptor(io), handler(std::move(acceptHandler)) {}
    tcp::acceptor acceptor;
    const Handler handler;
    bool isOpen = true;
  };

  static void BeginAccept(const std::shared_ptr<SState>& open) {
    open->acceptor.async_accept([open](const asio::error_code& error, tcp::socket socket) {
      if (!open->isOpen) {
        return;
      }
      asio::error_code failed = error;
      const auto peer = failed ? tcp::endpoint() : socket.remote_endpoint(failed);
      if (!failed) {
        socket.set_option(tcp::no_delay(true), failed);
        open->handler(std::make_unique<CAsioStream>(std::move(socket)), FromAsio(peer));
      }
      if (open->isOpen) {
        BeginAccept(open);
      }
    });
  }

  const std::shared_ptr<SState> state;
};

}  // namespace

std::unique_ptr<IDatagrams> OpenAsioDatagrams(asio::io_context& io, const SDatagramOptions& options,
                                              IDatagrams::Handler handler) {
  return std::make_unique<CAsioDatagrams>(io, options, std::move(handler));
}

std::unique_ptr<IListener> ListenWithAsio(asio::io_context& io, const SEndpoint& local, IListener::Handler handler) {
  return std::make_unique<CAsioListener>(io, local, std::move(handler));
}

}  // namespace cardsim

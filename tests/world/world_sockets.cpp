// SPDX-License-Identifier: GPL-2.0-only
#include "world/world_sockets.h"

#include <system_error>
#include <utility>

#include "platform/simulated/network.h"

namespace world {
namespace {

using cardsim::ByteView;
using cardsim::SEndpoint;
using zelk::SIpv4Endpoint;
using zelk::sim::Address;
using zelk::sim::CWorld;

uint8_t PartOf(uint32_t address, int shift) {
  return static_cast<uint8_t>(address >> shift);
}

SIpv4Endpoint ToWorld(const SEndpoint& endpoint) {
  const uint32_t a = endpoint.address;
  return {Address(PartOf(a, 24), PartOf(a, 16), PartOf(a, 8), PartOf(a, 0)), endpoint.port};
}

SEndpoint FromWorld(const SIpv4Endpoint& endpoint) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(&endpoint.address.networkOrder);
  uint32_t address = 0;
  for (int i = 0; i < 4; ++i) {
    address = address << 8 | bytes[i];
  }
  return {address, endpoint.port};
}

void Require(bool isOpen) {
  if (!isOpen) {
    throw std::system_error(std::make_error_code(std::errc::address_in_use));
  }
}

class CWorldDatagrams : public cardsim::IDatagrams {
 public:
  CWorldDatagrams(CWorld& world, const SEndpoint& local, Handler handler)
      : socket(world.Network().OpenDatagrams(
            ToWorld(local), [handler = std::move(handler)](std::span<const uint8_t> data, SIpv4Endpoint from) {
              handler(data, FromWorld(from));
            })) {
    Require(socket != nullptr);
  }

  void SendTo(ByteView datagram, const SEndpoint& to) override { socket->SendTo(datagram, ToWorld(to)); }

 private:
  const std::unique_ptr<zelk::sim::CDatagrams> socket;
};

// Every machine of a world hears broadcasts at its own endpoints.
class CDeafDatagrams : public cardsim::IDatagrams {
 public:
  void SendTo(ByteView, const SEndpoint&) override {}
};

class CWorldStream : public cardsim::IStream {
 public:
  CWorldStream(CWorld& world, std::shared_ptr<zelk::sim::CStream> stream)
      : state(std::make_shared<SState>(SState{world, std::move(stream), {}, true})) {}
  CWorldStream(const CWorldStream&) = delete;
  CWorldStream& operator=(const CWorldStream&) = delete;
  ~CWorldStream() override {
    if (std::exchange(state->isOpen, false)) {
      state->stream->Close();
    }
  }

  void Read(SHandlers handlers) override {
    state->handlers = std::move(handlers);
    const auto end = [open = state] {
      if (open->isOpen && !std::exchange(open->hasEnded, true)) {
        open->handlers.ended();
      }
    };
    state->stream->OnData([open = state](std::span<const uint8_t> data) {
      if (open->isOpen) {
        open->handlers.data(data);
      }
    });
    state->stream->OnEnd(end);
    state->stream->OnReset(end);
  }

  void Write(cardsim::Bytes bytes, Written written) override {
    state->stream->Write(bytes);
    state->world.After(0, [open = state, done = std::move(written)] {
      if (open->isOpen) {
        done(true);
      }
    });
  }

  void HalfClose() override { state->stream->HalfClose(); }

  void Reset() override {
    if (std::exchange(state->isOpen, false)) {
      state->stream->Reset();
    }
  }

 private:
  struct SState {
    CWorld& world;
    std::shared_ptr<zelk::sim::CStream> stream;
    SHandlers handlers;
    bool isOpen;
    bool hasEnded = false;
  };
  const std::shared_ptr<SState> state;
};

class CWorldListener : public cardsim::IListener {
 public:
  CWorldListener(CWorld& world, const SEndpoint& local, Handler handler)
      : listener(world.Network().Listen(
            ToWorld(local), [&world, handler = std::move(handler)](std::shared_ptr<zelk::sim::CStream> stream) {
              const SEndpoint peer = FromWorld(stream->Peer());
              handler(std::make_unique<CWorldStream>(world, std::move(stream)), peer);
            })) {
    Require(listener != nullptr);
  }

 private:
  const std::unique_ptr<zelk::sim::CListener> listener;
};

}  // namespace

std::unique_ptr<cardsim::IDatagrams> OpenWorldDatagrams(CWorld& world, const SEndpoint& local,
                                                        cardsim::IDatagrams::Handler handler) {
  if (local.address == cardsim::ParseIpv4(kBroadcastAddress)) {
    return std::make_unique<CDeafDatagrams>();
  }
  return std::make_unique<CWorldDatagrams>(world, local, std::move(handler));
}

std::unique_ptr<cardsim::IListener> ListenInWorld(CWorld& world, const SEndpoint& local,
                                                  cardsim::IListener::Handler handler) {
  return std::make_unique<CWorldListener>(world, local, std::move(handler));
}

}  // namespace world

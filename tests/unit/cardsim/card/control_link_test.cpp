// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/card/control_link.h"

#include <gtest/gtest.h>

#include <asio.hpp>
#include <atomic>
#include <future>

#include "cardsim/base/asio_reactor.h"
#include "common/wire.h"

namespace cardsim::test {
namespace {

using asio::ip::tcp;
using namespace std::chrono_literals;

class ControlLink : public testing::Test {
 protected:
  void SetUp() override {
    reactor.Start();
    reactor.Call([this] { link.Listen("127.0.1.1"); });
    client.connect({asio::ip::make_address_v4("127.0.1.1"), kCardPort});
    connected.get_future().wait();
  }
  void TearDown() override {
    reactor.Call([this] {
      link.StopListening();
      link.Drop();
    });
    reactor.Stop();
  }

  void Send(const Bytes& bytes) {
    reactor.Call([&] { link.Send(bytes); });
  }
  // What one read gives.
  Bytes ReadSome() {
    Bytes buffer(1000);
    asio::error_code failed;
    buffer.resize(client.read_some(asio::buffer(buffer), failed));
    error = failed;
    return buffer;
  }

  CAsioReactor reactor;
  std::promise<void> connected;
  std::atomic<int> disconnects{0};
  std::promise<SControlMessage> message;
  CControlLink link{
      reactor, CControlLink::SHandlers{[this](const std::string&) { connected.set_value(); }, [this] { ++disconnects; },
                                       [this](SControlMessage&& came) { message.set_value(came); }}};
  asio::io_context io;
  tcp::socket client{io};
  asio::error_code error;
};

TEST_F(ControlLink, SendsWholeMessagesUntilPiecesAreAskedFor) {
  Send({1, 2, 3, 4, 5});
  EXPECT_EQ(ReadSome(), (Bytes{1, 2, 3, 4, 5}));
  reactor.Call([this] { link.SetPieces(2, 30ms); });
  Send({1, 2, 3, 4, 5});
  EXPECT_EQ(ReadSome(), (Bytes{1, 2}));
  EXPECT_EQ(ReadSome(), (Bytes{3, 4}));
  EXPECT_EQ(ReadSome(), (Bytes{5}));
  reactor.Call([this] { link.SetPieces(0, 0ms); });
  Send({6, 7, 8});
  EXPECT_EQ(ReadSome(), (Bytes{6, 7, 8}));
}

TEST_F(ControlLink, WhatWasHeldGoesOutInOneWriteInOrder) {
  reactor.Call([this] { link.Hold(true); });
  Send({1, 2});
  Send({3});
  reactor.Call([this] { link.Hold(false); });
  EXPECT_EQ(ReadSome(), (Bytes{1, 2, 3}));
  Send({4});
  EXPECT_EQ(ReadSome(), (Bytes{4}));
}

TEST_F(ControlLink, AResetIsAnErrorForThePeer) {
  reactor.Call([this] { link.Reset(); });
  EXPECT_EQ(ReadSome(), Bytes());
  EXPECT_EQ(error, asio::error::connection_reset);
  EXPECT_EQ(disconnects, 1);
}

TEST_F(ControlLink, AfterAHalfCloseThePeerReadsTheEndAndIsStillHeard) {
  reactor.Call([this] { link.HalfClose(); });
  Send({1});
  EXPECT_EQ(ReadSome(), Bytes());
  EXPECT_EQ(error, asio::error::eof);
  EXPECT_EQ(disconnects, 0);
  asio::write(client, asio::buffer(Bytes{0xFF, 0x01}));
  auto came = message.get_future();
  ASSERT_EQ(came.wait_for(5s), std::future_status::ready);
  EXPECT_TRUE(came.get().Is(EControlType::kInformationRequest));
}

}  // namespace
}  // namespace cardsim::test

// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "loopback.h"
#include "native_tcp_peer.h"
#include "native_worker.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "platform/socket.h"

// Streams: connecting, the orderly end, resets.
namespace zelk {
namespace {

class TcpSocket : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(peer.IsReady());
    ASSERT_TRUE(socket.OpenTcp());
  }

  void Join() {
    ASSERT_EQ(socket.Connect({kLoopback, peer.Port()}), CSocket::EConnect::kDone);
    ASSERT_TRUE(peer.Accept());
    ASSERT_TRUE(socket.SetNonBlocking(true));
  }

  int ReceiveWhenReady() {
    EXPECT_EQ(socket.WaitReadable(kGenerousMs), EWait::kReady);
    return socket.Receive(bytes.data(), bytes.size());
  }

  CTcpPeer peer;
  CSocket socket;
  std::array<char, 16> bytes{};
};

TEST_F(TcpSocket, ABlockingConnectIsDoneWhenItReturns) {
  Join();
  peer.Send("hi");
  EXPECT_EQ(ReceiveWhenReady(), 2);
  EXPECT_EQ(socket.Send("there", 5), 5);
}

TEST_F(TcpSocket, APendingConnectEndsWritable) {
  ASSERT_TRUE(socket.SetNonBlocking(true));
  const CSocket::EConnect result = socket.Connect({kLoopback, peer.Port()});
  EXPECT_NE(result, CSocket::EConnect::kFailed);
  EXPECT_EQ(socket.WaitWritable(kGenerousMs), EWait::kReady);
  ASSERT_TRUE(peer.Accept());
  EXPECT_EQ(socket.Send("x", 1), 1);
}

TEST_F(TcpSocket, ARefusedPendingConnectIsAnErrorOfTheWait) {
  peer.StopListening();
  ASSERT_TRUE(socket.SetNonBlocking(true));
  if (socket.Connect({kLoopback, peer.Port()}) == CSocket::EConnect::kPending) {
    EXPECT_EQ(socket.WaitWritable(kGenerousMs), EWait::kError);
  }
  EXPECT_EQ(socket.WaitWritable(kGenerousMs), EWait::kError);
  EXPECT_EQ(socket.Receive(bytes.data(), bytes.size()), -1);
  EXPECT_EQ(socket.Receive(bytes.data(), bytes.size()), -1);
}

TEST_F(TcpSocket, ARefusedBlockingConnectFails) {
  peer.StopListening();
  EXPECT_EQ(socket.Connect({kLoopback, peer.Port()}), CSocket::EConnect::kFailed);
}

TEST_F(TcpSocket, ReceiveFailsWhileNothingHasCome) {
  Join();
  EXPECT_EQ(socket.Receive(bytes.data(), bytes.size()), -1);
  EXPECT_EQ(socket.WaitReadable(0), EWait::kTimeout);
  peer.Send("x");
  EXPECT_EQ(ReceiveWhenReady(), 1);
}

TEST_F(TcpSocket, AnOrderlyEndReadsZeroForEver) {
  Join();
  peer.Send("last");
  peer.CloseOrderly();
  EXPECT_EQ(ReceiveWhenReady(), 4);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(ReceiveWhenReady(), 0);
  }
}

TEST_F(TcpSocket, AnOrderlyEndReadsZeroAlsoAfterAResetThatFollows) {
  Join();
  peer.CloseOrderly();
  EXPECT_EQ(ReceiveWhenReady(), 0);
  for (int i = 0; i < 5; ++i) {
    socket.Send("x", 1);
    EXPECT_EQ(socket.Receive(bytes.data(), bytes.size()), 0);
  }
}

TEST_F(TcpSocket, AResetKeepsEveryReceiveFailing) {
  Join();
  peer.CloseWithReset();
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(ReceiveWhenReady(), -1);
  }
}

TEST_F(TcpSocket, AResetThatASendMeetsFirstKeepsEveryReceiveFailing) {
  Join();
  peer.CloseWithReset();
  ASSERT_EQ(socket.WaitReadable(kGenerousMs), EWait::kReady);
  EXPECT_EQ(socket.Send("x", 1), -1);
  EXPECT_EQ(socket.Send("x", 1), -1);  // and no signal ends the process
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(ReceiveWhenReady(), -1);
  }
}

TEST_F(TcpSocket, AResetThatAWritableWaitMeetsFirstKeepsEveryReceiveFailing) {
  Join();
  peer.CloseWithReset();
  ASSERT_EQ(socket.WaitReadable(kGenerousMs), EWait::kReady);
  EXPECT_EQ(socket.WaitWritable(kGenerousMs), EWait::kError);
  EXPECT_EQ(ReceiveWhenReady(), -1);
  EXPECT_EQ(ReceiveWhenReady(), -1);
}

TEST_F(TcpSocket, OpeningAgainForgetsTheReset) {
  Join();
  peer.CloseWithReset();
  EXPECT_EQ(ReceiveWhenReady(), -1);
  ASSERT_TRUE(socket.OpenTcp());
  Join();
  peer.Send("new");
  EXPECT_EQ(ReceiveWhenReady(), 3);
}

TEST_F(TcpSocket, ANonBlockingSendStopsWhenTheBufferIsFull) {
  Join();
  const std::vector<char> block(1 << 20, 'x');
  int sent = 0;
  size_t total = 0;
  while ((sent = socket.Send(block.data(), block.size())) > 0 && total < (size_t{1} << 30)) {
    total += static_cast<size_t>(sent);
  }
  EXPECT_EQ(sent, -1);
  EXPECT_GT(total, 0U);
  EXPECT_EQ(socket.WaitWritable(0), EWait::kTimeout);
}

TEST_F(TcpSocket, ABlockedSendIsReleasedByAClose) {
  Join();
  ASSERT_TRUE(socket.SetNonBlocking(false));
  const std::vector<char> huge(64 << 20, 'x');
  int sent = 0;
  CWorker sender([&] { sent = socket.Send(huge.data(), huge.size()); });
  socket.Close();
  sender.join();
  EXPECT_LT(sent, static_cast<int>(huge.size()));
}

TEST_F(TcpSocket, ACloseEndsTheConnectionForThePeer) {
  Join();
  socket.Close();
  EXPECT_EQ(socket.WaitReadable(kWaitForever), EWait::kError);
  EXPECT_EQ(socket.Receive(bytes.data(), bytes.size()), -1);
}

}  // namespace
}  // namespace zelk

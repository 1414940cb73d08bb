// SPDX-License-Identifier: GPL-2.0-only
#include "platform/socket.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "loopback.h"
#include "native_worker.h"
#include "platform/clock.h"
#include "platform/event.h"

namespace zelk {
namespace {

bool OpenBound(CSocket& socket, SIpv4Address address = kLoopback, uint16_t port = 0) {
  return socket.OpenUdp() && socket.Bind({address, port});
}

TEST(ClosedSocket, EveryCallFails) {
  CSocket socket;
  std::array<char, 8> bytes{};
  SIpv4Endpoint from;
  EXPECT_FALSE(socket.IsOpen());
  EXPECT_FALSE(socket.SetNonBlocking(true));
  EXPECT_FALSE(socket.SetReceiveBuffer(1000));
  EXPECT_FALSE(socket.SetSendBuffer(1000));
  EXPECT_FALSE(socket.SetNoDelay(true));
  EXPECT_FALSE(socket.SetBroadcast(true));
  EXPECT_FALSE(socket.SetSharedPort());
  EXPECT_FALSE(socket.SetHoldsBack(true));
  EXPECT_FALSE(socket.Bind({kLoopback, 0}));
  EXPECT_EQ(socket.LocalPort(), 0);
  EXPECT_EQ(socket.Connect({kLoopback, 1}), CSocket::EConnect::kFailed);
  EXPECT_EQ(socket.WaitReadable(kWaitForever), EWait::kError);
  EXPECT_EQ(socket.WaitWritable(kWaitForever), EWait::kError);
  EXPECT_EQ(socket.Send("x", 1), -1);
  EXPECT_EQ(socket.Receive(bytes.data(), bytes.size()), -1);
  EXPECT_EQ(socket.SendTo("x", 1, {kLoopback, 9}), -1);
  EXPECT_EQ(socket.ReceiveFromWaiting(bytes.data(), bytes.size(), from), -1);
  EXPECT_EQ(socket.ReceiveFrom(bytes.data(), bytes.size(), from), -1);
  socket.Close();
}

TEST(UdpSocket, ADatagramArrivesWithItsSender) {
  CSocket left;
  CSocket right;
  ASSERT_TRUE(OpenBound(left));
  ASSERT_TRUE(OpenBound(right));
  ASSERT_NE(left.LocalPort(), 0);
  EXPECT_EQ(left.SendTo("hello", 5, {kLoopback, right.LocalPort()}), 5);
  ASSERT_EQ(right.WaitReadable(kGenerousMs), EWait::kReady);
  std::array<char, 32> bytes{};
  SIpv4Endpoint from;
  ASSERT_EQ(right.ReceiveFrom(bytes.data(), bytes.size(), from), 5);
  EXPECT_EQ(std::string(bytes.data(), 5), "hello");
  EXPECT_EQ(from.address, kLoopback);
  EXPECT_EQ(from.port, left.LocalPort());
}

TEST(UdpSocket, AnEmptyDatagramReadsZeroAndALongOneIsCut) {
  CSocket socket;
  ASSERT_TRUE(OpenBound(socket));
  const SIpv4Endpoint self{kLoopback, socket.LocalPort()};
  std::array<char, 4> bytes{};
  SIpv4Endpoint from;
  EXPECT_EQ(socket.SendTo("", 0, self), 0);
  EXPECT_EQ(socket.SendTo("abcdefgh", 8, self), 8);
  EXPECT_EQ(socket.ReceiveFrom(bytes.data(), bytes.size(), from), 0);
  EXPECT_EQ(socket.ReceiveFrom(bytes.data(), bytes.size(), from), 4);
  EXPECT_EQ(std::string(bytes.data(), 4), "abcd");
}

TEST(UdpSocket, NonBlockingCallsFailInsteadOfWaiting) {
  CSocket socket;
  ASSERT_TRUE(OpenBound(socket));
  ASSERT_TRUE(socket.SetNonBlocking(true));
  std::array<char, 4> bytes{};
  SIpv4Endpoint from;
  EXPECT_EQ(socket.ReceiveFrom(bytes.data(), bytes.size(), from), -1);
  EXPECT_EQ(socket.WaitReadable(0), EWait::kTimeout);
  EXPECT_EQ(socket.WaitWritable(0), EWait::kReady);
}

TEST(UdpSocket, AWaitEndsWithItsTime) {
  CSocket socket;
  ASSERT_TRUE(OpenBound(socket));
  const uint32_t before = TickMs();
  EXPECT_EQ(socket.WaitReadable(20), EWait::kTimeout);
  EXPECT_GE(TickMs() - before, 19U);
}

TEST(UdpSocket, ABlockingReceiveWaitsForTheDatagram) {
  CSocket socket;
  ASSERT_TRUE(OpenBound(socket));
  CSocket sender;
  ASSERT_TRUE(sender.OpenUdp());
  std::array<char, 4> bytes{};
  SIpv4Endpoint from;
  int received = -2;
  CWorker reader([&] { received = socket.ReceiveFrom(bytes.data(), bytes.size(), from); });
  EXPECT_EQ(sender.SendTo("abc", 3, {kLoopback, socket.LocalPort()}), 3);
  reader.join();
  EXPECT_EQ(received, 3);
}

TEST(UdpSocket, ATakenPortIsRefused) {
  CSocket first;
  CSocket second;
  ASSERT_TRUE(OpenBound(first));
  EXPECT_FALSE(OpenBound(second, kLoopback, first.LocalPort()));
}

TEST(UdpSocket, ASpecificBindBesideAWildcardGetsItsDatagrams) {
  CSocket wildcard;
  CSocket specific;
  ASSERT_TRUE(wildcard.OpenUdp());
  ASSERT_TRUE(wildcard.SetSharedPort());
  ASSERT_TRUE(wildcard.Bind({kAnyAddress, 0}));
  ASSERT_TRUE(specific.OpenUdp());
  ASSERT_TRUE(specific.SetSharedPort());
  ASSERT_TRUE(specific.Bind({kLoopback, wildcard.LocalPort()}));
  CSocket sender;
  ASSERT_TRUE(sender.OpenUdp());
  ASSERT_EQ(sender.SendTo("x", 1, {kLoopback, wildcard.LocalPort()}), 1);
  EXPECT_EQ(specific.WaitReadable(kGenerousMs), EWait::kReady);
  EXPECT_EQ(wildcard.WaitReadable(0), EWait::kTimeout);
}

TEST(UdpSocket, SendingToABroadcastAddressNeedsTheOption) {
  CSocket socket;
  ASSERT_TRUE(OpenBound(socket));
  const SIpv4Endpoint all{Address("127.255.255.255"), 9};
  EXPECT_EQ(socket.SendTo("x", 1, all), -1);
  ASSERT_TRUE(socket.SetBroadcast(true));
  EXPECT_EQ(socket.SendTo("x", 1, all), 1);
}

TEST(UdpSocket, BufferSizesAreAccepted) {
  CSocket socket;
  ASSERT_TRUE(OpenBound(socket));
  EXPECT_TRUE(socket.SetReceiveBuffer(4'194'304));
  EXPECT_TRUE(socket.SetSendBuffer(4'194'304));
}

// Every system grants 100 kB and 50 kB; of 4 MB it may grant less, and says so.
TEST(UdpSocket, TellsTheBufferSizesThatTheSystemGranted) {
  CSocket socket;
  EXPECT_EQ(socket.ReceiveBuffer(), 0);
  EXPECT_EQ(socket.SendBuffer(), 0);
  ASSERT_TRUE(OpenBound(socket));
  EXPECT_TRUE(socket.SetReceiveBuffer(100'000));
  EXPECT_TRUE(socket.SetSendBuffer(50'000));
  EXPECT_EQ(socket.ReceiveBuffer(), 100'000);
  EXPECT_EQ(socket.SendBuffer(), 50'000);
  EXPECT_TRUE(socket.SetReceiveBuffer(4'194'304));
  EXPECT_TRUE(socket.SetSendBuffer(4'194'304));
  EXPECT_GE(socket.ReceiveBuffer(), 100'000);
  EXPECT_LE(socket.ReceiveBuffer(), 4'194'304);
  EXPECT_GE(socket.SendBuffer(), 100'000);
  EXPECT_LE(socket.SendBuffer(), 4'194'304);
}

TEST(NoDelay, IsForStreamsOnly) {
  CSocket stream;
  ASSERT_TRUE(stream.OpenTcp());
  EXPECT_TRUE(stream.SetNoDelay(true));
  EXPECT_TRUE(stream.SetNoDelay(false));
  CSocket datagrams;
  ASSERT_TRUE(datagrams.OpenUdp());
  EXPECT_FALSE(datagrams.SetNoDelay(true));
}

enum class EBlockedIn { kWaitReadable, kReceiveFrom, kReceiveFromWaiting };

class BlockedSocket : public testing::TestWithParam<EBlockedIn> {
 protected:
  // True when the call came to an end by failing.
  static bool Fails(CSocket& socket) {
    char byte = 0;
    SIpv4Endpoint from;
    switch (GetParam()) {
      case EBlockedIn::kWaitReadable:
        return socket.WaitReadable(kWaitForever) == EWait::kError;
      case EBlockedIn::kReceiveFrom:
        return socket.ReceiveFrom(&byte, 1, from) == -1;
      case EBlockedIn::kReceiveFromWaiting:
        return socket.ReceiveFromWaiting(&byte, 1, from) == -1;
    }
    return false;
  }
};

TEST_P(BlockedSocket, IsReleasedByACloseFromAnotherThread) {
  CSocket socket;
  ASSERT_TRUE(OpenBound(socket));
  std::vector<CWorker> blocked;
  std::atomic<int> failed{0};
  for (int i = 0; i < 3; ++i) {
    blocked.emplace_back([&] { failed += Fails(socket) ? 1 : 0; });
  }
  socket.Close();
  for (CWorker& thread : blocked) {
    thread.join();
  }
  EXPECT_EQ(failed, 3);
  EXPECT_FALSE(socket.IsOpen());
  EXPECT_TRUE(OpenBound(socket));  // and can be used again
}

INSTANTIATE_TEST_SUITE_P(Calls, BlockedSocket,
                         testing::Values(EBlockedIn::kWaitReadable, EBlockedIn::kReceiveFrom,
                                         EBlockedIn::kReceiveFromWaiting));

TEST(UdpSocket, AWaitingReceiveWaitsOnANonBlockingSocketToo) {
  CSocket socket;
  CSocket sender;
  ASSERT_TRUE(OpenBound(socket) && OpenBound(sender) && socket.SetNonBlocking(true));
  CEvent received;
  CWorker reader([&] {
    std::array<char, 8> bytes{};
    SIpv4Endpoint from;
    EXPECT_EQ(socket.ReceiveFromWaiting(bytes.data(), bytes.size(), from), 2);
    EXPECT_EQ(from.port, sender.LocalPort());
    EXPECT_EQ(from.address, kLoopback);
    EXPECT_EQ(bytes[1], 'b');
    EXPECT_EQ(socket.ReceiveFromWaiting(bytes.data(), bytes.size(), from), 0);  // an empty datagram is no end
    received.Set();
    EXPECT_EQ(socket.ReceiveFromWaiting(bytes.data(), bytes.size(), from), -1);
  });
  EXPECT_EQ(sender.SendTo("ab", 2, {kLoopback, socket.LocalPort()}), 2);
  EXPECT_EQ(sender.SendTo("", 0, {kLoopback, socket.LocalPort()}), 0);
  EXPECT_TRUE(received.WaitFor(kGenerousMs));
  socket.Close();
  reader.join();
}

TEST(UdpSocket, AWaitingReceiveIsForDatagramsOnly) {
  CSocket stream;
  ASSERT_TRUE(stream.OpenTcp());
  char byte = 0;
  SIpv4Endpoint from;
  EXPECT_EQ(stream.ReceiveFromWaiting(&byte, 1, from), -1);
}

// Here the thread is certainly inside the wait: it has just passed a datagram on.
TEST(UdpSocket, ACloseReachesAThreadInTheMiddleOfItsLoop) {
  CSocket socket;
  ASSERT_TRUE(OpenBound(socket));
  CEvent looping;
  CWorker reader([&] {
    std::array<char, 8> bytes{};
    SIpv4Endpoint from;
    while (socket.WaitReadable(kWaitForever) == EWait::kReady) {
      if (socket.ReceiveFrom(bytes.data(), bytes.size(), from) > 0) {
        looping.Set();
      }
    }
  });
  CSocket sender;
  ASSERT_TRUE(sender.OpenUdp());
  ASSERT_EQ(sender.SendTo("x", 1, {kLoopback, socket.LocalPort()}), 1);
  EXPECT_TRUE(looping.WaitFor(kGenerousMs));
  socket.Close();
  reader.join();
}

TEST(UdpSocket, CallsOfManyThreadsSurviveClosingAndOpening) {
  CSocket socket;
  CSocket sink;
  ASSERT_TRUE(OpenBound(sink));
  ASSERT_TRUE(sink.SetNonBlocking(true));
  const SIpv4Endpoint target{kLoopback, sink.LocalPort()};
  std::atomic<bool> stop{false};
  std::vector<CWorker> users;
  for (int i = 0; i < 4; ++i) {
    users.emplace_back([&, i] {
      std::array<char, 8> bytes{};
      SIpv4Endpoint from;
      while (!stop) {
        if (i == 0) {
          socket.WaitReadable(1);
        } else if (i == 1) {
          socket.SendTo("x", 1, target);
        } else if (i == 2) {
          socket.ReceiveFrom(bytes.data(), bytes.size(), from);
        } else {
          socket.ReceiveFromWaiting(bytes.data(), bytes.size(), from);
        }
      }
    });
  }
  for (int turn = 0; turn < 50; ++turn) {
    EXPECT_TRUE(socket.OpenUdp());  // not bound here: the sending thread's first datagram binds it by itself
    socket.SetNonBlocking(turn % 2 == 0);
    socket.Close();
  }
  stop = true;
  for (CWorker& user : users) {
    user.join();
  }
}

TEST(UdpSocket, TheDestructorWaitsForTheThreadsThatItReleases) {
  for (int turn = 0; turn < 50; ++turn) {
    auto socket = std::make_unique<CSocket>();
    ASSERT_TRUE(OpenBound(*socket));
    CEvent entering;
    CWorker waiter([&entering, inside = socket.get()] {
      entering.Set();
      inside->WaitReadable(kWaitForever);
    });
    entering.Wait();
    socket->Close();
    waiter.join();
    socket.reset();
  }
}

}  // namespace
}  // namespace zelk

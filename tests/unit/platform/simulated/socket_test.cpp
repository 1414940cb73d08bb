// SPDX-License-Identifier: GPL-2.0-only
#include "platform/socket.h"

#include <array>
#include <memory>

#include "in_world.h"
#include "platform/clock.h"
#include "platform/native_socket.h"
#include "platform/simulated/network.h"
#include "platform/thread.h"

namespace zelk::sim {
namespace {

TEST(SimulatedSocket, ACloseReleasesEveryWait) {
  CWorld world({});
  RunToEnd(world, [&] {
    CSocket socket;
    socket.OpenUdp();
    socket.Bind({kLibraryAddress, 9000});
    EWait waited = EWait::kReady;
    int received = 0;
    CThread waiter;
    CThread receiver;
    waiter.Start("waiter", [&] { waited = socket.WaitReadable(kWaitForever); });
    receiver.Start("receiver", [&] {
      std::array<char, 10> bytes{};
      SIpv4Endpoint from;
      received = socket.ReceiveFromWaiting(bytes.data(), bytes.size(), from);
    });
    SleepMs(10);
    socket.Close();
    EXPECT_TRUE(waiter.JoinFor(10));
    EXPECT_TRUE(receiver.JoinFor(10));
    EXPECT_EQ(waited, EWait::kError);
    EXPECT_EQ(received, -1);
  });
}

TEST(SimulatedSocket, ACallOnOneThatWasClosedEndsTheRun) {
  CWorld world({});
  const SOutcome outcome = world.Run([] {
    SNativeSocket socket;
    EXPECT_TRUE(socket.Open(SOCK_DGRAM));
    const SNativeSocket kept = socket;
    socket.Close();
    (void)kept.Wait(EInterest::kRead, 0);
  });
  EXPECT_EQ(outcome.verdict, EVerdict::kFailed);
  EXPECT_NE(outcome.report.find("which is closed"), std::string::npos) << outcome.report;
}

TEST(SimulatedSocket, OneThatIsClosedUnderATaskEndsTheRun) {
  CWorld world({});
  const SOutcome outcome = world.Run([] {
    SNativeSocket socket;
    EXPECT_TRUE(socket.Open(SOCK_DGRAM));
    CThread waiter;
    waiter.Start("waiter", [&] { (void)socket.Wait(EInterest::kRead, kWaitForever); });
    SleepMs(10);
    socket.Close();
  });
  EXPECT_EQ(outcome.verdict, EVerdict::kFailed);
  EXPECT_NE(outcome.report.find("closed while a task is in a call"), std::string::npos) << outcome.report;
}

TEST(SimulatedSocket, AFullLineHoldsUpDatagramsOfASmallSendBuffer) {
  CWorld world({});
  world.Network().SetLink(kCard.address, {.bytesPerSecond = 100'000, .queueBytes = 1'000'000});
  RunToEnd(world, [&] {
    CSocket socket;
    socket.OpenUdp();
    socket.SetSendBuffer(2000);
    socket.SetNonBlocking(true);
    const std::array<char, 500> bytes{};
    int sent = 0;
    while (socket.SendTo(bytes.data(), bytes.size(), kCard) > 0) {
      ++sent;
    }
    EXPECT_GE(sent, 3);
    EXPECT_LE(sent, 5);
    EXPECT_EQ(socket.WaitWritable(0), EWait::kTimeout);
    EXPECT_EQ(socket.WaitWritable(1000), EWait::kReady);
    EXPECT_EQ(socket.SendTo(bytes.data(), bytes.size(), kCard), 500);
  });
}

TEST(SimulatedSocket, BuffersAreGrantedUpToTheLimit) {
  CWorld world({});
  world.Network().SetBufferLimit(100'000);
  RunToEnd(world, [] {
    CSocket socket;
    socket.OpenUdp();
    EXPECT_TRUE(socket.SetReceiveBuffer(50'000));
    EXPECT_EQ(socket.ReceiveBuffer(), 50'000);
    EXPECT_TRUE(socket.SetSendBuffer(500'000));
    EXPECT_EQ(socket.SendBuffer(), 100'000);
    EXPECT_STRNE(ReceiveBufferLimit(), "");
    EXPECT_STRNE(SendBufferLimit(), "");
  });
}

TEST(SimulatedSocket, OutsideOfAWorldThereIsNone) {
  CSocket socket;
  EXPECT_FALSE(socket.OpenUdp());
}

}  // namespace
}  // namespace zelk::sim

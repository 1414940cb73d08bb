// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/net/fabric.h"

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "in_world.h"
#include "platform/clock.h"
#include "platform/socket.h"

namespace zelk::sim {
namespace {

constexpr SIpv4Address kNear = Address(10, 1, 0, 9);
constexpr SIpv4Address kSecondNear = Address(10, 1, 0, 10);
constexpr SIpv4Address kFar = Address(10, 2, 0, 9);
constexpr uint16_t kPort = 8150;

class Fabric : public testing::Test {
 protected:
  // Notes what comes in.
  std::unique_ptr<CDatagrams> Note(SIpv4Address address) {
    return world.Network().OpenDatagrams({address, kPort},
                                         [this, address](std::span<const uint8_t> data, SIpv4Endpoint from) {
                                           noted.push_back({address, from.address, TextOf(data)});
                                         });
  }

  struct SNoted {
    SIpv4Address at;
    SIpv4Address from;
    std::string text;
  };
  CWorld world{{}};
  std::vector<SNoted> noted;
};

TEST_F(Fabric, ABroadcastReachesEveryMachineOfItsNetworkOnce) {
  const auto one = Note(kNear);
  const auto other = Note(kSecondNear);
  const auto far = Note(kFar);
  RunToEnd(world, [&] {
    CSocket socket;
    socket.OpenUdp();
    EXPECT_EQ(socket.SendTo("x", 1, {Address(10, 1, 0, 255), kPort}), -1);
    socket.SetBroadcast(true);
    EXPECT_EQ(socket.SendTo("x", 1, {Address(10, 1, 0, 255), kPort}), 1);
    SleepMs(10);
  });
  ASSERT_EQ(noted.size(), 2U);
  EXPECT_EQ(noted[0].at, kNear);
  EXPECT_EQ(noted[1].at, kSecondNear);
  EXPECT_EQ(noted[0].from, kLibraryAddress);
}

TEST_F(Fabric, AnAnnouncementReachesWildcardBinds) {
  const auto card = Note(kNear);
  RunToEnd(world, [&] {
    CSocket wildcard;
    CSocket specific;
    for (CSocket* socket : {&wildcard, &specific}) {
      socket->OpenUdp();
      socket->SetSharedPort();
    }
    wildcard.Bind({kAnyAddress, kPort});
    specific.Bind({kLibraryAddress, kPort});
    card->SendTo(BytesOf("here"), {Address(255, 255, 255, 255), kPort});
    EXPECT_EQ(wildcard.WaitReadable(100), EWait::kReady);
    EXPECT_EQ(specific.WaitReadable(100), EWait::kTimeout);
  });
  EXPECT_TRUE(noted.empty());
}

TEST_F(Fabric, OutsideMachinesReachEachOther) {
  const auto one = Note(kNear);
  const auto other = Note(kFar);
  RunToEnd(world, [&] {
    one->SendTo(BytesOf("over"), {kFar, kPort});
    SleepMs(10);
  });
  ASSERT_EQ(noted.size(), 1U);
  EXPECT_EQ(noted[0].at, kFar);
  EXPECT_EQ(noted[0].text, "over");
}

TEST_F(Fabric, ASocketMayGoWhileSomethingIsUnderWayToIt) {
  auto one = Note(kNear);
  RunToEnd(world, [&] {
    CSocket socket;
    socket.OpenUdp();
    socket.SendTo("x", 1, {kNear, kPort});
    one.reset();
    SleepMs(10);
  });
  EXPECT_TRUE(noted.empty());
}

TEST_F(Fabric, AHandlerMayDestroyItsOwnSocket) {
  std::unique_ptr<CDatagrams> own;
  int calls = 0;
  own = world.Network().OpenDatagrams({kNear, kPort}, [&](std::span<const uint8_t>, SIpv4Endpoint) {
    ++calls;
    own.reset();
  });
  RunToEnd(world, [&] {
    CSocket socket;
    socket.OpenUdp();
    socket.SendTo("x", 1, {kNear, kPort});
    socket.SendTo("x", 1, {kNear, kPort});
    SleepMs(10);
  });
  EXPECT_EQ(calls, 1);
}

TEST_F(Fabric, AConnectIsAcceptedRefusedStalledOrNeverHeard) {
  const auto listener = world.Network().Listen({kNear, kPort}, [](const std::shared_ptr<CStream>&) {});
  const auto connect = [&](SIpv4Address address, uint16_t port) {
    CSocket socket;
    socket.OpenTcp();
    socket.SetNonBlocking(true);
    EXPECT_EQ(socket.Connect({address, port}), CSocket::EConnect::kPending);
    return socket.WaitWritable(2000);
  };
  RunToEnd(world, [&] {
    EXPECT_EQ(connect(kNear, kPort), EWait::kReady);
    EXPECT_EQ(connect(kNear, kPort + 1), EWait::kError);
    EXPECT_EQ(connect(kFar, kPort), EWait::kTimeout);
    listener->SetAnswer(CListener::EAnswer::kRefuse);
    EXPECT_EQ(connect(kNear, kPort), EWait::kError);
    listener->SetAnswer(CListener::EAnswer::kStall);
    EXPECT_EQ(connect(kNear, kPort), EWait::kTimeout);
  });
}

TEST_F(Fabric, AConnectThatNobodyAnswersFailsAfterMinutes) {
  RunToEnd(world, [&] {
    CSocket socket;
    socket.OpenTcp();
    EXPECT_EQ(socket.Connect({kFar, kPort}), CSocket::EConnect::kFailed);
    EXPECT_GT(world.NowUs(), 60 * kUsPerSecond);
    EXPECT_LT(world.NowUs(), 200 * kUsPerSecond);
  });
}

}  // namespace
}  // namespace zelk::sim

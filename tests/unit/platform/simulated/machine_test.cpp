// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/net/machine.h"

#include <cerrno>
#include <utility>

#include "in_world.h"

namespace zelk::sim {
namespace {

class Machine : public testing::Test {
 protected:
  SSocket& Open(bool isStream = false) { return *machine.Find(machine.Open(isStream)); }
  void Deliver(size_t bytes, SIpv4Endpoint to, bool isBroadcast) {
    Datagram datagram = machine.pool.Make(Bytes(bytes), {Address(10, 1, 0, 9), 1}, to);
    datagram->isBroadcast = isBroadcast;
    machine.Deliver(std::move(datagram));
  }

  CWorld world{{}};
  CMachine machine{world};
};

TEST_F(Machine, KnowsItsAddressesAndTheirNetworks) {
  EXPECT_TRUE(machine.IsOwn(kLibraryAddress));
  EXPECT_TRUE(machine.IsOwn(Address(127, 3, 2, 1)));
  EXPECT_FALSE(machine.IsOwn(Address(10, 1, 0, 2)));
  EXPECT_EQ(machine.BroadcastAdapter(Address(10, 1, 0, 255))->address, kLibraryAddress);
  EXPECT_EQ(machine.BroadcastAdapter(Address(255, 255, 255, 255))->address, kLibraryAddress);
  EXPECT_EQ(machine.BroadcastAdapter(Address(10, 1, 0, 254)), nullptr);
  EXPECT_EQ(machine.SourceFor(Address(10, 1, 0, 7)), kLibraryAddress);
  EXPECT_EQ(machine.SourceFor(Address(192, 168, 0, 7)), kLibraryAddress);
  EXPECT_EQ(machine.SourceFor(Address(127, 0, 0, 5)), Address(127, 0, 0, 5));
}

TEST_F(Machine, APortHasOneSocketUnlessBothShareIt) {
  EXPECT_EQ(machine.Bind(Open(), {kAnyAddress, 8150}), 0);
  EXPECT_EQ(machine.Bind(Open(), {kLibraryAddress, 8150}), EADDRINUSE);
  EXPECT_EQ(machine.Bind(Open(true), {kLibraryAddress, 8150}), 0);
  SSocket& one = Open();
  SSocket& other = Open();
  one.mayShare = other.mayShare = true;
  EXPECT_EQ(machine.Bind(one, {kAnyAddress, 9000}), 0);
  EXPECT_EQ(machine.Bind(other, {kLibraryAddress, 9000}), 0);
  EXPECT_EQ(machine.Bind(other, {kLibraryAddress, 9001}), EINVAL);
  EXPECT_EQ(machine.Bind(Open(), {Address(10, 1, 0, 2), 0}), EADDRNOTAVAIL);
}

TEST_F(Machine, APortThatAnotherProgramHasIsRefusedUntilItIsFree) {
  machine.TakePort({kAnyAddress, 8150}, false);
  EXPECT_EQ(machine.Bind(Open(), {kLibraryAddress, 8150}), EADDRINUSE);
  machine.FreePort({kAnyAddress, 8150}, false);
  EXPECT_EQ(machine.Bind(Open(), {kLibraryAddress, 8150}), 0);
}

TEST_F(Machine, PortZeroTakesAFreeOneEachTime) {
  SSocket& one = Open();
  SSocket& other = Open();
  EXPECT_EQ(machine.Bind(one, {kLibraryAddress, 0}), 0);
  EXPECT_EQ(machine.Bind(other, {kLibraryAddress, 0}), 0);
  EXPECT_NE(one.local.port, 0);
  EXPECT_NE(one.local.port, other.local.port);
}

TEST_F(Machine, ADatagramGoesToTheMostSpecificBind) {
  SSocket& wildcard = Open();
  SSocket& specific = Open();
  wildcard.mayShare = specific.mayShare = true;
  machine.Bind(wildcard, {kAnyAddress, 9000});
  machine.Bind(specific, {kLibraryAddress, 9000});
  Deliver(1, {kLibraryAddress, 9000}, false);
  EXPECT_EQ(specific.datagrams.size(), 1U);
  Deliver(1, {kLoopback, 9000}, false);
  EXPECT_EQ(wildcard.datagrams.size(), 1U);
  Deliver(1, {Address(10, 1, 0, 255), 9000}, true);
  EXPECT_EQ(wildcard.datagrams.size(), 2U);
  EXPECT_EQ(specific.datagrams.size(), 1U);
  SSocket& later = Open();
  later.mayShare = true;
  machine.Bind(later, {kAnyAddress, 9000});
  Deliver(1, {kLibraryAddress, 9000}, false);
  EXPECT_EQ(specific.datagrams.size(), 2U);
}

TEST_F(Machine, AFullReceiveBufferLosesWhatComes) {
  SSocket& socket = Open();
  socket.receiveBytes = 250;
  machine.Bind(socket, {kLibraryAddress, 9000});
  for (int i = 0; i < 5; ++i) {
    Deliver(100, {kLibraryAddress, 9000}, false);
  }
  EXPECT_EQ(socket.datagrams.size(), 2U);
}

TEST_F(Machine, DatagramsComeBackToThePool) {
  SSocket& socket = Open();
  machine.Bind(socket, {kLibraryAddress, 9000});
  const SDatagram* const first = machine.pool.Make({}, {}, {}).get();
  Deliver(1, {kLibraryAddress, 9000}, false);
  EXPECT_EQ(socket.datagrams.front().get(), first);
  EXPECT_NE(machine.pool.Make({}, {}, {}).get(), first);
  socket.datagrams.clear();
  EXPECT_EQ(machine.pool.Make({}, {}, {}).get(), first);
}

TEST_F(Machine, OpenSocketsAreCounted) {
  EXPECT_EQ(machine.OpenSockets(), 0U);
  const int32_t one = machine.Open(true);
  machine.Open(false);
  EXPECT_EQ(machine.OpenSockets(), 2U);
  machine.Close(one);
  EXPECT_EQ(machine.OpenSockets(), 1U);
}

}  // namespace
}  // namespace zelk::sim

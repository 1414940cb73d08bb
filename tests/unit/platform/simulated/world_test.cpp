// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/world.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/event.h"
#include "platform/mutex.h"
#include "platform/simulated/network.h"
#include "platform/socket.h"
#include "platform/thread.h"

namespace zelk::sim {
namespace {

TEST(World, TimeJumpsToWhatIsDueNext) {
  CWorld world({});
  uint32_t slept = 0;
  const SOutcome outcome = world.Run([&] {
    const uint32_t start = TickMs();
    SleepMs(600'000);
    slept = TickMs() - start;
  });
  EXPECT_EQ(EVerdict::kEnded, outcome.verdict) << outcome.report;
  EXPECT_EQ(600'000U, slept);
  EXPECT_GT(20U, outcome.steps);
}

TEST(World, TasksThatWaitForEachOtherAreADeadlock) {
  CWorld world({});
  CMutex first;
  CMutex second;
  CEvent taken;
  const SOutcome outcome = world.Run([&] {
    CThread other;
    other.Start("other", [&] {
      const CScopedLock hold(second);
      taken.Set();
      const CScopedLock both(first);
    });
    const CScopedLock hold(first);
    taken.Wait();
    const CScopedLock both(second);
  });
  EXPECT_EQ(EVerdict::kDeadlock, outcome.verdict);
  EXPECT_NE(std::string::npos, outcome.report.find("task 1 'main' waits for mutex")) << outcome.report;
  EXPECT_NE(std::string::npos, outcome.report.find("held by task 2 'other'")) << outcome.report;
}

TEST(World, StreamsAndDatagramsReachTheOutside) {
  CWorld world({});
  const SIpv4Endpoint card{Address(10, 1, 0, 9), 8150};
  std::unique_ptr<CDatagrams> datagrams = world.Network().OpenDatagrams(
      card, [&](std::span<const uint8_t> data, SIpv4Endpoint from) { datagrams->SendTo(data, from); });
  const auto listener = world.Network().Listen(card, [&](std::shared_ptr<CStream> stream) {
    stream->OnData([stream](std::span<const uint8_t> data) { stream->Write(data); });
    stream->OnEnd([stream] { stream->Close(); });
  });
  std::string echoed;
  int got = 0;
  const SOutcome outcome = world.Run([&] {
    CSocket udp;
    char buffer[16];
    SIpv4Endpoint from;
    udp.OpenUdp();
    udp.SendTo("abc", 3, card);
    got = udp.ReceiveFrom(buffer, sizeof buffer, from);
    CSocket tcp;
    tcp.OpenTcp();
    EXPECT_EQ(CSocket::EConnect::kDone, tcp.Connect(card));
    tcp.Send("hello", 5);
    const int length = tcp.Receive(buffer, sizeof buffer);
    echoed.assign(buffer, static_cast<size_t>(std::max(length, 0)));
  });
  EXPECT_EQ(EVerdict::kEnded, outcome.verdict) << outcome.report;
  EXPECT_EQ(3, got);
  EXPECT_EQ("hello", echoed);
}

}  // namespace
}  // namespace zelk::sim

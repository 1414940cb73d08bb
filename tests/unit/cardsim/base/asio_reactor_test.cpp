// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/base/asio_reactor.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>

namespace cardsim::test {
namespace {

using namespace std::chrono_literals;

// Both kinds: one that waits for what comes, and one that looks for it by turns.
class AsioReactor : public testing::TestWithParam<std::chrono::microseconds> {
 protected:
  CAsioReactor reactor{GetParam()};
};

TEST_P(AsioReactor, RunsWorkOnAThreadOfItsOwn) {
  reactor.Start();
  std::thread::id ran;
  reactor.Call([&] { ran = std::this_thread::get_id(); });
  EXPECT_NE(ran, std::thread::id());
  EXPECT_NE(ran, std::this_thread::get_id());
}

TEST_P(AsioReactor, ATimerIsNeverEarly) {
  reactor.Start();
  std::promise<IReactor::Time> rang;
  const auto begun = reactor.Now();
  reactor.After(5ms, [&] { rang.set_value(reactor.Now()); });
  auto when = rang.get_future();
  ASSERT_EQ(when.wait_for(5s), std::future_status::ready);
  EXPECT_GE(when.get() - begun, 5ms);
}

TEST_P(AsioReactor, HandsOverADatagramThatComes) {
  reactor.Start();
  std::promise<Bytes> came;
  const SEndpoint place = ToEndpoint("127.0.0.1", 5854);
  std::unique_ptr<IDatagrams> receiver;
  std::unique_ptr<IDatagrams> sender;
  reactor.Call([&] {
    receiver = reactor.OpenDatagrams({.local = place}, [&](ByteView datagram, const SEndpoint&) {
      came.set_value(Bytes(datagram.begin(), datagram.end()));
    });
    sender = reactor.OpenDatagrams({.local = ToEndpoint("127.0.0.1", 5855)}, [](ByteView, const SEndpoint&) {});
    sender->SendTo(Bytes{1, 2, 3}, place);
  });
  auto datagram = came.get_future();
  ASSERT_EQ(datagram.wait_for(5s), std::future_status::ready);
  EXPECT_EQ(datagram.get(), (Bytes{1, 2, 3}));
  reactor.Call([&] {
    receiver.reset();
    sender.reset();
  });
}

TEST_P(AsioReactor, WorksInPlaceOnceItHasStopped) {
  reactor.Start();
  reactor.Stop();
  std::thread::id ran;
  reactor.Call([&] { ran = std::this_thread::get_id(); });
  EXPECT_EQ(ran, std::this_thread::get_id());
}

INSTANTIATE_TEST_SUITE_P(Kinds, AsioReactor, testing::Values(0us, 200us),
                         [](const auto& kind) { return std::string(kind.param == 0us ? "Waits" : "Looks"); });

}  // namespace
}  // namespace cardsim::test

// SPDX-License-Identifier: GPL-2.0-only
#include "connection_fixture.h"

namespace zelk::sim {
namespace {

TEST_F(Connection, EachEndSeesTheOthersOrderlyEnd) {
  RunToEnd(world, [&] {
    Connect();
    stream->Write(BytesOf("last"));
    stream->HalfClose();
    EXPECT_EQ(ReceiveText(10), "last");
    std::array<char, 10> bytes{};
    EXPECT_EQ(socket.Receive(bytes.data(), bytes.size()), 0);
    EXPECT_EQ(socket.Send("still", 5), 5);
    SleepMs(10);
    EXPECT_EQ(arrived, "still");
    EXPECT_EQ(ends, 0);
    socket.Close();
    SleepMs(10);
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(resets, 0);
  });
}

TEST_F(Connection, AResetEndsWaitsAndComesAfterWhatArrivedBefore) {
  RunToEnd(world, [&] {
    Connect();
    stream->Write(BytesOf("before"));
    SleepMs(10);
    stream->Reset();
    SleepMs(10);
    EXPECT_EQ(ReceiveText(10), "before");
    std::array<char, 10> bytes{};
    EXPECT_EQ(socket.Receive(bytes.data(), bytes.size()), -1);
    EXPECT_EQ(socket.Receive(bytes.data(), bytes.size()), -1);
    EXPECT_EQ(socket.Send("x", 1), -1);
    EXPECT_EQ(socket.WaitWritable(10), EWait::kError);
  });
}

TEST_F(Connection, AnEndThatClosedAnswersDataByAReset) {
  RunToEnd(world, [&] {
    Connect();
    stream->Close();
    SleepMs(10);
    EXPECT_EQ(socket.Send("x", 1), 1);
    SleepMs(10);
    EXPECT_EQ(socket.Send("x", 1), -1);
  });
}

TEST_F(Connection, TheLibrarysCloseWithUnreadDataIsAReset) {
  RunToEnd(world, [&] {
    Connect();
    stream->Write(BytesOf("unread"));
    SleepMs(10);
    socket.Close();
    SleepMs(10);
    EXPECT_EQ(resets, 1);
    EXPECT_EQ(ends, 0);
  });
}

TEST_F(Connection, DataForASocketThatIsClosedIsAnsweredByAReset) {
  RunToEnd(world, [&] {
    Connect();
    socket.Close();
    SleepMs(10);
    EXPECT_EQ(ends, 1);
    stream->Write(BytesOf("late"));
    SleepMs(10);
    EXPECT_EQ(resets, 1);
  });
}

TEST_F(Connection, APeerThatVanishedSaysNothing) {
  RunToEnd(world, [&] {
    Connect();
    stream->Vanish(false);
    EXPECT_EQ(socket.Send("x", 1), 1);
    EXPECT_EQ(socket.WaitReadable(60'000), EWait::kTimeout);
    EXPECT_EQ(socket.WaitWritable(0), EWait::kReady);
  });
}

TEST_F(Connection, APeerThatIsBackKnowsNothingOfTheConnection) {
  RunToEnd(world, [&] {
    Connect();
    stream->Vanish(true);
    EXPECT_EQ(socket.WaitReadable(60'000), EWait::kTimeout);
    EXPECT_EQ(socket.Send("x", 1), 1);
    EXPECT_EQ(socket.WaitReadable(1000), EWait::kReady);
    std::array<char, 10> bytes{};
    EXPECT_EQ(socket.Receive(bytes.data(), bytes.size()), -1);
  });
}

TEST_F(Connection, AHandlerMayCloseResetAndReplaceItself) {
  RunToEnd(world, [&] {
    Connect();
    std::string second;
    stream->OnData([&](std::span<const uint8_t>) {
      stream->OnData([&](std::span<const uint8_t> data) {
        second = TextOf(data);
        stream->Reset();
        stream.reset();
      });
    });
    socket.Send("one", 3);
    SleepMs(10);
    socket.Send("two", 3);
    SleepMs(10);
    EXPECT_EQ(second, "two");
    EXPECT_EQ(socket.Send("x", 1), -1);
  });
}

}  // namespace
}  // namespace zelk::sim

// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/net/connection.h"

#include "connection_fixture.h"

namespace zelk::sim {
namespace {

TEST_F(Connection, StreamsLoseNothingAndKeepTheirOrder) {
  world.Network().SetLink(kCard.address, {.jitterUs = 3000, .lossPerMillion = 200'000, .partialPerMillion = 300'000});
  std::string sent;
  std::string back;
  echoes = true;
  RunToEnd(world, [&] {
    Connect();
    for (int i = 0; i < 200; ++i) {
      const std::string piece = std::to_string(i) + " ";
      sent += piece;
      EXPECT_EQ(socket.Send(piece.data(), piece.size()), static_cast<int>(piece.size()));
    }
    while (back.size() < sent.size() && socket.WaitReadable(60'000) == EWait::kReady) {
      back += ReceiveText(1000);
    }
  });
  EXPECT_EQ(arrived, sent);
  EXPECT_EQ(back, sent);
}

TEST_F(Connection, SendsAndReceivesMayMoveAPartOnly) {
  world.Network().SetLink(kCard.address, {.partialPerMillion = 1'000'000});
  RunToEnd(world, [&] {
    Connect();
    socket.SetNonBlocking(true);
    EXPECT_LT(socket.Send("0123456789", 10), 10);
    stream->Write(BytesOf("0123456789"));
    EXPECT_EQ(socket.WaitReadable(100), EWait::kReady);
    EXPECT_LT(ReceiveText(10).size(), 10U);
  });
}

TEST_F(Connection, ASendWaitsForAPeerThatDoesNotRead) {
  RunToEnd(world, [&] {
    Connect();
    socket.SetSendBuffer(10'000);
    stream->StopReading(true);
    const std::string large(1'000'000, 'x');
    socket.SetNonBlocking(true);
    int sent = 0;
    for (int moved = 0; moved >= 0; moved = socket.Send(large.data(), 4000)) {
      sent += moved;
      SleepMs(1);
    }
    EXPECT_LT(sent, 200'000);
    EXPECT_EQ(socket.WaitWritable(1000), EWait::kTimeout);
    EXPECT_EQ(arrived.size(), 0U);
    stream->StopReading(false);
    EXPECT_EQ(socket.WaitWritable(1000), EWait::kReady);
    SleepMs(100);
    EXPECT_EQ(arrived.size(), static_cast<size_t>(sent));
  });
}

TEST_F(Connection, ThePeerKeepsWhatALibraryThatDoesNotReadHasNoRoomFor) {
  RunToEnd(world, [&] {
    Connect();
    socket.SetReceiveBuffer(10'000);
    for (int i = 0; i < 100; ++i) {
      stream->Write(BytesOf(std::string(1000, 'x')));
    }
    SleepMs(1000);
    EXPECT_EQ(stream->Unsent(), 90'000U);
    size_t got = 0;
    while (got < 100'000 && socket.WaitReadable(1000) == EWait::kReady) {
      got += ReceiveText(1000).size();
    }
    EXPECT_EQ(got, 100'000U);
    EXPECT_EQ(stream->Unsent(), 0U);
  });
}

TEST_F(Connection, ACutHoldsUpAndWhatWasSentComesAfterwards) {
  RunToEnd(world, [&] {
    Connect();
    world.Network().SetLink(kCard.address, {.isCut = true});
    socket.Send("through", 7);
    stream->Write(BytesOf("back"));
    SleepMs(5000);
    EXPECT_EQ(arrived, "");
    EXPECT_EQ(socket.WaitReadable(0), EWait::kTimeout);
    world.Network().SetLink(kCard.address, {});
    SleepMs(10'000);
    EXPECT_EQ(arrived, "through");
    EXPECT_EQ(ReceiveText(10), "back");
  });
}

TEST_F(Connection, ACutThatLastsEndsTheConnectionAtBothEnds) {
  RunToEnd(world, [&] {
    Connect();
    world.Network().SetLink(kCard.address, {.isCut = true});
    socket.Send("x", 1);
    stream->Write(BytesOf("y"));
    std::array<char, 10> bytes{};
    EXPECT_EQ(socket.Receive(bytes.data(), bytes.size()), -1);
    EXPECT_GT(world.NowUs(), 10 * 60 * kUsPerSecond);
    SleepMs(3'600'000);
    EXPECT_EQ(resets, 1);
  });
}

}  // namespace
}  // namespace zelk::sim

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <memory>
#include <string>

#include "in_world.h"
#include "platform/clock.h"
#include "platform/simulated/network.h"
#include "platform/socket.h"

namespace zelk::sim {

// A socket of the library and the outside's end of its connection.
class Connection : public testing::Test {
 protected:
  Connection() {
    listener = world.Network().Listen(kCard, [this](const std::shared_ptr<CStream>& accepted) {
      stream = accepted;
      stream->OnData([this](std::span<const uint8_t> data) {
        arrived += TextOf(data);
        if (echoes) {
          stream->Write(data);
        }
      });
      stream->OnEnd([this] { ++ends; });
      stream->OnReset([this] { ++resets; });
    });
  }

  void Connect() {
    ASSERT_TRUE(socket.OpenTcp());
    ASSERT_EQ(socket.Connect(kCard), CSocket::EConnect::kDone);
    ASSERT_NE(stream, nullptr);
  }

  std::string ReceiveText(size_t most) {
    std::string text(most, '\0');
    const int got = socket.Receive(text.data(), most);
    text.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return text;
  }

  CWorld world{{}};
  CSocket socket;
  std::unique_ptr<CListener> listener;
  std::shared_ptr<CStream> stream;
  bool echoes = false;
  std::string arrived;
  int ends = 0;
  int resets = 0;
};

}  // namespace zelk::sim

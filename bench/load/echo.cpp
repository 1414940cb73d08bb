// SPDX-License-Identifier: GPL-2.0-only

// The least that anybody could do with a card's packets: send each one back under a header of one's own. One thread and
// socket a card, on ports that count up. Usage: load_echo polling|blocking ADDRESS PORT CARDS   (until its input ends)
#include <fcntl.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "load/sockets.h"

namespace {

// recvfrom of a blocking socket waits by itself; of the other the wait is a call of its own.
ssize_t Receive(int descriptor, bool polls, std::array<uint8_t, 2048>& packet, sockaddr_in& sender) {
  for (;;) {
    socklen_t length = sizeof sender;
    const ssize_t received =
        recvfrom(descriptor, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&sender), &length);
    if (received >= 0 || !polls) {
      return received;
    }
    pollfd polled{descriptor, POLLIN, 0};
    poll(&polled, 1, -1);
  }
}

void Echo(int descriptor, bool polls) {
  std::array<uint8_t, 2048> packet{};
  sockaddr_in sender{};
  for (;;) {
    const ssize_t received = Receive(descriptor, polls, packet, sender);
    if (received < static_cast<ssize_t>(load::kHeaderBytes)) {
      continue;
    }
    // Counted from 0, as a library does; a packet that was lost leaves a gap.
    load::WriteHeader(packet.data(), load::SequenceOf(packet.data()) - 1);
    sendto(descriptor, packet.data(), static_cast<size_t>(received), 0, reinterpret_cast<const sockaddr*>(&sender),
           sizeof sender);
  }
}

void Run(bool polls, const std::string& address, uint16_t port, int cards) {
  for (int card = 0; card < cards; ++card) {
    const int descriptor = load::OpenSocket(SOCK_DGRAM, address, static_cast<uint16_t>(port + card));
    if (polls) {
      fcntl(descriptor, F_SETFL, O_NONBLOCK);
    }
    std::thread([descriptor, polls] { Echo(descriptor, polls); }).detach();
  }
}

}  // namespace

int main(int count, char** arguments) {
  try {
    if (count != 5) {
      std::fprintf(stderr, "usage: load_echo polling|blocking ADDRESS PORT CARDS\n");
      return 1;
    }
    Run(std::string(arguments[1]) == "polling", arguments[2], static_cast<uint16_t>(std::atoi(arguments[3])),
        std::atoi(arguments[4]));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "load_echo: %s\n", error.what());
    return 1;
  }
  std::puts("ready");
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  std::puts("{}");
  std::fflush(stdout);
  std::_Exit(0);
}

/* SPDX-License-Identifier: GPL-2.0-only */

/* Places one call and hangs up when it is connected: 0 when all of it happened within its time. */
#include <chrono>
#include <cstdio>
#include <thread>
#include <zelk/Zelk.hpp>

namespace {

constexpr std::chrono::seconds kLong{15};

bool waitFor(zelkapi::Library& library, unsigned code) {
  while (const auto event = library.events().next(kLong)) {
    if (event->channel == 0 && event->code == code) {
      return true;
    }
  }
  return false;
}

bool makeCall(zelkapi::Library& library) {
  const zelkapi::Channel channel = library.channel(0);
  while (channel.state() != ZELK_CHANNEL_READY) {
    if (!waitFor(library, ZELK_EVENT_CHANNEL_STATE)) {
      return false;
    }
  }
  channel.open();
  return channel.dial("5551234", "8001000") && waitFor(library, ZELK_EVENT_CONNECTED) &&
         channel.play(zelkapi::Digits::render("1")) && channel.hangup() && waitFor(library, ZELK_EVENT_DISCONNECTED);
}

}  // namespace

int main() {
  try {
    zelkapi::Library library;
    const bool good = makeCall(library);
    std::puts(good ? "a call was made" : "NO call was made");
    return good ? 0 : 1;
  } catch (const zelkapi::Error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}

// SPDX-License-Identifier: GPL-2.0-only

// Connects each caller to one number, over two channels. Usage: bridge NUMBER
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>
#include <string>
#include <zelk/Zelk.hpp>

namespace {

volatile std::sig_atomic_t stopped = 0;

// A channel, and what its far end says on its way to the other one: some blocks of 20 ms, as they do not come evenly.
struct Line {
  static constexpr std::uint32_t kBlocks = 16;
  static constexpr std::uint32_t kDelay = 3;

  std::atomic<Line*> peer{nullptr};  // none: not bridged
  bool waits = false;                // a caller who is not answered yet
  bool flows = false;
  std::atomic<std::uint32_t> said{0};
  std::atomic<std::uint32_t> heard{0};
  std::array<std::array<std::uint8_t, ZELK_BLOCK_BYTES>, kBlocks> sound{};
};
std::array<Line, ZELK_MAX_CHANNELS> lines;

zelkapi::Channel channelOf(const Line* line) {
  return zelkapi::Channel(static_cast<int>(line - lines.data()));
}

// These two run on a thread of the library for every channel every 20 ms: they copy a block and wait for nobody.
void onRecord(int channel, const std::uint8_t* alaw) {
  Line& line = lines[static_cast<std::size_t>(channel)];
  if (line.peer != nullptr && line.said - line.heard < Line::kBlocks) {
    std::copy_n(alaw, ZELK_BLOCK_BYTES, line.sound[line.said % Line::kBlocks].begin());
    ++line.said;
  }
}

void onPlay(int channel, std::uint8_t* alaw) {
  Line* const peer = lines[static_cast<std::size_t>(channel)].peer;
  const std::uint32_t waiting = peer != nullptr ? peer->said - peer->heard : 0;
  if (waiting >= Line::kDelay || (waiting > 0 && peer->flows)) {
    std::copy_n(peer->sound[peer->heard % Line::kBlocks].begin(), ZELK_BLOCK_BYTES, alaw);
    ++peer->heard;
    peer->flows = waiting > 1;
  }
}

// Ends the call at the other end of a bridge, which is none any more.
void part(Line& line) {
  if (Line* const peer = line.peer.exchange(nullptr)) {
    peer->peer = nullptr;
    peer->waits ? channelOf(peer).reject() : channelOf(peer).hangup();
  }
}

// The last free channel dials: the network mostly begins at the first.
void connect(zelkapi::Library& library, Line& caller, const std::string& number) {
  std::string calling = channelOf(&caller).callingNumber();
  std::cout << "channel " << channelOf(&caller).number() << ": call from " << calling << std::endl;
  calling.resize(std::min<std::size_t>(calling.find_first_not_of("0123456789*#+"), calling.size()));
  int last = library.channelCount() - 1;
  while (last >= 0 && zelkapi::Channel(last).state() != ZELK_CHANNEL_READY) {
    --last;
  }
  if (last < 0 || !zelkapi::Channel(last).dial(number, calling)) {
    channelOf(&caller).reject();
    return;
  }
  Line* const called = &lines[static_cast<std::size_t>(last)];
  std::cout << "channel " << channelOf(&caller).number() << ": dialling " << number << " on channel " << last
            << std::endl;
  for (Line* const line : {&caller, called}) {
    line->waits = line == &caller;
    line->flows = false;
    line->heard = line->said.load();
  }
  caller.peer = called;
  called->peer = &caller;
}

void handle(zelkapi::Library& library, const zelkapi::Event& event, const std::string& number) {
  Line& line = lines[static_cast<std::size_t>(event.channel)];
  Line* const peer = line.peer;
  const bool isLost = event.code == ZELK_EVENT_CHANNEL_STATE && event.param == 0 && peer != nullptr;
  if (event.code == ZELK_EVENT_INCOMING_CALL) {
    part(line);  // both ends called at once, and the call that was dialled is no more
    connect(library, line, number);
  } else if ((event.code == ZELK_EVENT_PROGRESS || event.code == ZELK_EVENT_CONNECTED) && peer && peer->waits) {
    peer->waits = false;  // there is something to hear: tones, an announcement or an answer
    channelOf(peer).answer();
  } else if (event.code == ZELK_EVENT_DISCONNECTED || isLost) {
    const std::string reason = isLost ? "trunk lost" : zelkapi::Library::causeName(event.param);
    std::cout << "channel " << event.channel << ": ended, " << reason << std::endl;
    part(line);
  }
}

void run(const std::string& number) {
  zelkapi::Library library(zelkapi::Handlers{nullptr, onRecord, onPlay});
  if (library.channelCount() == 0) {
    throw zelkapi::StartFailed("no card found");
  }
  for (const zelkapi::Channel& channel : library.channels()) {
    channel.open();
  }
  std::cout << "waiting for calls on " << library.channelCount() << " channels, Ctrl-C ends" << std::endl;
  while (stopped == 0) {
    const auto event = library.events().next(std::chrono::milliseconds(200));
    if (event && event->channel >= 0) {
      handle(library, *event, number);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string number = argc == 2 ? argv[1] : "";
  if (number.empty() || number.size() > 31 || number.find_first_not_of("0123456789*#+") != std::string::npos) {
    std::cerr << "usage: bridge NUMBER, of up to 31 digits\n";
    return 2;
  }
  std::signal(SIGINT, [](int) { stopped = 1; });
  std::signal(SIGTERM, [](int) { stopped = 1; });
  try {
    run(number);
  } catch (const std::exception& error) {
    std::cerr << "bridge: " << error.what() << '\n';
    return 1;
  }
  return 0;
}

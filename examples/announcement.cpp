// SPDX-License-Identifier: GPL-2.0-only

// Answers every call, plays a WAV file and hangs up. Usage: announcement PROMPT.wav
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>
#include <string>
#include <utility>
#include <vector>
#include <zelk/Zelk.hpp>

namespace {

volatile std::sig_atomic_t stopped = 0;

// What each channel's caller hears, on the program's own thread.
class Machine {
 public:
  Machine(const zelkapi::Library& library, std::vector<std::uint8_t> sound)
      : prompt(std::move(sound)), calls(static_cast<std::size_t>(library.channelCount())) {
    // The last samples of a play are sent after PLAY_DONE: with 20 ms of silence behind them the prompt is heard whole.
    prompt.insert(prompt.end(), ZELK_BLOCK_BYTES, zelkapi::kSilence);
  }

  void handle(const zelkapi::Event& event) {
    if (event.channel < 0) {
      std::cerr << "announcement: " << event.param << " events were lost\n";
      return;
    }
    const zelkapi::Channel channel(event.channel);
    Call& call = calls[static_cast<std::size_t>(event.channel)];
    if (event.code == ZELK_EVENT_INCOMING_CALL) {
      std::cout << "channel " << event.channel << ": call from " << channel.callingNumber() << std::endl;
      call = {true, false};
      channel.answer();
    } else if (event.code == ZELK_EVENT_CONNECTED && call.goesOn && !call.isPlaying) {
      call.isPlaying = channel.play(prompt);
      if (!call.isPlaying) {
        channel.hangup();
      }
    } else if (event.code == ZELK_EVENT_PLAY_DONE && call.isPlaying && channel.playTimeLeft().count() == 0) {
      channel.hangup();
    } else if (event.code == ZELK_EVENT_DISCONNECTED) {
      end(channel, call, zelkapi::Library::causeName(event.param));
    } else if (event.code == ZELK_EVENT_CHANNEL_STATE && event.param == 0) {
      end(channel, call, "trunk lost");
    }
  }

 private:
  struct Call {
    bool goesOn = false;
    bool isPlaying = false;
  };

  static void end(const zelkapi::Channel& channel, Call& call, const std::string& reason) {
    channel.stopPlay();  // what is left must not be heard in the next call
    if (call.goesOn) {
      std::cout << "channel " << channel.number() << ": ended, " << reason << std::endl;
    }
    call = {};
  }

  std::vector<std::uint8_t> prompt;
  std::vector<Call> calls;
};

void run(const char* path) {
  std::vector<std::uint8_t> prompt = zelkapi::WavFile::read(path);
  zelkapi::Library library;
  if (library.channelCount() == 0) {
    throw zelkapi::StartFailed("no card found");
  }
  Machine machine(library, std::move(prompt));
  for (const zelkapi::Channel& channel : library.channels()) {
    channel.open();
  }
  std::cout << "waiting for calls on " << library.channelCount() << " channels, Ctrl-C ends" << std::endl;
  while (stopped == 0) {
    if (const auto event = library.events().next(std::chrono::milliseconds(200))) {
      machine.handle(*event);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: announcement PROMPT.wav\n";
    return 2;
  }
  std::signal(SIGINT, [](int) { stopped = 1; });
  std::signal(SIGTERM, [](int) { stopped = 1; });
  try {
    run(argv[1]);
  } catch (const std::exception& error) {
    std::cerr << "announcement: " << error.what() << '\n';
    return 1;
  }
  return 0;
}

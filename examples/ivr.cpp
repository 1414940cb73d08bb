// SPDX-License-Identifier: GPL-2.0-only

// A menu for every caller. Usage: ivr FOLDER [--wait SECONDS]; the folder holds the prompts, menu.wav and six more.
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <string>
#include <utility>
#include <vector>
#include <zelk/Zelk.hpp>

namespace {

volatile std::sig_atomic_t stopped = 0;

// A digit plays a prompt, if it has one, and leads to a place, which speaks for itself.
struct Choice {
  std::string prompt;
  std::string place;
};
const std::map<std::pair<std::string, int>, Choice> kChoices{
    {{"menu", '1'}, {"hours", "menu"}},         {{"menu", '2'}, {"", "branches"}},
    {{"menu", '0'}, {"", "goodbye"}},           {{"branches", '1'}, {"north", "branches"}},
    {{"branches", '2'}, {"south", "branches"}}, {{"branches", '*'}, {"", "menu"}}};

// One caller on his way through the menus.
struct Caller {
  bool isHere = false;
  std::string place{};  // empty before he is connected
  int wrong = 0;        // entries without a good one between them
};

class Ivr {
 public:
  Ivr(const std::filesystem::path& folder, int waitSeconds)
      : silence(static_cast<std::size_t>(waitSeconds) * ZELK_SAMPLE_RATE, zelkapi::kSilence) {
    for (const char* name : {"menu", "hours", "branches", "north", "south", "wrong", "goodbye"}) {
      prompts[name] = zelkapi::WavFile::read(folder / (std::string(name) + ".wav"));
    }
  }

  void handle(const zelkapi::Event& event) {
    if (event.channel < 0) {
      std::cerr << "ivr: " << event.param << " events were lost\n";
      return;
    }
    const zelkapi::Channel channel(event.channel);
    Caller& caller = callers[event.channel];
    if (event.code == ZELK_EVENT_INCOMING_CALL) {
      std::cout << "channel " << event.channel << ": call from " << channel.callingNumber() << std::endl;
      caller = {true};
      channel.answer();
    } else if (event.code == ZELK_EVENT_CONNECTED && caller.isHere && caller.place.empty()) {
      speak(channel, caller, "menu");
    } else if (event.code == ZELK_EVENT_DTMF && !caller.place.empty() && caller.place != "goodbye") {
      enter(channel, caller, event.param);
    } else if (event.code == ZELK_EVENT_PLAY_DONE && !caller.place.empty() && channel.playTimeLeft().count() == 0) {
      timeOut(channel, caller);
    } else if (event.code == ZELK_EVENT_DISCONNECTED) {
      end(channel, caller, zelkapi::Library::causeName(event.param));
    } else if (event.code == ZELK_EVENT_CHANNEL_STATE && event.param == 0) {
      end(channel, caller, "trunk lost");
    }
  }

 private:
  // The prompt of a place, after what is played already, and silence in which an entry is waited for: its PLAY_DONE is
  // the time-out, and no clock is needed.
  void speak(const zelkapi::Channel& channel, Caller& caller, const std::string& place) {
    caller.place = caller.wrong < 3 ? place : "goodbye";
    const std::size_t wait = caller.place == "goodbye" ? std::size_t{ZELK_BLOCK_BYTES} : silence.size();
    if (!channel.play(prompts[caller.place]) || !channel.play(silence.data(), wait)) {
      channel.hangup();
    }
  }

  void enter(const zelkapi::Channel& channel, Caller& caller, int digit) {
    const auto choice = kChoices.find({caller.place, digit});
    const bool isGood = choice != kChoices.end();
    const std::string prompt = isGood ? choice->second.prompt : "wrong";
    caller.wrong = isGood ? 0 : caller.wrong + 1;
    channel.stopPlay();
    if (!prompt.empty()) {
      channel.play(prompts[prompt]);
    }
    speak(channel, caller, isGood ? choice->second.place : caller.place);
  }

  void timeOut(const zelkapi::Channel& channel, Caller& caller) {
    if (caller.place == "goodbye") {
      channel.hangup();
    } else {
      ++caller.wrong;
      speak(channel, caller, caller.place);
    }
  }

  static void end(const zelkapi::Channel& channel, Caller& caller, const std::string& reason) {
    channel.stopPlay();  // what is left must not be heard in the next call
    if (caller.isHere) {
      std::cout << "channel " << channel.number() << ": ended, " << reason << std::endl;
    }
    caller = {};
  }

  const std::vector<std::uint8_t> silence;
  std::map<std::string, std::vector<std::uint8_t>> prompts;
  std::map<int, Caller> callers;
};

void run(Ivr ivr) {
  zelkapi::Library library;
  if (library.channelCount() == 0) {
    throw zelkapi::StartFailed("no card found");
  }
  for (const zelkapi::Channel& channel : library.channels()) {
    channel.open();
  }
  std::cout << "waiting for calls on " << library.channelCount() << " channels, Ctrl-C ends" << std::endl;
  while (stopped == 0) {
    if (const auto event = library.events().next(std::chrono::milliseconds(200))) {
      ivr.handle(*event);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int wait = argc == 2 ? 5 : argc == 4 && argv[2] == std::string("--wait") ? std::atoi(argv[3]) : 0;
  if (wait < 1) {
    std::cerr << "usage: ivr FOLDER [--wait SECONDS]\n";
    return 2;
  }
  std::signal(SIGINT, [](int) { stopped = 1; });
  std::signal(SIGTERM, [](int) { stopped = 1; });
  try {
    run(Ivr(argv[1], wait));
  } catch (const std::exception& error) {
    std::cerr << "ivr: " << error.what() << '\n';
    return 1;
  }
  return 0;
}

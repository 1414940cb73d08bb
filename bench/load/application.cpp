// SPDX-License-Identifier: GPL-2.0-only

// An application for the load program. Usage: load_application LIBRARY idle|busy|calls|numbered   (until its input
// ends)
//   idle       opens nothing, plays nothing, has no callbacks
//   busy       every channel open, with a second and a half of sound queued at all times, and recorded
//   calls      busy, and in a call on every channel, dialled before and held until the end
//   numbered   busy with blocks that say where they belong, and a look at every block that is recorded
// "ready CHANNELS" when the library is started and everything is queued; a line of JSON at the end.
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "load/library.h"
#include "load/numbered.h"

namespace {

constexpr uint32_t kKeptMs = 1500;
constexpr size_t kBlocksAtOnce = 25;  // half a second
// Parts of the channels, one of which is looked after at a time: the packets do not wait for the application.
constexpr int32_t kParts = 100;
constexpr std::chrono::milliseconds kBetweenParts{5};
constexpr std::chrono::seconds kPatience{60};

// The callbacks have no other way to these.
load::CRecordCount recorded;
std::vector<load::CBlockFollower> followers;
std::atomic<uint64_t> digits{0};
std::atomic<uint64_t> playsDone{0};
std::atomic<int32_t> connected{0};
std::atomic<uint64_t> ended{0};

void ZELK_CALL OnEvent(int32_t, uint32_t event, int32_t) {
  connected += event == ZELK_EVENT_CONNECTED ? 1 : 0;
  ended += event == ZELK_EVENT_DISCONNECTED ? 1 : 0;
  digits += event == ZELK_EVENT_DTMF ? 1 : 0;
  playsDone += event == ZELK_EVENT_PLAY_DONE ? 1 : 0;
}

void ZELK_CALL OnRecord(uint32_t channel, const uint8_t* data, uint32_t length) {
  recorded.Take(channel, data, length);
}

void ZELK_CALL OnNumberedRecord(uint32_t channel, const uint8_t* data, uint32_t) {
  followers[channel].Take(data);
}

class CPlayer {
 public:
  CPlayer(const load::SLibrary& usedLibrary, bool isNumbered) : library(usedLibrary), numbered(isNumbered) {
    for (size_t i = 0; i < sound.size(); ++i) {
      sound[i] = static_cast<uint8_t>(i * 37 % 251);
    }
  }

  // Half a second for every channel of this part that has less than it should.
  void Refill(int32_t part) {
    for (int32_t channel = part; channel < library.GetChannelCount(); channel += kParts) {
      while (library.PlayTimeLeft(channel) < kKeptMs) {
        Play(channel);
      }
    }
  }

 private:
  void Play(int32_t channel) {
    uint32_t& number = numbers[static_cast<size_t>(channel)];
    for (size_t block = 0; numbered && block < kBlocksAtOnce; ++block) {
      load::WriteBlock({load::EDirection::kFromLibrary, static_cast<uint16_t>(channel), number++},
                       &sound[block * load::kBlockBytes]);
    }
    library.PlayBuffer(channel, sound.data(), static_cast<uint32_t>(sound.size()));
  }

  const load::SLibrary& library;
  const bool numbered;
  std::array<uint32_t, ZELK_MAX_CHANNELS> numbers{};
  std::array<uint8_t, kBlocksAtOnce * load::kBlockBytes> sound{};
};

void Report(int32_t channels) {
  load::SBlockCounts sum;
  for (int32_t channel = 0; !followers.empty() && channel < channels; ++channel) {
    sum.Add(followers[static_cast<size_t>(channel)].counts);
  }
  const auto wide = [](uint64_t value) { return static_cast<unsigned long long>(value); };
  std::printf("{\"recorded\": %llu, \"digits\": %llu, \"plays_done\": %llu, \"calls_ended\": %llu, \"heard\": %s}\n",
              wide(recorded.Blocks()), wide(digits), wide(playsDone), wide(ended), load::Text(sum).c_str());
  std::fflush(stdout);
}

template <typename Condition>
void WaitFor(const char* what, Condition isMet) {
  for (const auto begun = std::chrono::steady_clock::now(); !isMet(); std::this_thread::sleep_for(kBetweenParts)) {
    if (std::chrono::steady_clock::now() - begun > kPatience) {
      throw std::runtime_error(std::string("in vain for ") + what);
    }
  }
}

void Dial(const load::SLibrary& library) {
  const int32_t channels = library.GetChannelCount();
  for (int32_t channel = 0; channel < channels; ++channel) {
    WaitFor("READY", [&] {
      return library.GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) == static_cast<uint32_t>(ZELK_CHANNEL_READY);
    });
  }
  for (int32_t channel = 0; channel < channels; ++channel) {
    if (!library.Dial(channel, "5551234", "100")) {
      throw std::runtime_error("ZELK_Dial failed");
    }
  }
  WaitFor("CONNECTED", [&] { return connected == channels; });
}

void Run(const std::string& path, const std::string& mode) {
  const load::SLibrary library(path);
  const bool plays = mode != "idle";
  for (uint16_t channel = 0; mode == "numbered" && channel < ZELK_MAX_CHANNELS; ++channel) {
    followers.emplace_back(load::EDirection::kToLibrary, channel);
  }
  if (plays) {
    library.SetEventCallback(&OnEvent);
    library.SetRecordCallback(mode == "numbered" ? &OnNumberedRecord : &OnRecord);
  }
  if (!library.Init()) {
    throw std::runtime_error("ZELK_Init failed");
  }
  CPlayer player(library, mode == "numbered");
  for (int32_t channel = 0; plays && channel < library.GetChannelCount(); ++channel) {
    library.OpenChannel(channel);
  }
  if (mode == "calls") {
    Dial(library);
  }
  std::atomic<bool> stopping{false};
  std::thread feeder([&] {
    for (int32_t part = 0; plays && !stopping; part = (part + 1) % kParts) {
      player.Refill(part);
      std::this_thread::sleep_for(kBetweenParts);
    }
  });
  std::printf("ready %d\n", static_cast<int>(library.GetChannelCount()));
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  stopping = true;
  feeder.join();
  const int32_t channels = library.GetChannelCount();
  library.Shutdown();
  Report(channels);
}

}  // namespace

int main(int count, char** arguments) {
  try {
    if (count != 3) {
      throw std::runtime_error("usage: load_application LIBRARY idle|busy|calls|numbered");
    }
    Run(arguments[1], arguments[2]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "load_application: %s\n", error.what());
    return 1;
  }
  return 0;
}

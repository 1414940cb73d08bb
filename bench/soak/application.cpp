// SPDX-License-Identifier: GPL-2.0-only

// An application that dials, answers, refuses, plays and listens on all channels of the cards of soak_cards, and holds
// what the library does against the rules of a call. Usage: soak_application LIBRARY SEED CHANNELS QUIET_SERIAL
// Cards with serial numbers below QUIET_SERIAL meet no faults: their calls must be exact.
//
// "ready" once all channels are READY. Lines on the input: "calls" begins calls, "end" ends them; every line is
// answered by one of JSON with the counts up to then. At the end of the input the last one, after the shut-down.
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <deque>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "load/library.h"
#include "soak/channel.h"
#include "soak/sound.h"

namespace {

using soak::Clock;
using soak::SChannel;
using EState = soak::COracle::EState;
using std::chrono::milliseconds;

constexpr milliseconds kTurn{10};
constexpr milliseconds kPatience{60000};
constexpr milliseconds kConnectWait{10000};
constexpr milliseconds kSoundWait{15000};
constexpr milliseconds kClearWait{45000};  // T305 and twice T308
constexpr milliseconds kAfterSound{300};
constexpr milliseconds kBetweenCalls{1500};
constexpr uint32_t kFirstNumber = 1000000;
constexpr size_t kMostRecorded = 200000;

const load::SLibrary* library = nullptr;
std::vector<std::unique_ptr<SChannel>> channels;
std::atomic<bool> isWatched{false};
std::atomic<bool> hasCalls{false};
std::atomic<uint64_t> events{0};
std::atomic<uint64_t> connected{0};
std::atomic<uint64_t> exact{0};
std::mutex violationLock;
std::vector<std::string> violations;  // guarded by violationLock

void Violate(size_t channel, const SChannel& its, const std::string& what) {
  const std::lock_guard<std::mutex> held(violationLock);
  std::string text = "channel " + std::to_string(channel) + " call " + std::to_string(its.number) + ": " + what + " (";
  for (const auto& [at, done] : its.past) {
    const auto agoMs = std::chrono::duration_cast<milliseconds>(Clock::now() - at).count();
    text += (text.back() == '(' ? "" : ", ") + std::to_string(agoMs) + " ms ago " + done;
  }
  violations.push_back(text + ")");
}

void TakeEvent(size_t index, SChannel& its, uint32_t event, int32_t parameter) {
  const EState before = its.oracle.State();
  const std::string fault = its.oracle.Take(event, parameter);
  its.Note("event " + std::to_string(event) + "(" + std::to_string(parameter) + ") " +
           soak::COracle::NameOf(its.oracle.State()));
  const bool isDownUnasked = its.isQuiet && event == ZELK_EVENT_CHANNEL_STATE;
  if (isWatched && (!fault.empty() || isDownUnasked)) {
    Violate(index, its, "event " + std::to_string(event) + "(" + std::to_string(parameter) + ") " + fault);
  }
  connected += event == ZELK_EVENT_CONNECTED ? 1 : 0;
  if (its.oracle.State() != before) {
    // Sound of the last call may be on its way for as long as blocks wait in a card's rings.
    Changed(its, its.oracle.State() == EState::kIdle ? kBetweenCalls : milliseconds(100 + its.number % 500));
  }
}

void ZELK_CALL OnEvent(int32_t channel, uint32_t event, int32_t parameter) {
  const auto index = static_cast<size_t>(channel);
  SChannel& its = *channels[index];
  ++events;
  const uint32_t calling =
      event != ZELK_EVENT_INCOMING_CALL ? 0 : soak::NumberOf(library->GetChannelInfoString(channel, ZELK_INFO_CLI));
  soak::Bytes sound;
  {
    const std::lock_guard<std::mutex> held(its.lock);
    its.number = event == ZELK_EVENT_INCOMING_CALL ? calling : its.number;
    if (event == ZELK_EVENT_DTMF) {
      its.digits += static_cast<char>(parameter);
    } else if (event == ZELK_EVENT_PLAY_DONE) {
      its.isPlayed = true;
    } else {
      TakeEvent(index, its, event, parameter);
    }
    if (event == ZELK_EVENT_CONNECTED) {
      sound = soak::SCallRules(its.number).FromApplication();
      its.expected = soak::SCallRules(its.number).FromFarEnd();
    }
  }
  if (event == ZELK_EVENT_CONNECTED) {
    library->PlayBuffer(channel, sound.data(), static_cast<uint32_t>(sound.size()));
  } else if (event == ZELK_EVENT_DISCONNECTED || event == ZELK_EVENT_CHANNEL_STATE) {
    library->StopPlay(channel);
  }
}

void ZELK_CALL OnRecord(uint32_t channel, const uint8_t* data, uint32_t length) {
  SChannel& its = *channels[channel];
  const std::lock_guard<std::mutex> held(its.lock);
  const EState state = its.oracle.State();
  const bool isInCall = state == EState::kDialled || state == EState::kAnswered || state == EState::kConnected;
  if (its.isQuiet && isInCall && its.recorded.size() < kMostRecorded) {
    its.recorded.insert(its.recorded.end(), data, data + length);
  }
}

class CTalker {
 public:
  explicit CTalker(uint32_t seed) : random(seed) {}

  // One look at a channel; what there is to do is done without its lock.
  void Look(size_t index) {
    SChannel& its = *channels[index];
    std::unique_lock<std::mutex> held(its.lock);
    const auto now = Clock::now();
    const auto channel = static_cast<int32_t>(index);
    switch (its.oracle.State()) {
      case EState::kIdle:
        return hasCalls && now > its.actAt && random() % 200 == 0 ? Dial(channel, its, held) : void();
      case EState::kDialled:
        return now > its.since + kConnectWait ? HangUp(channel, its, held) : void();
      case EState::kOffered:
        return now > its.actAt ? Take(channel, its, held) : void();
      case EState::kAnswered:
        return now > its.since + kConnectWait ? HangUp(channel, its, held) : void();
      case EState::kConnected:
        return Listen(index, its, held);
      case EState::kClearing:
        return now > its.since + kClearWait ? GiveUp(index, its, held) : void();
      case EState::kDown:
        return;
    }
  }

 private:
  using Held = std::unique_lock<std::mutex>;

  void Dial(int32_t channel, SChannel& its, Held& held) {
    its.number = kFirstNumber + dialled++;
    its.oracle.Dial();
    its.Note("dials " + std::to_string(its.number));
    BeginListening(its);
    Changed(its, milliseconds(0));
    const std::string number = std::to_string(its.number);
    held.unlock();
    const bool isDialled = library->Dial(channel, number.c_str(), "100");
    held.lock();
    Return(channel, its, isDialled);
    if (!isDialled) {
      Changed(its, milliseconds(500));
    }
  }
  void Take(int32_t channel, SChannel& its, Held& held) {
    const bool isRejected = soak::SCallRules(its.number).IsRejected();
    isRejected ? its.oracle.Reject() : its.oracle.Answer();
    its.Note((isRejected ? "rejects " : "answers ") + std::to_string(its.number));
    BeginListening(its);
    Changed(its, milliseconds(500));
    held.unlock();
    const bool result = isRejected ? library->Reject(channel) : library->Answer(channel);
    held.lock();
    Return(channel, its, result);
  }
  void HangUp(int32_t channel, SChannel& its, Held& held) {
    its.oracle.HangUp();
    its.Note("hangs up");
    Changed(its, milliseconds(0));
    held.unlock();
    library->StopPlay(channel);
    const bool result = library->Hangup(channel);
    held.lock();
    Return(channel, its, result);
  }
  void GiveUp(size_t index, SChannel& its, Held& held) {
    if (its.isQuiet) {
      Violate(index, its, "no end within 45 s");
    }
    its.oracle.Reject();
    its.Note("gives up");
    Changed(its, milliseconds(500));
    held.unlock();
    const bool result = library->Reject(static_cast<int32_t>(index));
    held.lock();
    Return(static_cast<int32_t>(index), its, result);
  }
  static void Return(int32_t channel, SChannel& its, bool result) {
    its.Note(result ? "succeeded" : "failed");
    const std::string fault = its.oracle.Returned(result);
    if (!fault.empty()) {
      Violate(static_cast<size_t>(channel), its, "the export " + fault);
    }
  }
  // A call that is the application's to end goes on until all was heard and played; others end by themselves.
  void Listen(size_t index, SChannel& its, Held& held) {
    const auto now = Clock::now();
    const bool isLate = now > its.since + kSoundWait;
    const bool isOurs = !soak::SCallRules(its.number).EndsAtFarEnd();
    if (its.isQuiet && isOurs && its.completeAt == Clock::time_point() && (isLate || IsComplete(its))) {
      its.completeAt = now + kAfterSound;
    }
    const bool isDone = its.isQuiet ? its.completeAt != Clock::time_point() && now > its.completeAt
                                    : now > its.since + milliseconds(2500);
    if (isLate || (isOurs && isDone)) {
      if (its.isQuiet && isOurs) {
        const std::string fault = FaultOf(its);
        fault.empty() ? void(++exact) : Violate(index, its, fault);
      }
      HangUp(static_cast<int32_t>(index), its, held);
    }
  }

  std::mt19937 random;
  uint32_t dialled = 0;
};

size_t Entries(const char* folder) {
  const std::filesystem::directory_iterator begin(folder);
  return static_cast<size_t>(std::distance(begin, std::filesystem::directory_iterator()));
}

void Report() {
  const std::lock_guard<std::mutex> held(violationLock);
  uint32_t busy = 0;
  for (size_t i = 0; i < static_cast<size_t>(library->GetChannelCount()); ++i) {
    busy += library->GetChannelInfo(static_cast<int32_t>(i), ZELK_INFO_CHANNELSTATE) == ZELK_CHANNEL_READY ? 0 : 1;
  }
  std::printf(
      "{\"busy\": %u, \"events\": %llu, \"connected\": %llu, \"exact\": %llu, \"threads\": %zu, \"descriptors\": %zu, ",
      busy, static_cast<unsigned long long>(events), static_cast<unsigned long long>(connected),
      static_cast<unsigned long long>(exact), Entries("/proc/self/task"), Entries("/proc/self/fd"));
  std::printf("\"violations\": [");
  for (size_t i = 0; i < violations.size(); ++i) {
    std::printf("%s\"%s\"", i == 0 ? "" : ", ", violations[i].c_str());
  }
  std::puts("]}");
  std::fflush(stdout);
}

void WaitUp(uint32_t quietSerial) {
  const auto deadline = Clock::now() + kPatience;
  for (size_t i = 0; i < channels.size(); ++i) {
    const auto channel = static_cast<int32_t>(i);
    while (library->GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) != ZELK_CHANNEL_READY) {
      if (Clock::now() > deadline) {
        throw std::runtime_error("channel " + std::to_string(i) + " is not READY");
      }
      std::this_thread::sleep_for(kTurn);
    }
    library->OpenChannel(channel);
    const std::lock_guard<std::mutex> held(channels[i]->lock);
    channels[i]->isQuiet = library->GetChannelInfo(channel, ZELK_INFO_SERIALNO) < quietSerial;
    channels[i]->oracle = soak::COracle();
    channels[i]->oracle.Take(ZELK_EVENT_CHANNEL_STATE, 1);
    if (!channels[i]->isQuiet) {
      channels[i]->oracle.SetForgetful();
    }
  }
}

void Run(const std::string& path, uint32_t seed, size_t count, uint32_t quietSerial) {
  const load::SLibrary loaded(path);
  library = &loaded;
  for (size_t i = 0; i < ZELK_MAX_CHANNELS; ++i) {
    channels.push_back(std::make_unique<SChannel>());
  }
  Report();
  loaded.SetEventCallback(&OnEvent);
  loaded.SetRecordCallback(&OnRecord);
  if (!loaded.Init() || loaded.GetChannelCount() != static_cast<int32_t>(count)) {
    throw std::runtime_error("found " + std::to_string(loaded.GetChannelCount()) + " channels");
  }
  channels.resize(count);
  WaitUp(quietSerial);
  isWatched = true;
  std::atomic<bool> isOver{false};
  std::thread talking([&] {
    for (CTalker talker(seed); !isOver; std::this_thread::sleep_for(kTurn)) {
      for (size_t i = 0; i < channels.size(); ++i) {
        talker.Look(i);
      }
    }
  });
  std::puts("ready");
  std::fflush(stdout);
  for (std::string line; std::getline(std::cin, line);) {
    hasCalls = line == "calls" || (hasCalls && line != "end");
    Report();
  }
  isOver = true;
  talking.join();
  isWatched = false;
  loaded.Shutdown();
  // A thread that was joined may still be leaving.
  for (int i = 0; i < 100 && Entries("/proc/self/task") > 1; ++i) {
    std::this_thread::sleep_for(kTurn);
  }
  Report();
}

}  // namespace

int main(int count, char** arguments) {
  try {
    if (count != 5) {
      throw std::runtime_error("usage: soak_application LIBRARY SEED CHANNELS QUIET_SERIAL");
    }
    Run(arguments[1], soak::NumberOf(arguments[2]), soak::NumberOf(arguments[3]), soak::NumberOf(arguments[4]));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "soak_application: %s\n", error.what());
    return 1;
  }
  return 0;
}

// SPDX-License-Identifier: GPL-2.0-only

// Cards with a telephone exchange behind them, for the load program: every D-channel up, every call answered at once by
// a far end that speaks. Usage: load_exchange audio|no-audio ADDRESS BROADCAST TRUNKS...   (until its input ends)
#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "cardsim/audio/signals.h"
#include "cardsim/base/asio_reactor.h"
#include "cardsim/card/simulator.h"

namespace {

// The cards look at their replies so often, as load_card does, and are not woken by each: a line's frame.
constexpr std::chrono::microseconds kAudioTurn{125};
constexpr int kVoiceMs = 4000;
constexpr double kVoiceLevel = -18;

void Run(const std::vector<std::string>& arguments) {
  if (arguments.size() < 4) {
    throw std::runtime_error("usage: load_exchange audio|no-audio ADDRESS BROADCAST TRUNKS...");
  }
  std::vector<int> trunks;
  for (size_t i = 3; i < arguments.size(); ++i) {
    trunks.push_back(std::stoi(arguments[i]));
  }
  cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks(trunks, arguments[1]);
  config.broadcast = arguments[2];
  config.keepHistory = false;
  const bool hasAudio = arguments[0] == "audio";
  cardsim::CSimulator exchange(
      config, std::make_unique<cardsim::CAsioReactor>(),
      std::make_unique<cardsim::CAsioReactor>(hasAudio ? kAudioTurn : std::chrono::microseconds(0)));
  const auto voice = std::make_shared<const cardsim::Bytes>(cardsim::RenderSpeech(kVoiceLevel, kVoiceMs, 1));
  for (size_t card = 0; card < exchange.CardCount(); ++card) {
    exchange.Card(card).Audio().SetPacing(hasAudio);
    exchange.Card(card).SetAnswerPlanner([voice](const cardsim::CCall&) {
      cardsim::SAnswerPlan plan;
      plan.alertAfter.reset();
      plan.farEnd.play = cardsim::MakeBytesSource(voice, true);
      return plan;
    });
  }
  exchange.Start();
  std::puts("ready");
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  exchange.Stop();
  std::puts("{}");
  std::fflush(stdout);
}

}  // namespace

int main(int count, char** arguments) {
  try {
    Run(std::vector<std::string>(arguments + 1, arguments + count));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "load_exchange: %s\n", error.what());
    return 1;
  }
  return 0;
}

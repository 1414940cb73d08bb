// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/card/simulator.h"

#include <stdexcept>
#include <system_error>

#include "cardsim/audio/audio_pacer.h"
#include "cardsim/base/asio_reactor.h"
#include "cardsim/card/discovery.h"

namespace cardsim {
namespace {

// libpri's timers and the status message are looked after at this interval.
constexpr std::chrono::milliseconds kTick{20};

void Check(const SSimulatorConfig& config) {
  if (config.cards.empty() || config.cards.size() > kMaxCards) {
    throw std::invalid_argument("a simulator has 1 to 20 cards");
  }
  for (const SCardConfig& card : config.cards) {
    const int trunks = card.identity.trunks;
    if (trunks < 1 || trunks > kMaxTrunks) {
      throw std::invalid_argument("a card has 1 to 8 trunks");
    }
    const int frames = card.framesPerPacket > 0 ? card.framesPerPacket : LargestFrameCount(trunks);
    if (!IsAudioPacketSize(AudioPacketBytes(trunks, frames))) {
      throw std::invalid_argument("packets of " + std::to_string(frames) + " frames are not of 584 to 1448 bytes");
    }
  }
}

}  // namespace

// In this order: what uses a reactor goes before it.
struct CSimulator::SParts {
  SParts(std::unique_ptr<IReactor> signallingReactor, std::unique_ptr<IReactor> audioReactor)
      : signalling(std::move(signallingReactor)), audio(std::move(audioReactor)), pacer(*audio) {}

  const std::unique_ptr<IReactor> signalling;
  const std::unique_ptr<IReactor> audio;
  CAudioPacer pacer;
  std::vector<std::unique_ptr<CCard>> cards;
  std::unique_ptr<CDiscovery> discovery;
  bool started = false;
  bool stopped = false;
};

CSimulator::CSimulator(SSimulatorConfig simulatorConfig)
    : CSimulator(std::move(simulatorConfig), std::make_unique<CAsioReactor>(), std::make_unique<CAsioReactor>()) {}

CSimulator::CSimulator(SSimulatorConfig simulatorConfig, std::unique_ptr<IReactor> signalling,
                       std::unique_ptr<IReactor> audio)
    : config(std::move(simulatorConfig)), parts(std::make_unique<SParts>(std::move(signalling), std::move(audio))) {
  Check(config);
  for (const SCardConfig& card : config.cards) {
    parts->cards.push_back(std::make_unique<CCard>(static_cast<int>(parts->cards.size()), card, config.broadcast,
                                                   config.keepHistory, *parts->signalling, *parts->audio));
  }
  parts->discovery = std::make_unique<CDiscovery>(*parts->signalling, [this](const std::string& from) {
    for (const auto& card : parts->cards) {
      card->OnProbe(from);
    }
  });
}

CSimulator::~CSimulator() {
  Stop();
}

void CSimulator::Start() {
  if (parts->started) {
    throw std::logic_error("a simulator runs once");
  }
  parts->started = true;
  parts->signalling->Start();
  parts->audio->Start();
  std::string place;
  try {
    for (const auto& card : parts->cards) {
      place = card->Address();
      card->Open();
    }
    place = config.broadcast;
    parts->signalling->Call([this] { parts->discovery->Open(config.broadcast); });
  } catch (const std::system_error& error) {
    Stop();
    throw std::system_error(error.code(), place + ":" + std::to_string(kCardPort));
  }
  std::vector<CAudioPort*> ports;
  for (const auto& card : parts->cards) {
    ports.push_back(&card->Audio());
  }
  parts->pacer.Start(std::move(ports));
  ScheduleTick();
}

void CSimulator::ScheduleTick() {
  parts->signalling->After(kTick, [this] {
    for (const auto& card : parts->cards) {
      card->Tick();
    }
    ScheduleTick();
  });
}

void CSimulator::Stop() {
  if (!parts->started || parts->stopped) {
    return;
  }
  parts->stopped = true;
  parts->pacer.Stop();
  parts->signalling->Call([this] { parts->discovery->Close(); });
  for (const auto& card : parts->cards) {
    card->Close();
  }
  parts->signalling->Stop();
  parts->audio->Stop();
}

std::size_t CSimulator::CardCount() const {
  return parts->cards.size();
}

CCard& CSimulator::Card(std::size_t index) {
  return *parts->cards.at(index);
}

const CCard& CSimulator::Card(std::size_t index) const {
  return *parts->cards.at(index);
}

}  // namespace cardsim

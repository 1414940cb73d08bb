// SPDX-License-Identifier: GPL-2.0-only

// Digits that nobody dialled: the same speech through the library's detector, with the settings of an empty ini file,
// and through spandsp's DTMF receiver. Usage: false_digits FILE...   (WAV, mono, 8 kHz)
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

// Each of these headers needs what those before it define.
// clang-format off
#include <spandsp/telephony.h>
#include <spandsp/logging.h>
#include <spandsp/complex.h>
#include <spandsp/tone_detect.h>
#include <spandsp/tone_generate.h>
#include <spandsp/super_tone_rx.h>
#include <spandsp/dtmf.h>
// clang-format on

#include "cardsim/audio/signals.h"
#include "cardsim/audio/wav_file.h"
#include "common/g711.h"
#include "dsp/dtmf_decode.h"

namespace {

constexpr size_t kBlock = 160;

std::string Ours(const cardsim::Bytes& sound) {
  zelk::CDtmfDecode decoder;
  decoder.SetThresholds(zelk::SDtmfSettings());
  decoder.Reset();
  std::string digits;
  for (const uint8_t code : sound) {
    decoder.Process(tool::DecodeALaw(code));
    while (const char digit = decoder.TakeDigit()) {
      digits += digit;
    }
  }
  return digits;
}

std::string Spandsps(const cardsim::Bytes& sound) {
  dtmf_rx_state_t* receiver = dtmf_rx_init(nullptr, nullptr, nullptr);
  std::string digits;
  std::vector<int16_t> block;
  for (size_t at = 0; at + kBlock <= sound.size(); at += kBlock) {
    block.clear();
    for (size_t i = 0; i < kBlock; ++i) {
      block.push_back(tool::DecodeALaw(sound[at + i]));
    }
    dtmf_rx(receiver, block.data(), static_cast<int>(block.size()));
    char heard[128] = {};
    dtmf_rx_get(receiver, heard, sizeof heard - 1);
    digits += heard;
  }
  dtmf_rx_free(receiver);
  return digits;
}

// A detector that hears nothing would have no false digits either.
void CheckThatBothHear() {
  const std::string dialled = "0123456789*#ABCD";
  const cardsim::Bytes sound = cardsim::RenderDtmf(dialled, {.onMs = 60, .offMs = 60, .level = -12});
  if (Ours(sound) != dialled || Spandsps(sound) != dialled) {
    throw std::runtime_error("dialled digits are not heard: " + Ours(sound) + " and " + Spandsps(sound));
  }
}

void Run(int argc, char** argv) {
  CheckThatBothHear();
  size_t samples = 0;
  std::string ours;
  std::string theirs;
  for (int i = 1; i < argc; ++i) {
    const cardsim::Bytes sound = cardsim::ReadWav(argv[i]);
    samples += sound.size();
    ours += Ours(sound);
    theirs += Spandsps(sound);
  }
  std::printf("%.1f minutes of speech\n", static_cast<double>(samples) / 8000 / 60);
  std::printf("ours:    %zu false digits  %s\n", ours.size(), ours.c_str());
  std::printf("spandsp: %zu false digits  %s\n", theirs.size(), theirs.c_str());
  std::printf("{\"minutes\": %.1f, \"ours\": %zu, \"spandsp\": %zu}\n", static_cast<double>(samples) / 8000 / 60,
              ours.size(), theirs.size());
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "false_digits: %s\n", error.what());
    return 1;
  }
  return 0;
}

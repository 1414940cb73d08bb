// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "cardsim/card/simulator.h"
#include "examples/example_process.h"
#include "support/eventually.h"
#include "support/temp_dir.h"

// Job: simulated cards in this process and an example as a program of its own, which finds the library in a folder of
// the test. Thread: the test's.
class CExampleTest : public testing::Test {
 public:
  // The beginning of the example's command line. Set before the tests run.
  static std::vector<std::string> command;

 protected:
  using Bytes = cardsim::Bytes;
  using Call = cardsim::Call;
  using Words = std::vector<std::string>;

  static constexpr std::chrono::seconds kSoon{10};  // a bound for what happens at once, on a loaded machine
  static constexpr std::chrono::seconds kSlow{30};  // for what waits for a protocol's timers
  static constexpr size_t kBytesPerMs = 8;

  // audioBuffers: with fewer than the library's 32, what is played is heard sooner, and a test of many steps is short;
  // a busy machine loses sound sooner, too.
  explicit CExampleTest(int audioBuffers = 32);
  void TearDown() override;

  void StartCards(const std::vector<int>& trunksOfCards = {1});
  void StartExample(const Words& arguments);
  // Cards, the example and its "waiting for calls".
  void StartServing(const Words& arguments, const std::vector<int>& trunksOfCards = {1});
  // Ctrl-C: it ends soon, with 0, and has complained about nothing.
  void EndInGoodOrder();
  // A run that ends by itself.
  void ExpectRefused(const Words& arguments, int exitCode, const std::string& error);

  // Places a call and waits until it is answered.
  Call Connect(cardsim::SCallRequest request);
  // A trunk without layer 2, and up again on both sides.
  void MendTrunk(int trunk);
  // Until channels have been lost, as the library's log tells it.
  void LoseTrunk(int trunk);

  cardsim::CCard& Card() { return sim->Card(0); }
  std::string LogText() const { return zelk::ReadAll(folder.Path("libZelkApi.log")); }
  size_t CountInLog(const std::string& part) const { return CountLines(LogText(), part); }
  // An A-law WAV file in the test's folder.
  std::string WritePrompt(const std::string& name, const Bytes& sound) const;
  // Sound that is like no other, neither beginning nor ending in silence.
  static Bytes Sound(int ms, std::uint32_t seed);
  // What is left between the silence before and after it.
  static Bytes WithoutSilence(Bytes heard);

  zelk::CTempDir folder;
  std::unique_ptr<cardsim::CSimulator> sim;
  std::unique_ptr<CExampleProcess> example;
};

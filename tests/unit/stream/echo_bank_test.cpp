// SPDX-License-Identifier: GPL-2.0-only
#include "stream/echo_bank.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "formats/g711.h"

namespace zelk {
namespace {

std::vector<uint8_t> RandomBytes(size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(count);
  for (uint8_t& byte : bytes)
    byte = static_cast<uint8_t>(random());
  return bytes;
}

class EchoBank : public testing::Test {
 protected:
  // Two trunks, 20 frames.
  void Process(std::vector<uint8_t>& received, const std::vector<uint8_t>& sent) {
    bank.Process(received.data(), 20, 2, {sent.data(), sent.size(), false}, controls);
  }

  SAudioControls controls;
  CEchoBank bank;
  std::vector<uint8_t> samples = RandomBytes(20 * 64, 1);
  const std::vector<uint8_t> before = samples;
  const std::vector<uint8_t> reference = RandomBytes(20 * 64, 2);
};

TEST_F(EchoBank, WithTheSwitchOffNothingChanges) {
  bank.Configure(0, 32);
  Process(samples, reference);
  EXPECT_EQ(samples, before);
}

TEST_F(EchoBank, WithoutCancellersNothingChanges) {
  controls.echoSwitch[0] = true;
  Process(samples, reference);
  EXPECT_EQ(samples, before);
}

TEST_F(EchoBank, OnlyTheTrunkWhoseSwitchIsOnIsCleaned) {
  bank.Configure(0, 32);
  bank.Configure(1, 32);
  controls.echoSwitch[1] = true;
  std::vector<uint8_t> expected = before;
  for (size_t timeslot = 0; timeslot < 32; ++timeslot) {
    const std::unique_ptr<CEchoCanceller> canceller = CEchoCanceller::Create(32);
    for (size_t frame = 0; frame < 20; ++frame) {
      const size_t at = frame * 64 + 32 + timeslot;
      expected[at] = LinearToALaw(canceller->Update(ALawToLinear(reference[at]), ALawToLinear(before[at])));
    }
  }
  Process(samples, reference);
  EXPECT_EQ(samples, expected);
}

// A reference that ends within a frame, after every possible number of bytes: those after it count as idle.
TEST_F(EchoBank, AShortReferenceIsContinuedWithIdleBytes) {
  controls.echoSwitch[0] = true;
  controls.echoSwitch[1] = true;
  for (size_t length = 0; length < 2 * 64; ++length) {
    CEchoBank shortBank;
    CEchoBank longBank;
    for (CEchoBank* each : {&shortBank, &longBank}) {
      each->Configure(0, 32);
      each->Configure(1, 32);
    }
    // On the heap with its exact size, so that a read beyond it is seen.
    const std::vector<uint8_t> cut(reference.begin(), reference.begin() + static_cast<ptrdiff_t>(length));
    std::vector<uint8_t> padded = cut;
    padded.resize(20 * 64, 0x54);
    std::vector<uint8_t> a = before;
    std::vector<uint8_t> b = before;
    shortBank.Process(a.data(), 20, 2, {cut.data(), cut.size(), false}, controls);
    longBank.Process(b.data(), 20, 2, {padded.data(), padded.size(), false}, controls);
    ASSERT_EQ(a, b) << length;
  }
}

TEST_F(EchoBank, ConfiguringAgainStartsAfresh) {
  bank.Configure(0, 32);
  controls.echoSwitch[0] = true;
  std::vector<uint8_t> first = before;
  Process(first, reference);
  std::vector<uint8_t> learnt = before;
  for (int i = 0; i < 50; ++i) {
    learnt = before;
    Process(learnt, reference);
  }
  EXPECT_NE(learnt, first);
  bank.Configure(0, 32);
  Process(samples, reference);
  EXPECT_EQ(samples, first);
}

TEST_F(EchoBank, ATrunkOutOfRangeChangesNoOther) {
  for (std::atomic<bool>& on : controls.echoSwitch)
    on = true;
  bank.Configure(8, 32);
  bank.Configure(0xFFFFFFFF, 32);
  Process(samples, reference);
  EXPECT_EQ(samples, before);
}

TEST_F(EchoBank, SetsMayBeMadeAnewWhilePacketsAreProcessed) {
  controls.echoSwitch[0] = true;
  std::atomic<bool> done{false};
  std::thread opener([&] {
    for (int i = 0; i < 50; ++i)
      bank.Configure(0, 32);
    done = true;
  });
  while (!done) {
    samples = before;
    Process(samples, reference);
  }
  opener.join();
  // Whatever was in use before, the last set is used now and begins anew.
  bank.Configure(0, 32);
  samples = before;
  Process(samples, reference);
  CEchoBank fresh;
  fresh.Configure(0, 32);
  std::vector<uint8_t> expected = before;
  fresh.Process(expected.data(), 20, 2, {reference.data(), reference.size(), false}, controls);
  EXPECT_NE(expected, before);
  EXPECT_EQ(samples, expected);
}

}  // namespace
}  // namespace zelk

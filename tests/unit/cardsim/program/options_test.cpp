// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/program/options.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace cardsim {
namespace {

SParsed Parse(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "zelk-cardsim");
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  SParsed parsed = ParseOptions(static_cast<int>(arguments.size()), arguments.data());
  testing::internal::GetCapturedStdout();
  const std::string errors = testing::internal::GetCapturedStderr();
  EXPECT_EQ(errors.empty(), parsed.exitCode == 0) << errors;
  return parsed;
}

TEST(Options, CardsAndTrunks) {
  const SParsed parsed = Parse({"--cards", "3", "--trunks", "4,1"});
  ASSERT_TRUE(parsed.options.has_value());
  const SSimulatorConfig config = ConfigOf(*parsed.options);
  ASSERT_EQ(config.cards.size(), 3U);
  EXPECT_EQ(config.cards[0].identity.trunks, 4);
  EXPECT_EQ(config.cards[1].identity.trunks, 1);
  EXPECT_EQ(config.cards[2].identity.trunks, 1);
  EXPECT_EQ(config.cards[2].address, "127.0.1.3");
  EXPECT_EQ(config.cards[2].identity.serial, 100003U);
}

TEST(Options, TrunksAloneTellTheNumberOfCards) {
  EXPECT_EQ(ConfigOf(*Parse({"--trunks", "4,1"}).options).cards.size(), 2U);
}

TEST(Options, AddressesOfTheirOwn) {
  const auto options = *Parse({"--cards", "2", "--address", "127.0.0.11,127.0.0.21"}).options;
  EXPECT_EQ(ConfigOf(options).cards[1].address, "127.0.0.21");
}

TEST(Options, WhatTheNetworkDoesToAudioPackets) {
  const auto options =
      *Parse({"--audio-loss", "2.5", "--audio-duplicates", "1", "--audio-reordered", "3", "--audio-delay", "40",
              "--audio-jitter", "10", "--audio-seed", "9", "--audio-pause-every", "5000", "--audio-pause", "200"})
           .options;
  EXPECT_EQ(options.faults.loss, 2.5);
  EXPECT_EQ(options.faults.duplicates, 1);
  EXPECT_EQ(options.faults.reordered, 3);
  EXPECT_EQ(options.faults.delay, std::chrono::milliseconds(40));
  EXPECT_EQ(options.faults.jitter, std::chrono::milliseconds(10));
  EXPECT_EQ(options.faults.seed, 9U);
  EXPECT_EQ(options.pauseEvery, 5000);
  EXPECT_EQ(options.pauseLength, 200);
}

TEST(Options, HowDigitsTonesAndEchoesSound) {
  const auto options =
      *Parse({"--digits",      "12",  "--digit-on",     "40",  "--digit-off",   "50",  "--digit-level", "-20",
              "--digit-twist", "-4",  "--digit-offset", "1.5", "--digit-noise", "-35", "--tone",        "350,440",
              "--tone-level",  "-18", "--echo-delay",   "16",  "--echo-loss",   "9"})
           .options;
  EXPECT_EQ(options.digitSignal.onMs, 40);
  EXPECT_EQ(options.digitSignal.offMs, 50);
  EXPECT_EQ(options.digitSignal.level, -20);
  EXPECT_EQ(options.digitSignal.twist, -4);
  EXPECT_EQ(options.digitSignal.offsetPercent, 1.5);
  EXPECT_EQ(options.digitSignal.noise, -35);
  EXPECT_EQ(options.tone, (std::vector<double>{350, 440}));
  EXPECT_EQ(options.toneLevel, -18);
  EXPECT_EQ(options.echoDelay, 16);
  EXPECT_EQ(options.echoLoss, 9);
}

TEST(Options, MistakesHaveAnExitCodeAndAnExplanation) {
  for (const std::vector<const char*>& arguments : std::vector<std::vector<const char*>>{{"--cards", "21"},
                                                                                         {"--trunks", "9"},
                                                                                         {"--nonsense"},
                                                                                         {"--cause", "0"},
                                                                                         {"--audio-loss", "101"},
                                                                                         {"--tone", "4000"}}) {
    const SParsed parsed = Parse(arguments);
    EXPECT_FALSE(parsed.options.has_value());
    EXPECT_NE(parsed.exitCode, 0);
  }
}

TEST(Options, CountsThatDoNotAgreeAreRefused) {
  EXPECT_THROW(ConfigOf(*Parse({"--cards", "1", "--trunks", "4,1"}).options), std::invalid_argument);
  EXPECT_THROW(ConfigOf(*Parse({"--cards", "2", "--address", "127.0.0.11"}).options), std::invalid_argument);
}

TEST(Options, HelpEndsWithoutAnError) {
  const SParsed parsed = Parse({"--help"});
  EXPECT_FALSE(parsed.options.has_value());
  EXPECT_EQ(parsed.exitCode, 0);
}

}  // namespace
}  // namespace cardsim

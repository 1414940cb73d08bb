#include "cardsim/options.h"

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

TEST(Options, MistakesHaveAnExitCodeAndAnExplanation) {
  for (const std::vector<const char*>& arguments :
       std::vector<std::vector<const char*>>{{"--cards", "21"}, {"--trunks", "9"}, {"--nonsense"}, {"--cause", "0"}}) {
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

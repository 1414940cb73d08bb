// SPDX-License-Identifier: GPL-2.0-only
#include <sstream>

#include "call_fixture.h"

namespace {

using cardsim::Call;
using cardsim::SCallRequest;

// The lines of calls at each level of "Level": what is written, with which channel, and what is left out.
class CallLog : public CCallTest, public testing::WithParamInterface<int> {
 protected:
  // The lines of the log without their time.
  std::string Lines() {
    std::string lines;
    std::istringstream log(app->zelk.LogText());
    for (std::string line; std::getline(log, line);) {
      constexpr size_t kTimeChars = 20;
      lines += line.size() > kTimeChars ? line.substr(kTimeChars) + "\n" : line + "\n";
    }
    return lines;
  }

  bool Has(const std::string& lines, const std::string& line) { return lines.find(line + "\r\n") != std::string::npos; }
};

TEST_P(CallLog, has_the_lines_of_its_level_with_their_channels) {
  const int level = GetParam();
  ASSERT_NO_FATAL_FAILURE(StartOpen({3}, "[Debug]\nLevel=" + std::to_string(level) + "\n"));
  Call ringing = DialRinging(5);
  ringing->Progress(31);
  ASSERT_TRUE(app->WaitEvent(5, ZELK_EVENT_PROGRESS, kSoon));
  app->zelk.Answer(4);
  for (int32_t channel = 0; channel < 30; ++channel) {
    app->zelk.SetChannelInfo(channel, ZELK_SET_ALLOWINCOMING, 0);
  }
  Call refused = Card().PlaceCall({.timeslot = SCallRequest::kAnyChannel});
  ASSERT_TRUE(refused->WaitEnded(kSoon));
  Card().LoseLayer2(2);
  ASSERT_TRUE(app->WaitEvent(89, ZELK_EVENT_CHANNEL_STATE, kSoon));
  // Offered on a channel of another trunk, where it cannot be hung up.
  Card().PlaceCall({.trunk = 1, .timeslot = SCallRequest::kAnyChannel});
  ASSERT_TRUE(app->WaitEvent(60, ZELK_EVENT_INCOMING_CALL, kSoon));
  app->zelk.Hangup(60);
  // Written at every level, and last: what should be there is there now.
  ASSERT_TRUE(app->zelk.WaitLog("Hangup()->")) << app->zelk.LogText();

  const std::string lines = Lines();
  const struct {
    const char* text;
    int highestLevel;
  } expected[] = {
      {"  5 :Call Proceeding", 1},
      {"  5 :Call Status Alerting", 1},
      {"  5 :Call Progress", 1},
      {"  4 :Answer() -> Answer() failed in Q931 Connect().", 2},
      {"  G :Card 0: Trunk 0 - New Call aborted due to BCHANNEL unavailable", 2},
      {"  G :Card 0: Trunk 2 - DCHANNEL DOWN", 2},
      {"  G :Card 0: Trunk 0 - DCHANNEL UP", 2},
      {" 60 :Hangup()-> Failed in Q931 release()", 3},
  };
  for (const auto& line : expected) {
    EXPECT_EQ(Has(lines, line.text), level <= line.highestLevel) << line.text << "\n" << lines;
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, CallLog, testing::Values(0, 1, 2, 3));

}  // namespace

// SPDX-License-Identifier: GPL-2.0-only
#include "phone/request.h"

#include <gtest/gtest.h>

namespace phone {
namespace {

// The error's code and the id that it is for, as "bad-request 3".
std::string ErrorOf(const std::string& line) {
  try {
    ParseRequest(line);
    return "none";
  } catch (const CRequestError& error) {
    return std::string(error.code) + " " + error.id.dump();
  }
}

TEST(Request, ACallHasItsChannelAndNumbers) {
  const SRequest dial = ParseRequest(R"({"id":3,"do":"dial","channel":29,"number":"030*#+1","from":""})");
  EXPECT_EQ(dial.id, 3);
  EXPECT_EQ(dial.what, EDo::kDial);
  EXPECT_EQ(dial.channel, 29);
  EXPECT_EQ(dial.number, "030*#+1");
  EXPECT_EQ(dial.from, "");
  EXPECT_FALSE(ParseRequest(R"({"id":3,"do":"dial","channel":29,"number":"1"})").from);
}

TEST(Request, StopIsForSoundRecordingOrBoth) {
  const SRequest both = ParseRequest(R"({"id":"x","do":"stop","channel":0})");
  EXPECT_TRUE(both.stopsPlay && both.stopsRecord);
  const SRequest play = ParseRequest(R"({"id":"x","do":"stop","channel":0,"what":"play"})");
  EXPECT_TRUE(play.stopsPlay && !play.stopsRecord);
  const SRequest record = ParseRequest(R"({"id":"x","do":"stop","channel":0,"what":"record"})");
  EXPECT_TRUE(!record.stopsPlay && record.stopsRecord);
}

TEST(Request, OnlyTheStateOfAllNeedsNoChannel) {
  EXPECT_FALSE(ParseRequest(R"({"id":1,"do":"state"})").channel);
  for (const char* name : {"dial", "answer", "reject", "hangup", "play", "stop", "record", "digits"}) {
    EXPECT_EQ(ErrorOf(std::string(R"({"id":1,"do":")") + name + R"(","number":"1"})"), "bad-request 1") << name;
  }
}

TEST(Request, TheIdOfABadOneIsKnownWhereItHasOne) {
  EXPECT_EQ(ErrorOf("nonsense"), "bad-json null");
  EXPECT_EQ(ErrorOf("[1]"), "bad-json null");
  EXPECT_EQ(ErrorOf(R"({"do":"state"})"), "bad-request null");
  EXPECT_EQ(ErrorOf(R"({"id":[],"do":"state"})"), "bad-request null");
  EXPECT_EQ(ErrorOf(R"({"id":"7"})"), "bad-request \"7\"");
  EXPECT_EQ(ErrorOf("{\"id\":\"" + std::string(100, 'x') + "\",\"do\":\"state\"}"), "none");
  EXPECT_EQ(ErrorOf("{\"id\":\"" + std::string(101, 'x') + "\",\"do\":\"state\"}"), "bad-request null");
}

TEST(Request, AMemberThatTheCommandDoesNotHaveIsRefused) {
  EXPECT_EQ(ErrorOf(R"({"id":1,"do":"answer","channel":1,"file":"x"})"), "bad-request 1");
  EXPECT_EQ(ErrorOf(R"({"id":1,"do":"answer","channel":1,"":"x"})"), "bad-request 1");
  EXPECT_EQ(ErrorOf(R"({"id":1,"do":"dial","channel":1,"number":"1","[from]":"x"})"), "bad-request 1");
}

TEST(Request, NumbersAndChannelsHaveTheirLimits) {
  const auto dial = [](const std::string& channel, const std::string& number) {
    return ErrorOf(R"({"id":1,"do":"dial","channel":)" + channel + R"(,"number":")" + number + "\"}");
  };
  EXPECT_EQ(dial("2147483647", std::string(31, '1')), "none");
  EXPECT_EQ(dial("2147483648", "1"), "bad-request 1");
  EXPECT_EQ(dial("18446744073709551617", "1"), "bad-request 1");
  EXPECT_EQ(dial("-1", "1"), "bad-request 1");
  EXPECT_EQ(dial("0", std::string(32, '1')), "bad-request 1");
  EXPECT_EQ(dial("0", ""), "bad-request 1");
  EXPECT_EQ(dial("0", "1\\u0000"), "bad-request 1");
}

}  // namespace
}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#include "world/call_grammar.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "zelk/ZelkApi.h"

namespace world {
namespace {

// A script of one letter a thing: what the application does (d a h r: at once; D A H R begins, . returns), what comes
// (I incoming, P proceeding, L alerting, C connected, E disconnected, X down, U up).
class CallGrammar : public testing::Test {
 protected:
  bool Play(const std::string& script) {
    bool isRight = true;
    for (const char letter : script) {
      isRight = One(letter).empty() && isRight;
    }
    return isRight;
  }

  std::string One(char letter) {
    static const std::string kEvents = "IPLCEXU";
    static constexpr uint32_t kCodes[] = {ZELK_EVENT_INCOMING_CALL, ZELK_EVENT_PROCEEDING,   ZELK_EVENT_ALERTING,
                                          ZELK_EVENT_CONNECTED,     ZELK_EVENT_DISCONNECTED, ZELK_EVENT_CHANNEL_STATE,
                                          ZELK_EVENT_CHANNEL_STATE};
    static const std::string kActions = "dahrDAHR";
    if (const size_t event = kEvents.find(letter); event != std::string::npos) {
      return grammar.Event(kCodes[event], letter == 'U' ? 1 : 0);
    }
    if (letter == '.') {
      const int ticket = open;
      open = -1;
      return grammar.Return(ticket, result);
    }
    const size_t action = kActions.find(letter);
    const int ticket = grammar.Begin(static_cast<EAction>(action == 3 || action == 7 ? 3 : action % 4));
    if (action >= 4) {
      open = ticket;
      return {};
    }
    return grammar.Return(ticket, letter == 'r' ? !result : result);
  }

  CCallGrammar grammar;
  int open = -1;
  bool result = true;
};

TEST_F(CallGrammar, WhatACallBringsIsRight) {
  for (const char* script :
       {"dPLCE",  "dE",       "IaCE",   "IaChE", "IE",    "Ir",     "IrE",     "dhE",     "dPLChCE",
        "IX",     "dPXUIaCE", "hhh",    "IhE",   "dI",    "dhIaCE", "IaE",     "IrdPLCE", "dUPLCE",
        "aaIaCE", "dIrEE",    "IrdPEE", "IrXUE", "dIrXE", "dIXUPE", "dIaPCEE", "dIPLCE",  "dIrCdPCE"}) {
    SCOPED_TRACE(script);
    EXPECT_TRUE(Play(script));
    grammar = {};
  }
}

TEST_F(CallGrammar, WhatNoCallBringsIsNot) {
  for (const char* script :
       {"P",   "C",      "E",       "IC",     "II",       "dPLCEE", "dEE",    "IaCI", "IP",    "dd",
        "dCC", "XE",     "dXP",     "IaCEC",  "IaCa.E.E", "IrEE",   "L",      "IaCL", "dPLCd", "hE",
        "UE",  "dIrEEE", "IrdPEEE", "IrXUEE", "dXE",      "IrIP",   "dIrEEP", "IrIC", "dIEEC"}) {
    SCOPED_TRACE(script);
    EXPECT_FALSE(Play(script));
    grammar = {};
    open = -1;
  }
}

TEST_F(CallGrammar, AnExportTakesEffectWhileItRuns) {
  for (const char* script : {"DPLC.E", "D.PLCE", "IAC.E", "IAE.", "IA.CE", "IaCHE.", "DI."}) {
    SCOPED_TRACE(script);
    EXPECT_TRUE(Play(script));
    grammar = {};
  }
  EXPECT_FALSE(Play("DE.E"));
}

TEST_F(CallGrammar, TheNetworkSideConnectsWhateverThereIs) {
  EXPECT_FALSE(Play("aC"));
  for (const char* script : {"aC", "IaCCE", "IEaC", "aCdPLCE", "aCIaCE", "aChhdPE", "aCdPaLCE"}) {
    SCOPED_TRACE(script);
    grammar = {};
    grammar.SetNetworkSide(true);
    EXPECT_TRUE(Play(script));
  }
  grammar = {};
  grammar.SetNetworkSide(true);
  EXPECT_FALSE(Play("IaCEE"));
}

TEST_F(CallGrammar, AForgetfulNetworkOffersOverACall) {
  EXPECT_FALSE(Play("IaCI"));
  grammar = {};
  grammar.SetForgetful();
  EXPECT_TRUE(Play("IaCIaCE"));
  EXPECT_FALSE(Play("E"));
}

TEST_F(CallGrammar, OddMessagesAreNotJudgedUntilTheChannelIsFree) {
  EXPECT_TRUE(Play("IaC"));
  grammar.SetOdd();
  EXPECT_TRUE(Play("LE"));
  EXPECT_TRUE(Play("IaCE"));
  EXPECT_FALSE(Play("E"));
}

TEST_F(CallGrammar, TheResultMustBeOneThatThereCanBe) {
  result = false;
  EXPECT_TRUE(Play("d"));
  EXPECT_FALSE(Play("h"));
  EXPECT_FALSE(Play("r"));
}

}  // namespace
}  // namespace world

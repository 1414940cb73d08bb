// SPDX-License-Identifier: GPL-2.0-only
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "findings.h"

namespace doctor {
namespace {

using test::Said;
using testing::ElementsAre;
using testing::IsEmpty;

// What the log of these texts makes the doctor say; each is a general line a second after the one before.
Findings FindingsOf(const std::vector<std::string>& texts, const std::string& tag = "  G") {
  std::string log;
  int second = 10;
  for (const std::string& text : texts) {
    log += "07/03/2024 14:05:" + std::to_string(second++) + " " + tag + " :" + text + "\r\n";
  }
  std::istringstream in(log);
  return LogRules(ReadLog(in, "a.log"));
}

TEST(DoctorLog, ASoundOneHasNothingToRemark) {
  EXPECT_THAT(FindingsOf({"Card 0: Trunk 0 - DCHANNEL UP", "Broadcast from Card serial no 100001",
                          "Card reopen has Succeeded", "Card 0 is up", "Dial() -> new call failed",
                          "Dial() -> new call setup failed", "Hangup()-> Failed in Q931 release()",
                          "Hangup()-> Failed in Q931 release()", "Hangup()-> Failed in Q931 release()"}),
              IsEmpty());
}

TEST(DoctorLog, TellsALostCard) {
  const Findings findings = FindingsOf({"Card 1 is down", "Card 1 is up", "Card 1 is down", "Card 0 is down"});
  EXPECT_THAT(Said(findings),
              ElementsAre("warning log-card-lost: In the last day of its log the library lost card 0 (once).",
                          "warning log-card-lost: In the last day of its log the library lost card 1 (2 times)."));
  EXPECT_THAT(findings[1].evidence, ElementsAre("a.log, line 1: 07/03/2024 14:05:10   G :Card 1 is down",
                                                "a.log, line 3: 07/03/2024 14:05:12   G :Card 1 is down"));
}

TEST(DoctorLog, TellsACardThatWasNotOpenedAgain) {
  const Findings findings = FindingsOf({"Card reopen has Succeeded", "Card reopen has failed"});
  EXPECT_THAT(Said(findings),
              ElementsAre("fault log-reopen-failed: A card came back, and the library could not open it again."));
  EXPECT_THAT(findings[0].evidence, ElementsAre("a.log, line 2: 07/03/2024 14:05:11   G :Card reopen has failed"));
  EXPECT_THAT(FindingsOf({"Card reopen has failed", "Card reopen has Succeeded"}), IsEmpty());
}

TEST(DoctorLog, TellsWhatIsBeyondTheLimits) {
  EXPECT_THAT(Said(FindingsOf({"Discovery: more than 20 cards answered, the others are ignored",
                               "Card 19: 4 of 8 Trunks have no channels, the channel table is full"})),
              ElementsAre("warning log-cards-ignored: More cards answered than the library serves, and it ignored the "
                          "others.",
                          "warning log-channels-short: Trunks of card 19 have no channels, because the library's table "
                          "of them is full."));
}

TEST(DoctorLog, TellsAReceiveThreadThatCannotKeepUp) {
  EXPECT_THAT(Said(FindingsOf(
                  {"Card 0: Audio packets have waited for 2100 ms without a break, receive thread cannot keep up."})),
              ElementsAre("warning log-receive-late: Card 0: for seconds on end the library could not keep up with its "
                          "sound (once)."));
}

TEST(DoctorLog, TellsRefusedCalls) {
  EXPECT_THAT(Said(FindingsOf({"Card 4: Trunk 0 - New Call aborted due to BCHANNEL unavailable",
                               "Card 4: Trunk 0 - New Call aborted due to BCHANNEL unavailable"})),
              ElementsAre("warning log-call-refused: Card 4, trunk 0: no channel was open, idle and ready for 2 "
                          "incoming calls, which the library refused."));
}

TEST(DoctorLog, TellsOperationsThatFailAgainAndAgain) {
  const std::string dial = "Dial() -> new call setup failed";
  const std::string answer = "Answer() -> Answer() failed in Q931 Connect().";
  const Findings findings = FindingsOf({dial, dial, dial, answer, answer, answer, answer}, " 12");
  EXPECT_THAT(Said(findings), ElementsAre("warning log-operation-failed: The library could not dial 3 calls.",
                                          "warning log-operation-failed: The library could not answer 4 calls."));
  EXPECT_THAT(findings[0].evidence,
              ElementsAre("a.log, line 3: 07/03/2024 14:05:12  12 :Dial() -> new call setup failed"));
}

TEST(DoctorLog, TellsAWantOfMemory) {
  EXPECT_THAT(Said(FindingsOf({"NewBlock() -> malloc() returned error when allocating 4096 bytes",
                               "Log: lines lost for want of memory: 7"})),
              ElementsAre("warning log-no-memory: The library had no memory for 1 sound.",
                          "warning log-no-memory: Lines are missing in the log: there was no memory for them, or they "
                          "could not be written."));
}

TEST(DoctorLog, TellsWhatIsNone) {
  std::istringstream in(
      "\x7f"
      "ELF\nand so on\n");
  EXPECT_THAT(Said(LogRules(ReadLog(in, "a.log"))),
              ElementsAre("not seen log-unreadable: a.log cannot be read: 2 of its 2 lines are no library's."));
}

}  // namespace
}  // namespace doctor

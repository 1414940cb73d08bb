// SPDX-License-Identifier: GPL-2.0-only
#include "examples/example_fixture.h"

// An announcement machine and its callers: they listen to the end, hang up early, come all at once, lose their trunk.
namespace {

using cardsim::EClearedBy;
using cardsim::ESimCallState;

class Announcement : public CExampleTest {
 protected:
  const Bytes prompt = Sound(700, 1);
  const std::string file = WritePrompt("prompt.wav", prompt);

  // One who listens to the end: the machine ends the call, and what was heard is the prompt to its last sample.
  void ExpectHeardWhole(const Call& call) {
    ASSERT_TRUE(call->WaitEnded(kSoon)) << "timeslot " << call->Timeslot();
    EXPECT_EQ(call->ClearedBy(), EClearedBy::kLibrary);
    EXPECT_EQ(call->Cause(), 16);
    EXPECT_TRUE(WithoutSilence(call->Recorded()) == prompt) << "timeslot " << call->Timeslot();
  }

  // One who hangs up while the prompt is played.
  void HangUpEarly(const Call& call) {
    EXPECT_TRUE(call->Heard()->WaitContains(cardsim::ByteView(prompt).first(1600), kSoon));
    call->Hangup();
    EXPECT_TRUE(call->WaitEnded(kSoon));
  }
};

TEST_F(Announcement, SaysWhatItCannotDoWithout) {
  ExpectRefused({}, 2, "usage: ");
  ExpectRefused({folder.Path("missing.wav")}, 1, folder.Path("missing.wav"));
  ExpectRefused({folder.Write("text.wav", "no sound at all")}, 1, folder.Path("text.wav"));
  ExpectRefused({file}, 1, "no card found");
}

TEST_F(Announcement, IsHeardWholeByEachCallerOfAChannel) {
  ASSERT_NO_FATAL_FAILURE(StartServing({file}));
  HangUpEarly(Connect({.timeslot = 1, .calling = "0305550001"}));
  ASSERT_TRUE(example->WaitLine("channel 0: ended, ", kSoon));
  // Nothing of the call before is heard, and nothing of its end ends this one.
  ExpectHeardWhole(Connect({.timeslot = 1, .calling = "0305550002"}));
  EXPECT_TRUE(example->WaitLine("channel 0: ended, NORMAL_CLEARING", kSoon, 2));
  EXPECT_EQ(CountLines(example->Output(), "channel 0: call from 0305550001"), 1U);
  EXPECT_EQ(CountLines(example->Output(), "channel 0: call from 0305550002"), 1U);
  EndInGoodOrder();
}

TEST_F(Announcement, ServesATrunkFullOfCallersAtOnce) {
  ASSERT_NO_FATAL_FAILURE(StartServing({file}));
  std::vector<Call> calls;
  for (int caller = 0; caller < 30; ++caller) {
    calls.push_back(Card().PlaceCall({}));
  }
  for (size_t caller = 0; caller < calls.size(); caller += 3) {
    HangUpEarly(calls[caller]);
  }
  for (size_t caller = 0; caller < calls.size(); ++caller) {
    if (caller % 3 != 0) {
      ExpectHeardWhole(calls[caller]);
    }
  }
  EXPECT_TRUE(example->WaitLine(": ended, ", kSoon, calls.size()));
  EndInGoodOrder();
}

TEST_F(Announcement, OutlivesTheLossOfATrunk) {
  ASSERT_NO_FATAL_FAILURE(StartServing({file}, {2}));
  const Call lost = Connect({.trunk = 0, .timeslot = 1});
  const Call other = Connect({.trunk = 1, .timeslot = 1});
  ASSERT_TRUE(lost->Heard()->WaitContains(cardsim::ByteView(prompt).first(1600), kSoon));
  LoseTrunk(0);
  EXPECT_TRUE(example->WaitLine("channel 0: ended, trunk lost", kSoon));
  ExpectHeardWhole(other);
  MendTrunk(0);
  ExpectHeardWhole(Connect({.trunk = 0, .timeslot = 2}));
  EndInGoodOrder();
}

}  // namespace

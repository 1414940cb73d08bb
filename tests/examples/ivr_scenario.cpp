// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <filesystem>

#include "examples/example_fixture.h"

// A menu and its callers: they choose, interrupt, mistype, hang up early, stay silent, come all at once.
namespace {

using cardsim::EClearedBy;
using cardsim::ESimCallState;

class Ivr : public CExampleTest {
 protected:
  // Long enough to be interrupted: the rest of a long prompt would be heard for longer than a test may take.
  const Bytes menu = Sound(400, 1);
  const Bytes hours = Sound(20'000, 2);
  const Bytes branches = Sound(300, 3);
  const Bytes north = Sound(200, 4);
  const Bytes south = Sound(250, 5);
  const Bytes wrong = Sound(150, 6);
  const Bytes goodbye = Sound(100, 7);

  void WritePrompts() {
    WritePrompt("menu.wav", menu);
    WritePrompt("hours.wav", hours);
    WritePrompt("branches.wav", branches);
    WritePrompt("north.wav", north);
    WritePrompt("south.wav", south);
    WritePrompt("wrong.wav", wrong);
    WritePrompt("goodbye.wav", goodbye);
  }

  void Start(const std::vector<int>& trunksOfCards = {1}) {
    WritePrompts();
    StartServing({folder.Path(), "--wait", "1"}, trunksOfCards);
  }

  static Bytes Joined(const std::vector<const Bytes*>& parts) {
    Bytes all;
    for (const Bytes* part : parts) {
      all.insert(all.end(), part->begin(), part->end());
    }
    return all;
  }

  // These have been heard one behind the other, without a gap, since the last Press.
  static void ExpectHears(const Call& call, const std::vector<const Bytes*>& parts) {
    const Bytes all = Joined(parts);
    const auto isHeard = [&] { return call->Heard()->WaitContains(all, std::chrono::milliseconds(10)); };
    // Who is hung up on hears nothing more.
    support::Eventually([&] { return isHeard() || call->Reached(ESimCallState::kEnded); }, kSoon);
    EXPECT_TRUE(isHeard());
  }
  static void ExpectBegins(const Call& call, const Bytes& prompt) {
    const Bytes beginning(prompt.begin(), prompt.begin() + 800);
    ExpectHears(call, {&beginning});
  }

  // The menu three times with a second of silence after each, by the sample, and the goodbye.
  void ExpectAskedThreeTimes(const Bytes& heard) {
    constexpr size_t kPause = 8000;
    size_t at = 0;
    for (int time = 0; time < 3; ++time) {
      const size_t begin = Position(heard, menu, at);
      EXPECT_GE(begin, time == 0 ? 0 : at + kPause) << time;
      at = begin + menu.size();
      ASSERT_LT(at, heard.size()) << time;
    }
    EXPECT_GE(Position(heard, goodbye, at), at + kPause);
    EXPECT_LT(Position(heard, goodbye, at), heard.size());
    EXPECT_EQ(Position(heard, menu, at), heard.size()) << "a fourth time";
  }
  static size_t Position(const Bytes& heard, const Bytes& sound, size_t from) {
    const auto at =
        std::search(heard.begin() + static_cast<std::ptrdiff_t>(from), heard.end(), sound.begin(), sound.end());
    return static_cast<size_t>(at - heard.begin());
  }

  // What was heard before is forgotten.
  static void Press(const Call& call, char digit) {
    call->Heard()->Clear();
    call->SendDigits(std::string(1, digit));
  }

  static void ExpectEndedByMachine(const Call& call) {
    EXPECT_TRUE(call->WaitEnded(kSoon));
    EXPECT_EQ(call->ClearedBy(), EClearedBy::kLibrary);
  }
};

TEST_F(Ivr, SaysWhatItCannotDoWithout) {
  ExpectRefused({}, 2, "usage: ");
  ExpectRefused({folder.Path(), "--wait", "never"}, 2, "usage: ");
  WritePrompts();
  ExpectRefused({folder.Path()}, 1, "no card found");
  std::filesystem::remove(folder.Path("south.wav"));
  ExpectRefused({folder.Path()}, 1, folder.Path("south.wav"));
}

TEST_F(Ivr, LeadsOneThroughItsMenusAndAsksASilentOneThreeTimes) {
  ASSERT_NO_FATAL_FAILURE(Start());
  const Call silent = Connect({.timeslot = 2});
  const Call call = Connect({.timeslot = 1, .calling = "0305551234"});
  ExpectBegins(call, menu);
  Press(call, '2');
  ExpectBegins(call, branches);
  Press(call, '1');
  ExpectHears(call, {&north, &branches});
  Press(call, '2');
  ExpectHears(call, {&south, &branches});
  Press(call, '*');
  ExpectHears(call, {&menu});
  Press(call, '0');
  ExpectHears(call, {&goodbye});
  ExpectEndedByMachine(call);
  ExpectEndedByMachine(silent);
  ExpectAskedThreeTimes(WithoutSilence(silent->Recorded()));
  EXPECT_TRUE(example->WaitLine(": ended, NORMAL_CLEARING", kSoon, 2));
  EXPECT_EQ(CountLines(example->Output(), "channel 0: call from 0305551234"), 1U);
  EndInGoodOrder();
}

TEST_F(Ivr, IsInterruptedByADigitAtOnce) {
  ASSERT_NO_FATAL_FAILURE(Start());
  const Call call = Connect({.timeslot = 1});
  ExpectBegins(call, menu);
  Press(call, '1');
  ExpectBegins(call, hours);
  // During an announcement the caller is in the menu that it came from.
  Press(call, '2');
  ExpectHears(call, {&branches});
  const auto whole = call->Recorded();
  EXPECT_LT(whole.size(), hours.size());
  call->Hangup();
  EXPECT_TRUE(call->WaitEnded(kSoon));
  EndInGoodOrder();
}

TEST_F(Ivr, EndsTheCallAtTheThirdWrongEntry) {
  ASSERT_NO_FATAL_FAILURE(Start());
  const Call call = Connect({.timeslot = 1});
  ExpectBegins(call, menu);
  Press(call, '9');
  ExpectHears(call, {&wrong, &menu});
  Press(call, '#');
  ExpectHears(call, {&wrong, &menu});
  // A good entry begins the count anew.
  Press(call, '2');
  ExpectHears(call, {&branches});
  for (const char digit : {'0', '7'}) {
    Press(call, digit);
    ExpectHears(call, {&wrong, &branches});
  }
  Press(call, '8');
  ExpectHears(call, {&wrong, &goodbye});
  ExpectEndedByMachine(call);
  EndInGoodOrder();
}

TEST_F(Ivr, ServesEachCallerOfManyByHimself) {
  ASSERT_NO_FATAL_FAILURE(Start({2}));
  std::vector<Call> calls;
  for (int caller = 0; caller < 24; ++caller) {
    calls.push_back(Connect({.trunk = caller % 2}));
  }
  for (size_t caller = 0; caller < calls.size(); ++caller) {
    ExpectBegins(calls[caller], menu);
    if (caller % 3 == 0) {
      calls[caller]->Hangup();
    } else {
      Press(calls[caller], caller % 3 == 1 ? '2' : '5');
    }
  }
  for (size_t caller = 0; caller < calls.size(); ++caller) {
    if (caller % 3 != 0) {
      ExpectHears(calls[caller],
                  caller % 3 == 1 ? std::vector<const Bytes*>{&branches} : std::vector<const Bytes*>{&wrong, &menu});
    }
  }
  LoseTrunk(0);
  EXPECT_TRUE(example->WaitLine("ended, trunk lost", kSoon, 8));
  MendTrunk(0);
  // Where the lost caller was does not matter to the next.
  const Call next = Connect({.trunk = 0, .timeslot = 20});
  ExpectHears(next, {&menu});
  EndInGoodOrder();
}

}  // namespace

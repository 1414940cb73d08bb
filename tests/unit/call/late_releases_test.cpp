// SPDX-License-Identifier: GPL-2.0-only
#include "call/late_releases.h"

#include "call_fixture.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;

// Without a controller: what the wait itself does. Calls and libpri: call_clearing_test.cpp.
class LateReleases : public CCallFixture {
 protected:
  explicit LateReleases(int32_t direction = 0) : CCallFixture(direction), place(table, 0), releases(place) {}
  ~LateReleases() override { Config().clearedCallTimeoutS = 5; }

  void Hold(int32_t channel, PriCall call) { RingWithTexts(channel, call, ""); }

  CCardChannels place;
  CLateReleases releases;
};

// Nothing in the library makes a channel incoming.
class LateReleasesOfIncoming : public LateReleases {
 protected:
  LateReleasesOfIncoming() : LateReleases(1) {}
};

TEST_F(LateReleases, TimeBeginsWithTheNextLook) {
  Hold(3, PriCall(7));
  releases.Await(3, PriCall(7), 81);
  releases.OnTime(firstCard, 100000, caller);
  releases.OnTime(firstCard, 104999, caller);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_TRUE(releases.IsAwaited());
  releases.OnTime(firstCard, 105000, caller);
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_DISCONNECTED, 81}}));
  EXPECT_EQ(View(3).callHandle, nullptr);
  EXPECT_FALSE(releases.IsAwaited());
}

TEST_F(LateReleases, CounterMayWrap) {
  Hold(3, PriCall(7));
  releases.Await(3, PriCall(7), 16);
  releases.OnTime(firstCard, 0xFFFFFF00, caller);
  releases.OnTime(firstCard, 5000 - 0x101, caller);
  EXPECT_EQ(application.Take(), Posted{});
  releases.OnTime(firstCard, 5000 - 0x100, caller);
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_DISCONNECTED, 16}}));
}

TEST_F(LateReleases, NoCauseReads16) {
  for (const int32_t cause : {0, -1}) {
    Hold(3, PriCall(7));
    releases.Await(3, PriCall(7), cause);
    releases.OnTime(firstCard, 0, caller);
    releases.OnTime(firstCard, 5000, caller);
    EXPECT_EQ(application.Take(), (Posted{{3, EVENT_DISCONNECTED, 16}}));
  }
}

TEST_F(LateReleasesOfIncoming, ResetAllThatACallLeaves) {
  Hold(3, PriCall(7));
  firstCard.Trunk(0).echoEnabled = true;
  Raise(4, kPriConnectAck);
  ASSERT_TRUE(firstCard.Audio().EchoSwitch(0));
  ASSERT_EQ(View(3).direction, 1);
  Channel(3).EndQueue().Push(1);
  releases.Await(3, PriCall(7), 31);
  releases.OnTime(firstCard, 0, caller);
  releases.OnTime(firstCard, 5000, caller);
  EXPECT_FALSE(View(3).connected);
  EXPECT_EQ(View(3).direction, 0);
  EXPECT_FALSE(firstCard.Audio().EchoSwitch(0));
  uint32_t value = 0;
  EXPECT_FALSE(Channel(3).EndQueue().Pop(value));
  EXPECT_EQ(Channel(3).LastCause(), 31);
}

TEST_F(LateReleases, AnotherCallOnTheChannelIsLeftAlone) {
  Hold(3, PriCall(7));
  releases.Await(3, PriCall(7), 16);
  releases.OnTime(firstCard, 0, caller);
  Hold(3, PriCall(8));
  releases.OnTime(firstCard, 5000, caller);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(View(3).callHandle, PriCall(8));
  EXPECT_FALSE(releases.IsAwaited());
}

TEST_F(LateReleases, ALaterCallOfTheChannelWaitsItsOwnTime) {
  Hold(3, PriCall(7));
  releases.Await(3, PriCall(7), 16);
  releases.OnTime(firstCard, 0, caller);
  Hold(3, PriCall(8));
  releases.Await(3, PriCall(8), 17);
  releases.OnTime(firstCard, 4000, caller);
  releases.OnTime(firstCard, 8999, caller);
  EXPECT_EQ(application.Take(), Posted{});
  releases.OnTime(firstCard, 9000, caller);
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_DISCONNECTED, 17}}));
}

TEST_F(LateReleases, EachChannelHasItsOwnTime) {
  for (int32_t channel = 0; channel < 120; ++channel) {
    Hold(channel, PriCall(static_cast<uint64_t>(channel) + 1));
    releases.Await(static_cast<uint32_t>(channel), PriCall(static_cast<uint64_t>(channel) + 1), 16);
    releases.OnTime(firstCard, static_cast<uint32_t>(channel), caller);
  }
  releases.OnTime(firstCard, 5059, caller);
  EXPECT_EQ(application.Take().size(), 60U);
  releases.OnTime(firstCard, 6000, caller);
  EXPECT_EQ(application.Take().size(), 60U);
}

TEST_F(LateReleases, ACallerThatWasGivenUpInTheCallbackReleasesNothingMore) {
  for (const int32_t channel : {3, 4}) {
    Hold(channel, PriCall(7));
    releases.Await(static_cast<uint32_t>(channel), PriCall(7), 16);
  }
  releases.OnTime(firstCard, 0, caller);
  application.reaction = [this](const SPosted&) { caller.Set(); };
  releases.OnTime(firstCard, 5000, caller);
  EXPECT_EQ(application.Take().size(), 1U);
  EXPECT_TRUE(releases.IsAwaited());
}

TEST_F(LateReleases, NeverMeansNever) {
  for (const int32_t seconds : {0, -5}) {
    Config().clearedCallTimeoutS = seconds;
    Hold(3, PriCall(7));
    releases.Await(3, PriCall(7), 16);
    EXPECT_FALSE(releases.IsAwaited());
  }
}

TEST_F(LateReleases, AChannelThatIsGoneIsForgotten) {
  releases.Await(999, PriCall(7), 16);
  releases.OnTime(firstCard, 0, caller);
  releases.OnTime(firstCard, 5000, caller);
  EXPECT_FALSE(releases.IsAwaited());
  EXPECT_EQ(application.Take(), Posted{});
}

}  // namespace
}  // namespace zelk::test

// SPDX-License-Identifier: GPL-2.0-only
#include "phone/hang_up_watch.h"

#include <gtest/gtest.h>

namespace phone {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class HangUpWatch : public testing::Test {
 protected:
  HangUpWatch() { watch.Begin(begin); }
  bool IsLost(bool isChannelInUse, milliseconds after) { return watch.IsLost(isChannelInUse, begin + after); }

  const CHangUpWatch::Time begin{std::chrono::hours(1)};
  CHangUpWatch watch;
};

// The library's thread was stopped between the two.
TEST_F(HangUpWatch, AChannelThatIsFreeIsNotLostBeforeItsEventCouldCome) {
  EXPECT_FALSE(IsLost(true, milliseconds(100)));
  EXPECT_FALSE(IsLost(false, milliseconds(200)));
  EXPECT_FALSE(IsLost(false, milliseconds(1200)));
  EXPECT_TRUE(IsLost(false, milliseconds(1201)));
}

TEST_F(HangUpWatch, ACallThatIsNotConfirmedIsLost) {
  EXPECT_FALSE(IsLost(true, seconds(10)));
  EXPECT_TRUE(IsLost(true, milliseconds(10'001)));
}

TEST_F(HangUpWatch, AChannelThatIsFreedLateHasItsTimeForTheEvent) {
  EXPECT_FALSE(IsLost(true, milliseconds(9900)));
  EXPECT_FALSE(IsLost(false, milliseconds(10'100)));
  EXPECT_TRUE(IsLost(false, milliseconds(11'200)));
}

// The next call may have it already.
TEST_F(HangUpWatch, AChannelThatIsTakenAgainHasBeenFree) {
  EXPECT_FALSE(IsLost(false, milliseconds(100)));
  EXPECT_FALSE(IsLost(true, milliseconds(600)));
  EXPECT_TRUE(IsLost(true, milliseconds(1200)));
}

TEST(HangUpWatchBefore, NothingHasBegun) {
  CHangUpWatch watch;
  EXPECT_FALSE(watch.HasBegun());
  watch.Begin({});
  EXPECT_TRUE(watch.HasBegun());
}

}  // namespace
}  // namespace phone

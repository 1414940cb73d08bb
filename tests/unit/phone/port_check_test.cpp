// SPDX-License-Identifier: GPL-2.0-only
#include "phone/port_check.h"

#include <gtest/gtest.h>

namespace phone {
namespace {

constexpr uint32_t kOwnPid = 77;

TEST(PortCheck, AnotherProcessOnThePortIsNamed) {
  EXPECT_EQ(
      RefusalText({{4242, "announcer"}}, kOwnPid),
      "UDP port 5854 is held by process 4242 (announcer): another program uses the cards, and its calls would end "
      "(--force starts all the same)");
}

TEST(PortCheck, SeveralAreAllNamedAndOneThatIsNotToldCountsToo) {
  const std::string text = RefusalText({{4242, "announcer"}, {5, ""}, {0, ""}}, kOwnPid);
  EXPECT_NE(text.find("held by process 4242 (announcer), process 5, a process that the system does not name: "),
            std::string::npos)
      << text;
}

TEST(PortCheck, NobodyOwnSocketsAndSimulatedCardsAreNoReason) {
  EXPECT_EQ(RefusalText({}, kOwnPid), "");
  EXPECT_EQ(RefusalText({{kOwnPid, "zelk-phone"}}, kOwnPid), "");
  EXPECT_EQ(RefusalText({{5, "zelk-cardsim"}, {6, "zelk-cardsim.exe"}}, kOwnPid), "");
  EXPECT_NE(RefusalText({{5, "zelk-cardsim"}, {6, "zelk-phone"}}, kOwnPid), "");
}

}  // namespace
}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only

// The log lines of cards and trunks.
#include "call/trunk_status.h"
#include "trunk_status_fixture.h"

namespace zelk::test {
namespace {

using TrunkStatusLines = CTrunkStatusFixture;

TEST_F(TrunkStatusLines, StatusLines) {
  CLogCapture log(1);
  secondHandlers.OnDchannelUp(0, caller);
  firstHandlers.OnDchannelDown(3, caller);
  firstHandlers.OnLineStatus(0, 1);
  for (uint32_t queue = 0; queue < 3; ++queue) {
    firstHandlers.OnQueueOverflow(1, queue);
  }
  for (const int error : {2, 3, 4, 8, 5}) {
    firstHandlers.OnHdlcError(2, static_cast<uint8_t>(error));
  }
  firstHandlers.OnConfigError(0);
  firstHandlers.OnLinkReset(firstCard, 0, 2);
  secondHandlers.OnRegister(0, 0x1006, 0xA);
  EXPECT_EQ(log.Lines(), (Lines{
                             "  G :Card 4: Trunk 0 - DCHANNEL UP",
                             "  G :Card 0: Trunk 3 - DCHANNEL DOWN",
                             "  G :Card 0: Trunk 1 - Incoming HDLC Queue Overflow Error",
                             "  G :Card 0: Trunk 1 - Outgoing HDLC Queue Overflow Error",
                             "  G :Card 0: Trunk 1 - Unknown HDLC Queue Overflow Error",
                             "  G :Card 0: Trunk 2 - HDLC CRC Error",
                             "  G :Card 0: Trunk 2 - HDLC ABORT Error",
                             "  G :Card 0: Trunk 2 - HDLC OVERRUN Error",
                             "  G :Card 0: Trunk 2 - HDLC Buffer Overflow Error",
                             "  G :Card 0: Trunk 2 - HDLC Unknown Error",
                             "  G :Card 0: Trunk 0 - Configuration Incorrect. Please set ClientType=1 for NT or "
                             "ClientType=2 for TE",
                             "  G :Card 0: Trunk 0 - Link Reset (Too Many HDLC Errors)",
                             "  G :READREG: CardNo=4 LinkNo=0, Reg[0x1006] = 0A ",
                         }));
}

TEST_F(TrunkStatusLines, RegisterLineBelongsToTheDetailClass) {
  CLogCapture log(2);
  firstHandlers.OnRegister(0, 0x1006, 1);
  firstHandlers.OnConfigError(0);
  EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(TrunkStatusLines, NoStatusLineAboveLevel2) {
  CLogCapture log(3);
  firstHandlers.OnDchannelUp(0, caller);
  firstHandlers.OnDchannelDown(0, caller);
  firstHandlers.OnLineStatus(0, 0);
  firstHandlers.OnQueueOverflow(0, 0);
  firstHandlers.OnHdlcError(0, 0);
  firstHandlers.OnConfigError(0);
  firstHandlers.OnLinkReset(firstCard, 0, 0);
  firstHandlers.OnRegister(0, 0, 0);
  firstHandlers.OnCardDown(caller);
  firstHandlers.OnNotice("x");
  EXPECT_EQ(log.Lines(), Lines{});
  EXPECT_EQ(application.Take().size(), 30U + 30U + 120U);
}

TEST_F(TrunkStatusLines, CardLinesShowTheCardsIndex) {
  CLogCapture log(2);
  secondHandlers.OnCardUp();
  secondHandlers.OnCardDown(caller);
  secondHandlers.OnNotice("Old/Duplicate Packet -> 5, ignored.");
  secondHandlers.OnNotice("%s%n");
  secondHandlers.OnNotice("");
  EXPECT_EQ(log.Lines(),
            (Lines{"  G :Card 1 is up", "  G :Card 1 is down", "  G :Card 1: Old/Duplicate Packet -> 5, ignored.",
                   "  G :Card 1: %s%n", "  G :Card 1: "}));
}

}  // namespace
}  // namespace zelk::test

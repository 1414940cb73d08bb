// SPDX-License-Identifier: GPL-2.0-only
#include "card/card_core.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <thread>

#include "card/card.h"
#include "platform/clock.h"
#include "recording_handlers.h"
#include "support/pri_pair.h"

namespace zelk {
namespace {

class CardCore : public testing::Test {
 protected:
  CCard card{0};
  CCardCore core{card, 0};
  CRecordingHandlers handlers;
  CStopFlag caller;
};

TEST_F(CardCore, FramesOfLibpriAreTakenWithTheirFcs) {
  const uint8_t frame[5] = {};
  EXPECT_EQ(core.OnPriFrame(0, frame, 5), 5);
  EXPECT_EQ(core.OnPriFrame(0, frame, 2), 2);
  EXPECT_EQ(core.OnPriFrame(0, frame, 1), 0);
  EXPECT_EQ(core.OnPriFrame(8, frame, 5), 0);
}

TEST_F(CardCore, AFrameTooLongForAMessageIsRefusedButTakenFromLibpri) {
  const std::vector<uint8_t> frame(303, 0);
  EXPECT_TRUE(core.SendDchannelFrame(0, frame.data(), 300));
  EXPECT_FALSE(core.SendDchannelFrame(0, frame.data(), 301));
  EXPECT_EQ(core.OnPriFrame(0, frame.data(), 303), 303);
}

TEST_F(CardCore, KnowsOfEachTrunkHowOftenTimersMovedAndWhetherItsFramesPileUp) {
  const uint32_t before = core.trunks[7].timerMoves;
  core.OnTimersMoved(7, true);
  EXPECT_TRUE(core.trunks[7].isBacklogged);
  core.OnTimersMoved(7, false);
  core.OnTimersMoved(kMaxTrunks, true);
  EXPECT_FALSE(core.trunks[7].isBacklogged);
  EXPECT_FALSE(core.trunks[6].isBacklogged);
  EXPECT_EQ(core.trunks[7].timerMoves, before + 2);
  EXPECT_EQ(core.trunks[6].timerMoves, before);
}

TEST_F(CardCore, AudioNoticesAreCardNotices) {
  core.OnAudioNotice("before the handlers");
  core.handlers = &handlers;
  core.OnAudioNotice("text");
  EXPECT_EQ(handlers.Seen(), Reports{Notice("text")});
}

TEST_F(CardCore, MessageLinesShowTheTrunksOfEarlierCards) {
  EXPECT_EQ(core.MessageCard(), 0U);
  handlers.firstGlobalTrunk = 9;
  core.handlers = &handlers;
  EXPECT_EQ(core.MessageCard(), 9U);
}

TEST_F(CardCore, CardStatesNeedHandlers) {
  core.ReportCardUp();
  core.handlers = &handlers;
  core.ReportCardDown(caller);
  EXPECT_EQ(handlers.Seen(), Reports{CardDown()});
}

TEST_F(CardCore, ControllersAreReleasedWithoutTheOneInUse) {
  CPriSide side(2);
  for (CTrunk& trunk : core.trunks) {
    trunk.controller = CPriController::Create(core, 0, 2, 5);
    trunk.generation = 7;
  }
  CEvent isHeld;
  CEvent mayGo;
  std::thread user([&] {
    const CScopedLock<CRecursiveMutex> held(core.trunks[3].lock);
    isHeld.Set();
    mayGo.Wait();
  });
  isHeld.Wait();
  EXPECT_FALSE(core.ReleaseControllers({20, caller}));
  for (size_t trunk = 0; trunk < kMaxTrunks; ++trunk) {
    EXPECT_EQ(core.trunks[trunk].controller != nullptr, trunk == 3) << trunk;
  }
  mayGo.Set();
  user.join();
  core.ReleaseLeftovers(6);
  EXPECT_NE(core.trunks[3].controller, nullptr);
  core.ReleaseLeftovers(7);
  EXPECT_EQ(core.trunks[3].controller, nullptr);
  EXPECT_TRUE(core.ReleaseControllers({0, caller}));
}

}  // namespace
}  // namespace zelk

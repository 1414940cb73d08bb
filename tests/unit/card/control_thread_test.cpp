// SPDX-License-Identifier: GPL-2.0-only
#include "card/control_thread.h"

#include <gtest/gtest.h>

#include "card/card.h"
#include "recording_handlers.h"
#include "support/allocation_probe.h"
#include "support/pri_pair.h"

namespace zelk {
namespace {

// What the thread does with the messages of a card; the thread itself does not run.
class ControlThread : public testing::Test {
 protected:
  ControlThread() { core->handlers = &handlers; }

  // A new one, which has not spoken with the exchange.
  void GiveController(uint32_t generation = 1) {
    const CScopedLock<CRecursiveMutex> held(core->trunks[0].lock);
    core->trunks[0].controller = CPriController::Create(*core, 0, 2, 5);
    core->trunks[0].generation = generation;
  }

  // Of the exchange: the answer to the SABME that every controller begins with, and two calls on timeslot 1.
  static constexpr uint8_t kUa[] = {0x00, 0x01, 0x73, 0, 0};
  static constexpr uint8_t kSetup[] = {0x02, 0x01, 0x00, 0x00, 0x08, 0x02, 0x00, 0x01, 0x05, 0x04, 0x03, 0x80, 0x90,
                                       0xA3, 0x18, 0x03, 0xA9, 0x83, 0x81, 0x70, 0x02, 0x81, 0x31, 0,    0};
  static constexpr uint8_t kSetupAgain[] = {0x02, 0x01, 0x02, 0x00, 0x08, 0x02, 0x00, 0x02, 0x05,
                                            0x04, 0x03, 0x80, 0x90, 0xA3, 0x18, 0x03, 0xA9, 0x83,
                                            0x81, 0x70, 0x02, 0x81, 0x31, 0,    0};

  CCard card{0};
  std::shared_ptr<CCardCore> core = std::make_shared<CCardCore>(card, 0);
  CRecordingHandlers handlers;
  CControlThread thread{core, std::make_shared<CSocket>(), 1};
};

TEST_F(ControlThread, ALineStatusIsReportedWhenItDiffers) {
  thread.OnLineStatus(1, 3);
  EXPECT_TRUE(handlers.Seen().empty());
  thread.OnLineStatus(1, 0);
  thread.OnLineStatus(1, 0);
  thread.OnLineStatus(2, 0);
  thread.OnLineStatus(1, 255);
  EXPECT_EQ(handlers.Seen(), (Reports{LineStatus(1, 0), LineStatus(2, 0), LineStatus(1, 255)}));
  EXPECT_EQ(core->trunks[1].lineStatus, 255);
}

TEST_F(ControlThread, ALineStatusIsKeptWithoutHandlers) {
  core->handlers = nullptr;
  thread.OnLineStatus(0, 7);
  EXPECT_EQ(core->trunks[0].lineStatus, 7);
}

TEST_F(ControlThread, ARegisterIsReportedWithNumberAndValue) {
  thread.OnRegister(200, 0x1006, 0xAB);
  EXPECT_EQ(handlers.Seen(), Reports{Register(200, 0x1006, 171)});
}

TEST_F(ControlThread, HdlcErrorsOfALineInServiceAreReported) {
  thread.OnHdlcError(1, 2);
  EXPECT_TRUE(handlers.Seen().empty()) << "the line is not in service";
  core->trunks[1].lineStatus = 0;
  for (int i = 0; i < 11; ++i) {
    thread.OnHdlcError(1, 2);
  }
  EXPECT_EQ(handlers.Count(HdlcError(1, 2)), 9U);
  EXPECT_EQ(handlers.Count(LinkReset(1, 2)), 1U);
}

TEST_F(ControlThread, AGoodFrameStartsTheErrorCountAnew) {
  core->trunks[0].lineStatus = 0;
  const uint8_t frame[5] = {};
  for (int i = 0; i < 9; ++i) {
    thread.OnHdlcError(0, 4);
  }
  thread.OnFrame(0, frame, sizeof frame);
  for (int i = 0; i < 9; ++i) {
    thread.OnHdlcError(0, 4);
  }
  EXPECT_EQ(handlers.Count(HdlcError(0, 4)), 18U);
  EXPECT_EQ(handlers.Seen().size(), 18U);
}

TEST_F(ControlThread, AnHdlcErrorOfATrunkThatCannotBeIsDropped) {
  thread.OnHdlcError(8, 2);
  thread.OnHdlcError(255, 2);
  EXPECT_TRUE(handlers.Seen().empty());
}

TEST_F(ControlThread, ATrunkCountComesFromTheCard) {
  EXPECT_EQ(thread.StatusTrunkCount(), 0U);
  core->facts.trunkCount = 5;
  EXPECT_EQ(thread.StatusTrunkCount(), 5U);
}

TEST_F(ControlThread, AFrameForATrunkWithoutAControllerIsDropped) {
  core->controllersRunning = true;
  const uint8_t sabme[] = {0x00, 0x01, 0x7F, 0, 0};
  thread.OnFrame(7, sabme, sizeof sabme);
  EXPECT_TRUE(handlers.Seen().empty());
}

TEST_F(ControlThread, FramesReachAControllerOnlyWhileTheControllersRun) {
  {
    const CScopedLock<CRecursiveMutex> held(core->trunks[0].lock);
    core->trunks[0].controller = CPriController::Create(*core, 0, 2, 5);
  }
  const uint8_t ua[] = {0x00, 0x01, 0x73, 0, 0};  // answers the SABME that every controller begins with
  thread.OnFrame(0, ua, sizeof ua);
  EXPECT_TRUE(handlers.Seen().empty());
  core->controllersRunning = true;
  thread.OnFrame(0, ua, sizeof ua);
  EXPECT_EQ(handlers.Seen(), Reports{DchannelUp(0)});
}

TEST_F(ControlThread, AStoppedThreadLeavesWhatTheCardSaysAlone) {
  thread.RequestStop();
  const uint8_t body[kCardInformationBytes] = {'Z', 'E', 'L', 'K', ' ', 2, 3, 1, 0, 0, 0, 5, 0, 0, 0, 24, 1, 15, 9};
  thread.OnInformation(body);
  EXPECT_EQ(core->facts.serialNumber, 0U) << "the next generation would take it for its own card's";
  thread.OnLineStatus(1, 0);
  EXPECT_EQ(core->trunks[1].lineStatus, 3);
}

// The trunk is held from the callback on: nobody can use the controller in between.
TEST_F(ControlThread, AControllerLeftToACallbackGoesBeforeTheTrunkIsFree) {
  GiveController();
  core->controllersRunning = true;
  handlers.onDchannelUp = [&](uint32_t) {
    core->controllersRunning = false;
    thread.RequestStop();
  };
  const CScopedLock<CRecursiveMutex> held(core->trunks[0].lock);
  thread.OnFrame(0, kUa, sizeof kUa);
  EXPECT_EQ(handlers.Seen(), Reports{DchannelUp(0)});
  EXPECT_EQ(core->trunks[0].controller, nullptr);
}

TEST_F(ControlThread, AStoppedThreadLeavesALaterGenerationsControllerAlone) {
  GiveController(2);
  thread.RequestStop();
  thread.OnFrame(0, kUa, sizeof kUa);
  EXPECT_TRUE(handlers.Seen().empty());
  const CScopedLock<CRecursiveMutex> held(core->trunks[0].lock);
  EXPECT_NE(core->trunks[0].controller, nullptr);
}

// Memory that runs out costs the report or the frame at hand; the next one is taken as if nothing had been.
TEST_F(ControlThread, WithoutMemoryAReportOrAFrameIsLostAndNoMore) {
  core->controllersRunning = true;
  const uint8_t body[kCardInformationBytes] = {'Z', 'E', 'L', 'K', ' ', 2, 3, 1, 0, 0, 0, 5, 0, 0, 0, 24, 1, 15, 9};
  CPriSide network(1);
  uint32_t failures = 0;
  for (bool failed = true; failed; ++failures) {
    GiveController();
    support::FailAllocation(failures + 1);
    thread.OnLineStatus(1, static_cast<uint8_t>(failures % 2));
    thread.OnRegister(0, 0x1006, 1);
    thread.OnInformation(body);
    thread.OnFrame(0, kUa, sizeof kUa);
    thread.OnFrame(0, kSetup, sizeof kSetup);
    failed = support::AllocationFailed();
    support::FailAllocation(0);
    const size_t rings = handlers.Count(CallEvent(0, 1, CALLEV_RING));
    thread.OnFrame(0, kSetupAgain, sizeof kSetupAgain);
    EXPECT_EQ(handlers.Count(CallEvent(0, 1, CALLEV_RING)), rings + 1) << failures;
  }
  EXPECT_GT(failures, 2U);
  EXPECT_EQ(core->facts.serialNumber, 5U);
}

TEST_F(ControlThread, NothingIsReportedAfterAStop) {
  core->trunks[0].lineStatus = 0;
  thread.RequestStop();
  thread.OnLineStatus(1, 0);
  thread.OnRegister(0, 1, 1);
  thread.OnHdlcError(0, 2);
  EXPECT_TRUE(handlers.Seen().empty());
}

}  // namespace
}  // namespace zelk

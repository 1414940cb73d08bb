#include "card/control_thread.h"

#include <gtest/gtest.h>

#include "card/card.h"
#include "recording_handlers.h"

namespace zelk {
namespace {

using Lines = std::vector<std::string>;

// What the thread does with the messages of a card; the thread itself does not run.
class ControlThread : public testing::Test {
 protected:
  ControlThread() { core->handlers = &handlers; }

  CCard card{0};
  std::shared_ptr<CCardCore> core = std::make_shared<CCardCore>(card, 0);
  CRecordingHandlers handlers;
  CControlThread thread{core, std::make_shared<CSocket>(), 1};
};

TEST_F(ControlThread, ALineStatusIsReportedWhenItDiffers) {
  thread.OnLineStatus(1, 3);
  EXPECT_TRUE(handlers.Lines().empty());
  thread.OnLineStatus(1, 0);
  thread.OnLineStatus(1, 0);
  thread.OnLineStatus(2, 0);
  thread.OnLineStatus(1, 255);
  EXPECT_EQ(handlers.Lines(), (Lines{"trunk 1 260 0 0", "trunk 2 260 0 0", "trunk 1 260 0 255"}));
  EXPECT_EQ(core->trunks[1].lineStatus, 255);
}

TEST_F(ControlThread, ALineStatusIsKeptWithoutHandlers) {
  core->handlers = nullptr;
  thread.OnLineStatus(0, 7);
  EXPECT_EQ(core->trunks[0].lineStatus, 7);
}

TEST_F(ControlThread, ARegisterIsReportedWithNumberAndValue) {
  thread.OnRegister(200, 0x1006, 0xAB);
  EXPECT_EQ(handlers.Lines(), Lines{"trunk 200 265 4102 171"});
}

TEST_F(ControlThread, HdlcErrorsOfALineInServiceAreReported) {
  thread.OnHdlcError(1, 2);
  EXPECT_TRUE(handlers.Lines().empty()) << "the line is not in service";
  core->trunks[1].lineStatus = 0;
  for (int i = 0; i < 11; ++i) {
    thread.OnHdlcError(1, 2);
  }
  EXPECT_EQ(handlers.Count("trunk 1 262 0 2"), 9U);
  EXPECT_EQ(handlers.Count("trunk 1 264 0 2"), 1U);
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
  EXPECT_EQ(handlers.Count("trunk 0 262 0 4"), 18U);
  EXPECT_EQ(handlers.Lines().size(), 18U);
}

TEST_F(ControlThread, AnHdlcErrorOfATrunkThatCannotBeIsDropped) {
  thread.OnHdlcError(8, 2);
  thread.OnHdlcError(255, 2);
  EXPECT_TRUE(handlers.Lines().empty());
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
  EXPECT_TRUE(handlers.Lines().empty());
}

TEST_F(ControlThread, FramesReachAControllerOnlyWhileTheControllersRun) {
  {
    const CScopedLock<CRecursiveMutex> held(core->trunks[0].lock);
    core->trunks[0].controller = CPriController::Create(*core, 0, 2, 5);
  }
  const uint8_t ua[] = {0x00, 0x01, 0x73, 0, 0};  // answers the SABME that every controller begins with
  thread.OnFrame(0, ua, sizeof ua);
  EXPECT_TRUE(handlers.Lines().empty());
  core->controllersRunning = true;
  thread.OnFrame(0, ua, sizeof ua);
  EXPECT_EQ(handlers.Lines(), Lines{"trunk 0 257 0 0"});
}

TEST_F(ControlThread, NothingIsReportedAfterAStop) {
  core->trunks[0].lineStatus = 0;
  thread.RequestStop();
  thread.OnLineStatus(1, 0);
  thread.OnRegister(0, 1, 1);
  thread.OnHdlcError(0, 2);
  EXPECT_TRUE(handlers.Lines().empty());
}

}  // namespace
}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "world/wire_capture.h"

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "trace/core/analysis.h"

namespace world {
namespace {

// A minute with calls both ways, and the card's connection lost in the middle.
SWorldPlan Minute() {
  SWorldPlan plan;
  plan.seed = 3;
  plan.cards = {{1, 0}};
  plan.manners = {SManner()};
  plan.faults = {{.atMs = 30'000, .kind = EFault::kDropControl}};
  for (int i = 0; i < 8; ++i) {
    SFarEndPlan farEnd;
    farEnd.hangupAfterMs = 1500;
    const int64_t atMs = (i < 4 ? 0 : 40'000) + 2000 * i;
    plan.offers.push_back({atMs, 0, 0, 4 + i, farEnd});
    plan.steps.push_back({atMs + 100, 0, EStep::kDial, 20 + i, farEnd});
  }
  return plan;
}

class CHeard : public trace::ITraceSink {
 public:
  void OnCallEnds(const trace::SCall& call) override {
    calls += call.connected != 0 && call.how == trace::ECallEnd::kReleased ? 1 : 0;
  }
  void OnConnected(const trace::SConnection&) override { ++connections; }
  void OnAudio(const trace::SAudio&) override { ++sound; }

  uint64_t calls = 0;  // connected, and cleared to the end
  int connections = 0;
  uint64_t sound = 0;
};

struct SReading {
  SRunResult run;
  CHeard heard;
  std::vector<std::string> notes;
};

SReading Read(bool hasSound) {
  const zelk::CTempDir folder;
  const SWireFile wire{folder.Path("wire.pcapng"), hasSound};
  SReading reading;
  reading.run = RunWorldApart(Minute(), wire);
  trace::CCaptureFile file(wire.path);
  trace::CAnalysis analysis(reading.heard, 0);
  analysis.Run(file);
  reading.notes = analysis.Notes();
  return reading;
}

TEST(WireCapture, TellsTheCallsThatTheFarEndsHad) {
  const SReading reading = Read(false);
  EXPECT_TRUE(reading.run.failures.empty()) << reading.run.failures.front();
  EXPECT_EQ(reading.heard.calls, reading.run.calls);
  EXPECT_EQ(reading.heard.connections, 2);
  EXPECT_EQ(reading.heard.sound, 0U);
  EXPECT_EQ(reading.notes, std::vector<std::string>()) << reading.notes.front();
}

TEST(WireCapture, HoldsTheSoundWhenThatIsWanted) {
  constexpr uint64_t kPacketsASecond = 400;  // 200 each way
  const SReading reading = Read(true);
  EXPECT_EQ(reading.heard.calls, reading.run.calls);
  EXPECT_GT(reading.heard.sound, 60 * kPacketsASecond);
}

TEST(WireCapture, ChangesNothing) {
  const zelk::CTempDir folder;
  const SRunResult alone = RunWorldApart(Minute());
  const SRunResult captured = RunWorldApart(Minute(), {folder.Path("wire.pcapng"), true});
  EXPECT_EQ(alone.ToText(), captured.ToText());
}

}  // namespace
}  // namespace world

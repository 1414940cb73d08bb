// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/world.h"

#include <utility>

#include "platform/simulated/files.h"
#include "platform/simulated/network.h"

namespace zelk::sim {

namespace {

CWorld* running = nullptr;

bool CountsDown(uint32_t& left) {
  return left != 0 && --left == 0;
}

}  // namespace

bool SScarcity::IsThreadStartToFail() {
  return CountsDown(failingThreadStart);
}

bool SScarcity::IsSocketOpenToFail() {
  return CountsDown(failingSocketOpen);
}

bool SScarcity::IsAllocationToFail() {
  if (!CountsDown(failingAllocation)) {
    return false;
  }
  if (failingInARow > 1) {
    --failingInARow;
    failingAllocation = 1;
  }
  return true;
}

CWorld::CWorld(const SWorldOptions& worldOptions)
    : options(worldOptions),
      scheduler(options),
      network(std::make_unique<CNetwork>(*this)),
      files(std::make_unique<CFiles>(*this)),
      wallClockMs(options.startUnixMs) {}

// Acts may hold what belongs to the network.
CWorld::~CWorld() {
  scheduler.Agenda() = CAgenda();
}

CWorld* CWorld::Current() {
  return running;
}

SOutcome CWorld::Run(std::function<void()> main) {
  running = this;
  const EVerdict verdict = scheduler.Run(std::move(main));
  running = nullptr;
  return {verdict, scheduler.Report(), scheduler.Trace().Hash(), scheduler.Steps(), scheduler.Switches(), NowUs()};
}

bool CWorld::Start(const std::string& name, std::function<void()> body) {
  return scheduler.Start(name, std::move(body)) != nullptr;
}

uint64_t CWorld::At(int64_t timeUs, std::function<void()> act) {
  return scheduler.Agenda().Add(timeUs, std::move(act));
}

uint64_t CWorld::After(int64_t us, std::function<void()> act) {
  return At(NowUs() + us, std::move(act));
}

bool CWorld::Cancel(uint64_t number) {
  return scheduler.Agenda().Cancel(number);
}

uint32_t CWorld::TickMs() const {
  return options.startTickMs + static_cast<uint32_t>(NowUs() / kUsPerMs);
}

CBound::CBound(CWorld& boundWorld, const std::string& what, int64_t mostUs)
    : world(boundWorld),
      number(world.After(mostUs, [&owner = world, what] { owner.Fail(what + " takes longer than it may"); })) {}

CBound::~CBound() {
  world.Cancel(number);
}

}  // namespace zelk::sim

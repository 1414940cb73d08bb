// SPDX-License-Identifier: GPL-2.0-only
#include "platform/clock.h"

#include <sys/time.h>

#include <chrono>
#include <ctime>

#include "platform/simulated/world.h"

namespace zelk {

using sim::CWorld;

namespace {

// Polling the clock is a step as well: who does nothing else must not keep the others from going on.
const CWorld* WorldAfterStep() {
  CWorld* const world = CWorld::Current();
  if (world != nullptr) {
    world->Scheduler().Step(sim::EStep::kClock);
  }
  return world;
}

int64_t UnixMs() {
  const CWorld* const world = WorldAfterStep();
  return world == nullptr ? 0 : world->UnixMs();
}

}  // namespace

uint32_t TickMs() {
  const CWorld* const world = WorldAfterStep();
  return world == nullptr ? 0 : world->TickMs();
}

SUnixTime UnixNow() {
  const int64_t now = UnixMs();
  return {now / 1000, static_cast<int32_t>(now % 1000 * 1000)};
}

// The world's local time is UTC.
SLocalTime LocalNow() {
  const std::chrono::sys_seconds now{std::chrono::seconds(UnixMs() / 1000)};
  const auto midnight = std::chrono::floor<std::chrono::days>(now);
  const std::chrono::year_month_day date(midnight);
  const std::chrono::hh_mm_ss time(now - midnight);
  return {static_cast<uint16_t>(static_cast<int>(date.year())),
          static_cast<uint16_t>(static_cast<unsigned>(date.month())),
          static_cast<uint16_t>(static_cast<unsigned>(date.day())),
          static_cast<uint16_t>(time.hours().count()),
          static_cast<uint16_t>(time.minutes().count()),
          static_cast<uint16_t>(time.seconds().count())};
}

void SleepMs(uint32_t milliseconds) {
  CWorld* const world = CWorld::Current();
  if (world == nullptr) {
    return;
  }
  sim::CScheduler& scheduler = world->Scheduler();
  if (milliseconds == 0) {
    scheduler.Yield();
    return;
  }
  scheduler.Step(sim::EStep::kSleep, milliseconds);
  scheduler.Block({sim::EWaitFor::kTime, nullptr, scheduler.NowUs() + int64_t{milliseconds} * sim::kUsPerMs, 0});
}

bool SleepsAreExact() {
  return true;
}

}  // namespace zelk

// What libpri, built for a world, calls instead of the system.
extern "C" {
int zelk_world_time_of_day(timeval* now, void* zone);
time_t zelk_world_time(time_t* now);
long zelk_world_random(void);
}

int zelk_world_time_of_day(timeval* now, void*) {
  const zelk::SUnixTime time = zelk::UnixNow();
  now->tv_sec = time.seconds;
  now->tv_usec = time.microseconds;
  return 0;
}

time_t zelk_world_time(time_t* now) {
  const time_t seconds = zelk::UnixNow().seconds;
  if (now != nullptr) {
    *now = seconds;
  }
  return seconds;
}

long zelk_world_random(void) {
  zelk::CWorld* const world = zelk::CWorld::Current();
  return world == nullptr ? 0 : static_cast<long>(world->Random().Next() >> 33);
}

// SPDX-License-Identifier: GPL-2.0-only
#include "world/log_watch.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "platform/clock.h"
#include "platform/simulated/files.h"
#include "runtime/log.h"

namespace world {
namespace {

constexpr const char* kLog = "/world/libZelkApi.log";
constexpr uint32_t kGatherMs = 100;  // the writer's
constexpr uint32_t kWrittenMs = 500;
constexpr int64_t kMostBetweenMs = 4000;
constexpr int64_t kMostSteps = 12;
constexpr uint64_t kRoundsAStart = 8;
constexpr uint32_t kEndMs = 10'000;

std::string MarkOf(uint64_t line) {
  return "Log watch: line " + std::to_string(line) + ".";
}

// As it begins: a date and a time.
bool IsWhole(std::string_view line) {
  return line.size() > 20 && std::isdigit(static_cast<unsigned char>(line[0])) != 0 && line.back() == '\r';
}

}  // namespace

CLogWatch::CLogWatch(zelk::sim::CWorld& ownWorld, CChecks& ownChecks, const SWorldPlan& worldPlan)
    : world(ownWorld), plan(worldPlan), checks(ownChecks), random(worldPlan.seed) {}

void CLogWatch::Begin() {
  thread.Start("log watch", [this] { Run(); });
}

void CLogWatch::End() {
  ending.Set();
  checks.Require(thread.JoinFor(kEndMs), "the log's watch does not end");
}

void CLogWatch::StartNoMore() {
  mayStart = false;
  while (isStarting) {
    zelk::SleepMs(1);
  }
}

void CLogWatch::StartAgain() {
  if (mayStart && random.Below(kRoundsAStart) == 0) {
    isStarting = true;
    checks.Require(checks.Init(), "ZELK_Init has failed in a library that runs");
    isStarting = false;
  }
}

std::string CLogWatch::WriteLine() {
  std::string mark = MarkOf(++lines);
  if (plan.planted != EPlanted::kLostLine) {
    zelk::LogLine(mark.c_str(), zelk::kGeneralLine);
  }
  return mark;
}

void CLogWatch::Await(const std::string& mark) {
  const std::string text = world.Files().Read(kLog).value_or("");
  checks.Require(text.find(mark) != std::string::npos, "not in the log after half a second: " + mark);
}

void CLogWatch::Run() {
  while (!ending.WaitFor(static_cast<uint32_t>(random.Between(1, kMostBetweenMs)))) {
    WriteLine();
    StartAgain();
    zelk::SleepMs(kGatherMs);
    for (int64_t steps = random.Between(0, kMostSteps); steps > 0; --steps) {
      zelk::TickMs();
    }
    const std::string second = WriteLine();
    zelk::SleepMs(kWrittenMs);
    Await(second);
  }
}

void CLogWatch::CheckFile() {
  const std::string text = world.Files().Read(kLog).value_or("");
  size_t broken = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    broken += IsWhole(std::string_view(text).substr(at, end - at)) ? 0U : 1U;
    at = end + 1;
  }
  checks.Require(broken == 0, "broken lines in the log: " + std::to_string(broken));
  size_t at = 0;
  for (uint64_t line = 1; line <= lines && at != std::string::npos; ++line) {
    at = text.find(MarkOf(line), at);
    checks.Require(at != std::string::npos, "lost from the log: " + MarkOf(line));
  }
}

}  // namespace world

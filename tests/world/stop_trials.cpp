// SPDX-License-Identifier: GPL-2.0-only
#include "world/stop_trials.h"

#include <algorithm>

#include "platform/clock.h"
#include "zelk/ZelkApi.h"

namespace world {
namespace {

constexpr size_t kLongBytes = 8000;
constexpr size_t kShortBytes = 400;
constexpr size_t kMarkBytes = 80;
constexpr uint32_t kFirstSound = 3'000'000;
constexpr int64_t kBeforeMs = 300;
constexpr uint32_t kHeardMs = 1100;  // all blocks of the transmit ring, and the play's own
constexpr int64_t kEarliestUs = -12;
constexpr int64_t kLatestUs = 3;

}  // namespace

CStopTrials::CStopTrials(zelk::sim::CWorld& ownWorld, const SWorldPlan& worldPlan, CChecks& ownChecks, CFarEnds& ends)
    : world(ownWorld), plan(worldPlan), checks(ownChecks), farEnds(ends), random(worldPlan.seed) {}

void CStopTrials::OnBlock(int32_t ofChannel) {
  if (ofChannel == channel) {
    betweenUs = world.NowUs() - fetchedUs;
    fetchedUs = world.NowUs();
  }
}

void CStopTrials::Try(int32_t ownChannel, int count) {
  channel = ownChannel;
  for (int i = 0; i < count && TryOnce(static_cast<uint32_t>(i)); ++i) {
  }
  channel = -1;
}

// Until just before or after the fetch after the next.
void CStopTrials::AwaitFetch() {
  constexpr int64_t kPeriodUs = 20'000;
  const int64_t seenUs = fetchedUs;
  while (fetchedUs == seenUs) {
    zelk::SleepMs(1);
  }
  const int64_t awayUs = betweenUs > 0 && betweenUs < 2 * kPeriodUs ? betweenUs : kPeriodUs;
  zelk::CEvent now;
  world.At(std::max(fetchedUs + awayUs + random.Between(kEarliestUs, kLatestUs), world.NowUs()), [&now] { now.Set(); });
  now.Wait();
}

bool CStopTrials::TryOnce(uint32_t number) {
  checks.Play(channel, cardsim::RenderTestPattern(kLongBytes, kFirstSound + 2 * number));
  zelk::SleepMs(static_cast<uint32_t>(random.Between(1, kBeforeMs)));
  AwaitFetch();
  cardsim::Bytes sound = cardsim::RenderTestPattern(kShortBytes, kFirstSound + 2 * number + 1);
  checks.StopPlay(channel);
  checks.Play(channel, sound);
  zelk::SleepMs(kHeardMs);
  if (plan.planted == EPlanted::kEatenBlock) {
    sound[0] ^= 1;
  }
  return IsHeard(sound, number);
}

bool CStopTrials::IsHeard(const cardsim::Bytes& sound, uint32_t number) {
  const SFarCall* const far = farEnds.CallOf(channel);
  if (far == nullptr) {
    checks.Fail("the call of the stop trials is gone");
    return false;
  }
  const cardsim::Bytes heard = far->call->Recorded();
  const bool isWhole = std::search(heard.begin(), heard.end(), sound.begin(), sound.end()) != heard.end();
  const bool hasEnd = std::search(heard.begin(), heard.end(), sound.end() - kMarkBytes, sound.end()) != heard.end();
  checks.Require(isWhole, "stop trial " + std::to_string(number) + ": the far end does not hear " +
                              (hasEnd ? "the beginning" : "all") + " of what was played after a stop");
  return isWhole;
}

}  // namespace world

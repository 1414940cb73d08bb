// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <atomic>
#include <fstream>
#include <iostream>

#include "call_fixture.h"
#include "stress_seconds.h"

namespace {

// Resident memory of this process in bytes, 0 where it cannot be told or says nothing.
size_t ResidentBytes() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return 0;  // a sanitizer keeps freed memory
#else
  constexpr size_t kPageBytes = 4096;
  std::ifstream file("/proc/self/statm");
  size_t total = 0;
  size_t resident = 0;
  return file >> total >> resident ? resident * kPageBytes : 0;
#endif
}

// Every channel of a trunk dials, is answered, hangs up and dials again, all inside the event callback.
class ManyCalls : public CCallTest {
 protected:
  static constexpr int kCallsByHand = 10000;
  static constexpr int kSecondsByHand = 60;
  static constexpr size_t kMostGrowth = 2 * 1024 * 1024;

  void OnEvent(const support::SAppEvent& event) {
    if (event.code == ZELK_EVENT_CONNECTED) {
      ++connected;
      app->zelk.Hangup(event.channel);
    } else if (event.code == ZELK_EVENT_DISCONNECTED) {
      wrongCauses += event.param == 16 ? 0 : 1;
      if (++ended + kChannelsPerTrunk <= wanted) {
        refused += app->zelk.Dial(event.channel, "5551234", "100") ? 0 : 1;
      }
    }
  }

  bool Run(int calls) {
    connected = ended = wrongCauses = refused = 0;
    wanted = calls;
    for (int32_t channel = 0; channel < kChannelsPerTrunk; ++channel) {
      EXPECT_TRUE(app->zelk.Dial(channel, "5551234", "100"));
    }
    while (ended < calls) {
      const int before = ended;
      if (!support::Eventually([&] { return ended >= std::min(before + 500, calls); }, kSlow)) {
        return false;
      }
      app->Forget();
    }
    return connected == calls && wrongCauses == 0 && refused == 0;
  }

  std::atomic<int> wanted{0};
  std::atomic<int> connected{0};
  std::atomic<int> ended{0};
  std::atomic<int> wrongCauses{0};
  std::atomic<int> refused{0};
};

// Thousands of calls through one trunk leave no channel stuck and memory flat.
TEST_F(ManyCalls, leave_no_channel_stuck_and_memory_flat) {
  const int calls = std::max(kCallsByHand * StressSeconds() / kSecondsByHand, 600);
  cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks({1});
  config.keepHistory = false;
  sim = std::make_unique<cardsim::CSimulator>(config);
  sim->Start();
  app = std::make_unique<support::CApplication>();
  app->onEvent = [this](const support::SAppEvent& event) { OnEvent(event); };
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  ASSERT_TRUE(Run(300)) << "to warm up: " << connected << " connected, " << ended << " ended";
  const size_t before = ResidentBytes();
  ASSERT_TRUE(Run(calls)) << connected << " connected, " << ended << " ended, " << wrongCauses << " with other causes, "
                          << refused << " not dialled";
  const size_t after = ResidentBytes();
  EXPECT_TRUE(app->WaitAllReady(kSoon));
  EXPECT_TRUE(NetworkIsIdle());
  std::cout << calls << " calls, resident memory " << before / 1024 << " KiB before, " << after / 1024
            << " KiB after\n";
  EXPECT_LT(after, before + kMostGrowth);
  if (before == 0) {
    GTEST_SKIP() << "the memory part: this process cannot tell its resident memory";
  }
}

}  // namespace

// SPDX-License-Identifier: GPL-2.0-only
#include "world/workers.h"

#include <algorithm>
#include <utility>

namespace world {

using zelk::sim::kUsPerMs;

CWorkers::CWorkers(zelk::sim::CWorld& ownWorld, int threads) : world(ownWorld) {
  for (int i = 0; i < threads; ++i) {
    workers.push_back(std::make_unique<SWorker>());
    SWorker& worker = *workers.back();
    worker.thread.Start("worker", [this, &worker] { Run(worker); });
  }
}

void CWorkers::Do(int thread, int64_t atUs, std::function<void()> work) {
  SWorker& worker = *workers.at(static_cast<size_t>(thread) % workers.size());
  worker.queue.emplace(atUs, std::move(work));
  worker.changed.Set();
}

bool CWorkers::Join(int64_t mostMs) {
  for (const auto& worker : workers) {
    worker->isEnding = true;
    worker->changed.Set();
  }
  return std::all_of(workers.begin(), workers.end(), [mostMs](const std::unique_ptr<SWorker>& worker) {
    return worker->thread.JoinFor(static_cast<uint32_t>(mostMs));
  });
}

void CWorkers::Run(SWorker& worker) {
  for (;;) {
    if (worker.queue.empty()) {
      if (worker.isEnding) {
        return;
      }
      worker.changed.Wait();
    } else if (const int64_t waitUs = worker.queue.begin()->first - world.NowUs(); waitUs > 0) {
      worker.changed.WaitFor(static_cast<uint32_t>((waitUs + kUsPerMs - 1) / kUsPerMs));
    } else {
      const std::function<void()> work = std::move(worker.queue.begin()->second);
      worker.queue.erase(worker.queue.begin());
      work();
      continue;
    }
    worker.changed.Reset();
  }
}

}  // namespace world

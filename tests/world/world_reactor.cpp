// SPDX-License-Identifier: GPL-2.0-only
#include "world/world_reactor.h"

#include <algorithm>
#include <functional>
#include <system_error>
#include <utility>

#include "world/world_sockets.h"

namespace world {
namespace {

using cardsim::IReactor;
using std::chrono::microseconds;
using zelk::sim::CWorld;

constexpr std::chrono::hours kBeginning{1};

class CWorldTimer : public cardsim::ITimer {
 public:
  explicit CWorldTimer(CWorld& ownWorld) : world(ownWorld) {}
  CWorldTimer(const CWorldTimer&) = delete;
  CWorldTimer& operator=(const CWorldTimer&) = delete;
  ~CWorldTimer() override { Cancel(); }

  // The work is kept here: what an act holds beside a pointer or two costs memory of its own.
  void At(IReactor::Time time, std::function<void()> toDo) override {
    Cancel();
    work = std::move(toDo);
    number = world.At(std::max(ToWorldUs(time), world.NowUs()), [this] {
      number = 0;
      // It may set the timer again, or destroy it.
      const std::function<void()> due = std::exchange(work, nullptr);
      due();
    });
  }
  void Cancel() override {
    if (const uint64_t due = std::exchange(number, 0); due != 0) {
      world.Cancel(due);
      work = nullptr;
    }
  }

 private:
  CWorld& world;
  std::function<void()> work;
  uint64_t number = 0;
};

}  // namespace

IReactor::Time ToTime(int64_t worldUs) {
  return IReactor::Time(kBeginning + microseconds(worldUs));
}

int64_t ToWorldUs(IReactor::Time time) {
  return std::chrono::ceil<microseconds>(time.time_since_epoch() - kBeginning).count();
}

CWorldReactor::CWorldReactor(CWorld& ownWorld) : world(ownWorld), isRunning(std::make_shared<bool>(true)) {}

CWorldReactor::~CWorldReactor() {
  Stop();
}

void CWorldReactor::Stop() {
  *isRunning = false;
}

void CWorldReactor::Post(std::function<void()> work) {
  After(std::chrono::milliseconds(0), std::move(work));
}

void CWorldReactor::After(std::chrono::milliseconds delay, std::function<void()> work) {
  world.After(microseconds(delay).count(), [isOn = isRunning, work = std::move(work)] {
    if (*isOn) {
      work();
    }
  });
}

IReactor::Time CWorldReactor::Now() const {
  return ToTime(world.NowUs());
}

std::unique_ptr<cardsim::IDatagrams> CWorldReactor::OpenDatagrams(const cardsim::SDatagramOptions& options,
                                                                  cardsim::IDatagrams::Handler handler) {
  return OpenWorldDatagrams(world, options.local, std::move(handler));
}

std::unique_ptr<cardsim::IListener> CWorldReactor::Listen(const cardsim::SEndpoint& local,
                                                          cardsim::IListener::Handler handler) {
  return ListenInWorld(world, local, std::move(handler));
}

std::unique_ptr<cardsim::ITimer> CWorldReactor::MakeTimer() {
  return std::make_unique<CWorldTimer>(world);
}

}  // namespace world

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>

#include "cardsim/base/reactor.h"
#include "platform/simulated/world.h"

namespace world {

// Job: a reactor of the simulated card in a world: its work are the world's acts, its clock the world's, its sockets
// those of other machines than the library's. Several in one world are one; nothing blocks, and Call runs its work in
// place. Thread: tasks and acts of the world. The world outlives it. Works from its making until Stop, after which what
// still waits is dropped.
class CWorldReactor : public cardsim::IReactor {
 public:
  explicit CWorldReactor(zelk::sim::CWorld& ownWorld);
  ~CWorldReactor() override;
  CWorldReactor(const CWorldReactor&) = delete;
  CWorldReactor& operator=(const CWorldReactor&) = delete;

  void Start() override {}
  void Stop() override;

  void Post(std::function<void()> work) override;
  void After(std::chrono::milliseconds delay, std::function<void()> work) override;
  void Call(const std::function<void()>& work) override { work(); }
  Time Now() const override;

  std::unique_ptr<cardsim::IDatagrams> OpenDatagrams(const cardsim::SDatagramOptions& options,
                                                     cardsim::IDatagrams::Handler handler) override;
  std::unique_ptr<cardsim::IListener> Listen(const cardsim::SEndpoint& local,
                                             cardsim::IListener::Handler handler) override;
  std::unique_ptr<cardsim::ITimer> MakeTimer() override;

 private:
  zelk::sim::CWorld& world;
  std::shared_ptr<bool> isRunning;  // held by the work that waits
};

// The world's time as the card's logic counts it. It begins well after 0, which means never there.
cardsim::IReactor::Time ToTime(int64_t worldUs);
int64_t ToWorldUs(cardsim::IReactor::Time time);

}  // namespace world

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>
#include <vector>

#include "cardsim/base/config.h"
#include "cardsim/card/card.h"

namespace cardsim {

// Job: simulated cards with a telephone network behind them, in this process.
// Thread: any. Two threads of its own: signalling (control connections, discovery, libpri, calls) and audio (packets of
// all cards). Start binds every address and throws std::system_error with the address in its text when one cannot be
// had, std::invalid_argument for a bad configuration; nothing is left open then. Stop (also by the destructor) ends all
// at once; statistics and recordings stay readable. A simulator runs once: make a new one to start again.
//
//   CSimulator sim(SSimulatorConfig::WithTrunks({1}));
//   sim.Start();
//   ... start the library ...
//   ASSERT_TRUE(sim.Card(0).WaitUp(5s));
//   Call call = sim.Card(0).PlaceCall({.called = "100"});
//   ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, 5s));
class CSimulator {
 public:
  explicit CSimulator(SSimulatorConfig simulatorConfig);
  // The same in a world of somebody else's making. The two may be run by one thread.
  CSimulator(SSimulatorConfig simulatorConfig, std::unique_ptr<IReactor> signalling, std::unique_ptr<IReactor> audio);
  ~CSimulator();
  CSimulator(const CSimulator&) = delete;
  CSimulator& operator=(const CSimulator&) = delete;

  void Start();
  void Stop();

  std::size_t CardCount() const;
  CCard& Card(std::size_t index);
  const CCard& Card(std::size_t index) const;

 private:
  struct SParts;
  void ScheduleTick();

  const SSimulatorConfig config;
  std::unique_ptr<SParts> parts;
};

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "cardsim/base/reactor.h"

namespace cardsim {

// Job: hears the library's broadcast probes on UDP port 5854. Thread: signalling; the handler is called there. Open
// throws std::system_error when no address for broadcasts can be bound.
class CDiscovery {
 public:
  using ProbeHandler = std::function<void(const std::string& fromAddress)>;

  CDiscovery(IReactor& signallingReactor, ProbeHandler handler);

  void Open(const std::string& broadcastAddress);
  void Close();

 private:
  IReactor& reactor;
  const ProbeHandler onProbe;
  std::unique_ptr<IDatagrams> socket;
};

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <deque>
#include <string>
#include <utility>

#include "fleet/names.h"
#include "node/asks.h"

namespace node {

// Asks the fleet for jobs, never for more than can be taken; the requests stay open until jobs come or their time is
// over. Thread: the node's.
class CPulls {
 public:
  CPulls(fleet::CLink& toLink, const fleet::SNames& names, std::string jobsAt);

  // Asks for so many more.
  void Ask(int jobs, Clock::time_point now);
  // A job came.
  void Came();
  // The server ended a request; its number stands at the end of the subject.
  void Ended(const std::string& subject);
  // What was asked for is forgotten: another server does not know of it.
  void Forget();
  // How many that were asked for will not come, since this was called last.
  int TakeMissing() { return std::exchange(missing, 0); }
  int Open() const;

 private:
  struct SPull {
    uint64_t number = 0;
    int left = 0;
    Clock::time_point until;
  };

  fleet::CLink& link;
  const std::string subject;
  const std::string inbox;
  uint64_t last = 0;
  std::deque<SPull> open;
  int missing = 0;
};

}  // namespace node

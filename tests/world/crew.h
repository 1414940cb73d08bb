// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace world {

// Seen by all processes of a crew.
class ICrewStop {
 public:
  virtual ~ICrewStop() = default;
  virtual void Set() = 0;
  virtual bool IsSet() const = 0;
};

// Does a piece of work in so many processes at once, each a copy of this one, and gives what each returned; empty for
// one that ended badly, which sets the stop. Thread: the only one of the process.
std::vector<std::string> RunCrew(size_t count, const std::function<std::string(size_t worker, ICrewStop& stop)>& work);

}  // namespace world

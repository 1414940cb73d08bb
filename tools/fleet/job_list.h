// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>
#include <vector>

#include "fleet/job.h"

namespace fleet {

// Jobs in the order of their lines, and what is wrong with the lines that are none: one sentence each, "line 7: ...".
struct SJobList {
  std::vector<SJob> jobs;
  std::vector<std::string> faults;
};

// Reads a table (RFC 4180; its first line names the members of a job), or one JSON object a line.
SJobList ReadJobs(const std::string& text);

}  // namespace fleet

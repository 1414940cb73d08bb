// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "doctor/core/finding.h"

namespace doctor {

struct SOptions {
  std::string library;  // path of the library, or of the folder that it is in; empty: none is looked at
  std::string capture;  // "-" is standard input
  std::string log;      // a log of the library; empty: the one beside `library`
  std::string adapter;  // captured from live
  int seconds = 60;
  int trunks = 0;  // of cards of which the capture does not tell it; 0: none
  bool json = false;
  bool probe = false;
};

// Looks at all that was asked for, and at this machine unless it was a capture alone. What cannot be looked at is a
// finding too.
Findings Examine(const SOptions& options);

}  // namespace doctor

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

// What tests may ask about the system they run on, to say why they skip.
constexpr bool kOnWindows = false;

inline bool RunsUnderWine() {
  return false;
}

// Where a test plays the card while 127.0.0.1 plays the library.
constexpr const char* kCardAddress = "127.0.0.9";

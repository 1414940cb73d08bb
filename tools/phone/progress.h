// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <string>

namespace phone {

// What the user sees: on a terminal one status line that is drawn over, otherwise plain lines on each change.
// Thread: main.
class CProgress {
 public:
  CProgress();
  ~CProgress();
  CProgress(const CProgress&) = delete;
  CProgress& operator=(const CProgress&) = delete;

  // A line that stays.
  void Line(const std::string& text);
  // The live line; only shown on a terminal, where the next call replaces it.
  void Status(const std::string& text);
  bool Live() const { return live; }

 private:
  void ClearStatus();
  const bool live;
  size_t shown = 0;  // characters of the live line on the screen
};

// A bar for a level between -60 and 0 dBm0.
std::string LevelMeter(double dbm0);
// Minutes and seconds, as in 01:05.
std::string Elapsed(std::chrono::steady_clock::duration time);

}  // namespace phone

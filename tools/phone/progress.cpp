// SPDX-License-Identifier: GPL-2.0-only
#include "phone/progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

#include "common/terminal.h"

namespace phone {

CProgress::CProgress() : live(tool::StdoutIsTerminal()) {}

CProgress::~CProgress() {
  ClearStatus();
}

void CProgress::ClearStatus() {
  if (shown > 0) {
    std::cout << '\r' << std::string(shown, ' ') << '\r' << std::flush;
    shown = 0;
  }
}

void CProgress::Line(const std::string& text) {
  ClearStatus();
  std::cout << text << std::endl;
}

void CProgress::Status(const std::string& text) {
  if (!live) {
    return;
  }
  const size_t rest = shown > text.size() ? shown - text.size() : 0;
  std::cout << '\r' << text << std::string(rest, ' ') << std::flush;
  shown = text.size() + rest;
}

std::string LevelMeter(double dbm0) {
  constexpr double kFloor = -60.0;
  constexpr size_t kWidth = 20;
  const double share = std::clamp((dbm0 - kFloor) / -kFloor, 0.0, 1.0);
  const auto bars = static_cast<size_t>(std::lround(share * static_cast<double>(kWidth)));
  return "[" + std::string(bars, '#') + std::string(kWidth - bars, '.') + "]";
}

std::string Elapsed(std::chrono::steady_clock::duration time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
  char text[32];
  std::snprintf(text, sizeof text, "%02lld:%02lld", static_cast<long long>(seconds / 60),
                static_cast<long long>(seconds % 60));
  return text;
}

}  // namespace phone

#pragma once

// What tests may ask about the system they run on, to say why they skip.
constexpr bool kOnWindows = false;

inline bool RunsUnderWine() {
  return false;
}

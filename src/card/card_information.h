#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zelk {

constexpr size_t kCardInformationBytes = 22;

// What a card says of itself.
struct SCardInformation {
  uint8_t firmwareVersion = 0;
  uint8_t trunkCount = 0;  // 1..8
  uint32_t featureFlags = 0;
  uint32_t serialNumber = 0;
  std::string firmwareDate;  // four pairs of digits
  std::string burnDate;      // three pairs of digits and 00
};

// Reads the body of a card information message:
//
//   0       5   6        7        11       15              19          22
//   "ZELK " ver trunks   flags LE serial LE firmware date  burn date
//
// False when the body is not a card's or its trunk count is impossible; information is then untouched.
// Thread: any.
bool ParseCardInformation(const uint8_t (&body)[kCardInformationBytes], SCardInformation& information);

}  // namespace zelk

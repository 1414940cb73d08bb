// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

namespace zelk {

// The numbers that the ini file names and libpri takes. A file may hold any other number, which goes to libpri as it
// is: settings and trunks keep integers, and these are the ones with a meaning here.

// Which side of the D-channel the library is ("ClientType", mapped).
enum ENodeType : int32_t {
  kNetworkSide = 1,
  kUserSide = 2,
};

// The dialect of Q.931 ("SwitchType").
enum ESwitchType : int32_t {
  kEuroIsdnE1 = 5,
};

// Type of number and numbering plan of a SETUP, in one byte as Q.931 4.5.8 has them ("NumberType").
enum ENumberType : int32_t {
  kNationalIsdnNumber = 0x21,
};

// The node type of a "ClientType": two values stand for others, everything else for itself.
constexpr int32_t NodeTypeOf(int32_t clientType) {
  constexpr int32_t kClientOfNode5 = 1000;
  constexpr int32_t kClientOfNode10 = 1001;
  switch (clientType) {
    case kClientOfNode5:
      return 5;
    case kClientOfNode10:
      return 10;
    default:
      return clientType;
  }
}

}  // namespace zelk
